// SPDX-License-Identifier: ISC
#include "reverb/wet_path.h"

#include <utility>

#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kGlideSeconds = 0.03;  // of mix, level, width, depth of the duck, cut-offs
constexpr double kPreDelayFade = 0.05;  // s
constexpr double kDuckRecovery = 0.35;  // s

}  // namespace

template <typename T> void WetPath<T>::prepare(const ProcessSpec& spec, double longestPreDelay)
{
    sampleRate_ = spec.sampleRate;
    isFromMono_ = spec.inputLayout.channels == 1 && spec.layout.channels == 2;
    const SpeakerField field(spec.layout);
    std::array<int, kMostChannels> place{};  // of the layout's channels among the engine's
    channels_ = lfeCount_ = 0;
    for (int c = 0; c < spec.channels; ++c) {
        place[static_cast<std::size_t>(c)] = field[c].isLfe ? -1 : channels_;
        auto& to = field[c].isLfe ? lfe_[static_cast<std::size_t>(lfeCount_++)]
                                  : channel_[static_cast<std::size_t>(channels_++)];
        to = c;
    }
    if (channels_ == 0) {  // an LFE by itself is what the reverb is for
        channels_ = std::exchange(lfeCount_, 0);
        channel_ = lfe_;
    }
    const auto layoutPairs = ChannelPairs::of(spec.layout);
    pairs_ = {};
    for (int p = 0; p < layoutPairs.count; ++p) {
        const auto [left, right] = layoutPairs.pairs[static_cast<std::size_t>(p)];
        const int l = place[static_cast<std::size_t>(left)];
        const int r = place[static_cast<std::size_t>(right)];
        if (l >= 0 && r >= 0) pairs_.pairs[static_cast<std::size_t>(pairs_.count++)] = {l, r};
    }

    const double longest = longestPreDelay * spec.sampleRate;
    line_.prepare(channels_, static_cast<int>(longest + 0.5) + 2 * kSubBlock);
    preDelay_.prepare(spec.sampleRate, kPreDelayFade);
    const double halfLife = halfLifeSubBlocks(spec.sampleRate, kGlideSeconds);
    cuts_.prepare({.lowEnd = kReverbLowEnd, .highEnd = kReverbHighEnd, .form = SectionForm::Blocks},
                  channels_, spec.sampleRate, halfLife);
    width_.prepareHalfLife(halfLife);
    ducker_.prepare(spec.sampleRate, halfLife);
    ducker_.setRecovery(kDuckRecovery);
    level_.prepareHalfLife(halfLife);
    mixer_.prepareHalfLife(halfLife);
    mixer_.setLaw(MixLaw::EqualPower);
    peaks_.begin();
}

template <typename T> void WetPath<T>::reset() noexcept
{
    line_.clear();
    preDelay_.snap();
    cuts_.reset();
    width_.reset();
    ducker_.reset();
    level_.snap();
    levels_.set(level_.current());
    mixer_.reset();
}

template <typename T> void WetPath<T>::apply(const ReverbSettings& s, unsigned dirty) noexcept
{
    settings_ = s;
    if (dirty & ReverbSettings::PreDelay) updatePreDelay();
    if (dirty & ReverbSettings::Tone) {
        cuts_.tune(s.lowCut, s.highCut);
        width_.target(T(s.width));
    }
    if (dirty & ReverbSettings::Duck) ducker_.setDepth(double(s.duck));
    if (dirty & ReverbSettings::Mix) {
        level_.target(T(s.level));
        mixer_.target(T(s.mix));
    }
}

template <typename T> void WetPath<T>::setTempo(double beatsPerMinute) noexcept
{
    tempo_ = beatsPerMinute;
    updatePreDelay();
}

template <typename T> void WetPath<T>::updatePreDelay() noexcept
{
    preDelay_.target(static_cast<int>(preDelaySeconds(settings_, tempo_) * sampleRate_ + 0.5));
}

/// A call of the host begins.
template <typename T> void WetPath<T>::begin(const AudioBlock<T>& block) noexcept
{
    peaks_.begin();
    for (int c = 0; c < block.inputChannels; ++c) peaks_.measureInput(block[c], block.frames);
    if (isFromMono_) vec::copy(block[1], static_cast<const T*>(block[0]), block.frames);
}

/// What the engine is given: where it lies in the line, or in `room` where it is not in one piece.
template <typename T>
void WetPath<T>::takeIn(const AudioBlock<T>& part, T* const* room, const T** in) noexcept
{
    const int n = part.frames;
    const auto copySound = [](T* to, const T* from, int count) {
        vec::copy(to, from, count);
        sanitise(to, count, kLoudestSignal);
    };
    for (int c = 0; c < channels_; ++c) line_.put(c, part[channel(c)], n, copySound);
    line_.advance(n);
    preDelay_.next(part);
    const int distance = preDelay_.present() + n - 1;
    const bool isWhole = !preDelay_.isFading() && distance < line_.valid();
    for (int c = 0; c < channels_; ++c) {
        in[c] = isWhole ? line_.at(c, distance) : room[c];
        if (isWhole) continue;
        line_.copy(c, room[c], distance, n);
        if (!preDelay_.isFading()) continue;
        T old[kSubBlock];
        line_.copy(c, old, preDelay_.leaving() + n - 1, n);
        preDelay_.fade().mix(room[c], old, n);
    }
    preDelay_.advance(n);
}

/// What the engine has given becomes what is heard.
template <typename T> void WetPath<T>::bringOut(const AudioBlock<T>& part, T* const* wet) noexcept
{
    cuts_.process(wet, part);
    width_.next(part);
    for (int p = 0; p < pairs_.count; ++p) {
        const auto [left, right] = pairs_.pairs[static_cast<std::size_t>(p)];
        width_.process(wet[left], wet[right], part);
    }
    const T* dry[kMostChannels];
    for (int c = 0; c < channels_; ++c) dry[c] = part[channel(c)];
    ducker_.process(dry, channels_, wet, channels_, part);
    levels_.follow(level_, part);
    mixer_.next(part);
    if (mixer_.isDry()) return;
    for (int c = 0; c < channels_; ++c) {
        levels_.scale(wet[c], part);
        mixer_.mixInto(part[channel(c)], wet[c], part);
    }
    for (int i = 0; i < lfeCount_; ++i) {
        T* const lfe = part[lfe_[static_cast<std::size_t>(i)]];
        constexpr T silence[kSubBlock]{};  // no reverberation
        mixer_.mixInto(lfe, silence, part);
    }
}

template <typename T> void WetPath<T>::end(const AudioBlock<T>& block) noexcept
{
    for (int c = 0; c < block.outputChannels; ++c) peaks_.measureOutput(block[c], block.frames);
}

template <typename T> void WetPath<T>::publish(MeterSlots& meters) const noexcept
{
    meters.publish("DkRd"_tag, static_cast<float>(0 - ducker_.gainDb()));
    peaks_.publish(meters);
}

template class WetPath<float>;
template class WetPath<double>;

}  // namespace quillworks
