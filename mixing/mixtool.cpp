// SPDX-License-Identifier: ISC
#include "mixing/mixtool.h"

#include <algorithm>

#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = MixToolCore<float>;
using S = MixToolSettings;
using namespace conversion;

constexpr int kStep = 16;  // samples
constexpr int kChannels = kMixToolChannels;
constexpr Tag kPhaseFlip = 100, kLevel = 200, kMute = 300, kSolo = 400;

constexpr Family<S> kPerChannel{.count = kChannels, .perChannel = true};
constexpr Family<S> kLevels{.count = kChannels,
                            .element = [](S& s, int i) -> float& { return s.levels[i]; },
                            .perChannel = true};

constexpr Parameter<S> outputLevels()
{
    auto row = levelRow<S>(kOutputFast);
    row.family.count = kChannels;
    row.notes.generation = 1;
    return row;
}

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key             tag         title                  kind         min max def unit  field        dirty          forward
    {"gain",           "Gain"_tag, "Gain",                Kind::Float, -24, 24, 0, "dB", &S::gain,    Core::Gain,    decibels,
     {.group = "Gain", .help = "Level of all channels.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"dcblock",        "DCBl"_tag, "DC Block",            Kind::Toggle, 0, 1, 0,   "",   &S::dcBlock, Core::Routing, asIs,
     {.group = "Gain", .help = "Takes a constant offset out of every channel."}},
    {"channelflip",    "FlCh"_tag, "Swap Channels",       Kind::Toggle, 0, 1, 0,   "",   &S::swap,    Core::Routing, asIs,
     {.group = "Routing", .help = "Left and right trade places, in surround each pair.", .shortTitle = "Swap"}},
    {"phaseflipleft",  "FlPL"_tag, "Left Phase Invert",   Kind::Toggle, 0, 1, 0,   "",   nullptr,     Core::Routing, asIs,
     {.group = "Routing", .help = "Inverts the polarity of the first channel at its next zero crossing.", .shortTitle = "Invert L"}},
    {"phaseflipright", "FlPR"_tag, "Right Phase Invert",  Kind::Toggle, 0, 1, 0,   "",   nullptr,     Core::Routing, asIs,
     {.group = "Routing", .help = "Inverts the polarity of the second channel at its next zero crossing.", .shortTitle = "Invert R"}},
    {"mstransform",    "MSCd"_tag, "MS Transform",        Kind::Toggle, 0, 1, 0,   "",   &S::midSide, Core::Routing, asIs,
     {.group = "Routing", .help = "Turns left and right into mid and side.", .shortTitle = "M/S"}},
    {"stereo",         "Ster"_tag, "Stereo",              Kind::Toggle, 0, 1, 1,   "",   nullptr,     0,             asIs,
     {.group = "Routing", .help = "Shows the controls of two channels, or of each channel."}},
    {"phaseflip",      kPhaseFlip, "Phase Invert",        Kind::Toggle, 0, 1, 0,   "",   nullptr,     Core::Routing, asIs,
     {.group = "Channels", .help = "Inverts this channel's polarity, with more than two channels."}, kPerChannel},
    {"channellevel",   kLevel,     "Channel Level",       Kind::Float, -96, 12, 0, "dB", nullptr,     Core::Levels,  decibels,
     {.group = "Channels", .help = "Level of this channel.", .curve = &curve::decibel, .flags = kGainFlags}, kLevels},
    {"channelmute",    kMute,      "Channel Mute",        Kind::Toggle, 0, 1, 0,   "",   nullptr,     Core::Levels,  asIs,
     {.group = "Channels", .help = "Fades this channel out."}, kPerChannel},
    {"channelsolo",    kSolo,      "Channel Solo",        Kind::Toggle, 0, 1, 0,   "",   nullptr,     Core::Levels,  asIs,
     {.group = "Channels", .help = "Fades out every channel that is not soloed."}, kPerChannel},
    {"bypass",         "Bypa"_tag, "Bypass",              Kind::Bypass},
    {"editor",         "Edit"_tag, "Editor",              Kind::Command, 0, 1, 0,  "",   &S::editorOpen, Core::Editor},
    outputLevels(),
};
// clang-format on

/// Switches of the same thing with more than two channels.
constexpr Tag kPolarityTwins[][2] = {{"FlPL"_tag, kPhaseFlip}, {"FlPR"_tag, kPhaseFlip + 1}};

constexpr std::uint32_t present(int channels)
{
    return (std::uint32_t{1} << channels) - 1;
}

constexpr std::uint32_t withBit(std::uint32_t mask, Tag bit, bool on)
{
    return on ? mask | std::uint32_t{1} << bit : mask & ~(std::uint32_t{1} << bit);
}

/// +1 for 0 and above, as the sign of silence.
template <typename T> T signOf(T x)
{
    return x >= 0 ? T(1) : T(-1);
}

}  // namespace

template <typename T> void MixToolCore<T>::prepare(const ProcessSpec& spec)
{
    channels_.resize(static_cast<std::size_t>(spec.channels));
    pairs_ = ChannelPairs::of(spec.layout);
    measured_.prepare(spec);
    gain_.prepare(spec.maxFrames);
    for (auto& channel : channels_) {
        channel.level.prepare(spec.maxFrames);
        channel.dcBlocker.prepare(spec.sampleRate);
    }
}

template <typename T> void MixToolCore<T>::reset() noexcept
{
    measured_.reset();
    gain_.snap();
    for (auto& channel : channels_) {
        channel.level.snap();
        channel.dcBlocker.reset();
        channel.sign = 1;
    }
    heardPolarity_ = polarity_;
    blockedDc_ = blocksDc_;
}

template <typename T> void MixToolCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    const int count = static_cast<int>(channels_.size());
    if (dirty & Editor) measured_.setOpen(s.editorOpen != 0);
    if (dirty & Gain) gain_.setTarget(s.gain);
    if (dirty & Routing) {
        isSwapped_ = s.swap != 0;
        isMidSide_ = s.midSide != 0;
        mode_ = count < 2    ? Mode::Plain
                : isMidSide_ ? Mode::MidSide
                : isSwapped_ ? Mode::Swap
                             : Mode::Plain;
        polarity_ = (s.sidePolarity | (count > 2 ? s.channelPolarity : 0)) & present(count);
        if (s.dcBlock != 0 && !blocksDc_)
            for (auto& channel : channels_) channel.dcBlocker.reset();
        blocksDc_ = s.dcBlock != 0;
    }
    if (dirty & Levels) {
        // With every channel soloed nothing is left to fade out, muted or not. Judged once all
        // changes of a block are in, for a solo that moves from one channel to another may arrive
        // at its new place first.
        const auto soloed = s.soloed & present(count);
        const auto muted = soloed == present(count) ? 0 : soloed != 0 ? ~soloed : s.muted;
        for (int c = 0; c < count; ++c)
            channels_[static_cast<std::size_t>(c)].level.setTarget(
                muted & std::uint32_t{1} << c ? 0.0 : double(s.levels[c]));
    }
}

template <typename T> bool MixToolCore<T>::isAtRest() const noexcept
{
    return !gain_.isActive() && heardPolarity_ == polarity_ &&
           std::none_of(channels_.begin(), channels_.end(),
                        [](const Channel& c) { return c.level.isActive(); });
}

template <typename T> void MixToolCore<T>::process(const AudioBlock<T>& block) noexcept
{
    for (int done = 0; done < block.frames;) {
        // While nothing moves, the rest of the block is one step.
        const int n = isAtRest() ? block.frames - done : std::min(kStep, block.frames - done);
        processStep(block.slice(done, n));
        done += n;
    }
    blockedDc_ = blocksDc_;
    if (!measured_.isOpen()) return;
    EditorLevels::Inputs heard;  // of the inputs nothing is shown
    for (int done = 0; done < block.frames; done += EditorLevels::kLongest) {
        const auto piece = block.slice(done, std::min(EditorLevels::kLongest, block.frames - done));
        for (int c = 0; c < piece.channels; ++c) measured_.keep(heard, c, piece[c], piece.frames);
        measured_.measure(heard, piece);
    }
}

template <typename T> void MixToolCore<T>::processStep(const AudioBlock<T>& step) noexcept
{
    const T gain = static_cast<T>(gain_.next());
    const bool isUnity = gain == 1 && !gain_.isActive();  // a glide may pass through 1
    switch (mode_) {
    case Mode::Plain:
        invertAndScale(step, 0, gain);
        break;
    case Mode::Swap:
        // At unity a channel takes its polarity along; with gain it is that of the place it goes
        // to.
        if (isUnity) invertAndScale(step, 0, gain);
        swap(step);
        if (!isUnity) invertAndScale(step, 0, gain);
        break;
    case Mode::MidSide:
        midSide(step, gain / 2);
        invertAndScale(step, 2, gain);
        break;
    }
    for (int c = 0; c < step.channels; ++c) {
        auto& channel = channels_[static_cast<std::size_t>(c)];
        // One block longer than it is switched on, so that the filter's end is heard.
        if (blocksDc_ || blockedDc_) channel.dcBlocker.process(step[c], step.frames);
        const T level = static_cast<T>(channel.level.next());
        if (level == 0)
            vec::clear(step[c], step.frames);  // 0 times what is not finite is not 0
        else if (level != 1)
            vec::scale(step[c], level, step.frames);
    }
}

/// Polarity and gain of the channels from `first` on.
template <typename T>
void MixToolCore<T>::invertAndScale(const AudioBlock<T>& step, int first, T gain) noexcept
{
    for (int c = first; c < step.channels; ++c) {
        auto& channel = channels_[static_cast<std::size_t>(c)];
        const std::uint32_t bit = std::uint32_t{1} << c;
        T* const x = step[c];
        const T last = signOf(x[step.frames - 1]);
        if ((heardPolarity_ ^ polarity_) & bit) {
            switchAtZeroCrossing(channel, bit, x, step.frames, gain);
        } else {
            const bool isInverted = (polarity_ & bit) != 0;
            if (gain != 1)
                vec::scale(x, isInverted ? -gain : gain, step.frames);
            else if (isInverted)
                vec::negateCopy(x, x, step.frames);
        }
        channel.sign = last;
    }
}

/// The old polarity up to the first sample whose sign differs from that of the one before.
template <typename T>
void MixToolCore<T>::switchAtZeroCrossing(Channel& channel, std::uint32_t bit, T* x, int n,
                                          T gain) noexcept
{
    T polarity = heardPolarity_ & bit ? T(-1) : T(1);
    T before = channel.sign;
    for (int i = 0; i < n; ++i) {
        const T sign = signOf(x[i]);
        if (sign != before && (heardPolarity_ ^ polarity_) & bit) {
            heardPolarity_ ^= bit;
            polarity = -polarity;
        }
        before = sign;
        x[i] *= polarity * gain;
    }
}

template <typename T> void MixToolCore<T>::swap(const AudioBlock<T>& step) noexcept
{
    for (int p = 0; p < pairs_.count; ++p) {
        const auto [a, b] = pairs_.pairs[static_cast<std::size_t>(p)];
        if (std::max(a, b) < step.channels)
            std::swap_ranges(step[a], step[a] + step.frames, step[b]);
    }
}

/// Channels 0 and 1; `gain` is halved, so that a signal in the middle keeps its level.
template <typename T> void MixToolCore<T>::midSide(const AudioBlock<T>& step, T gain) noexcept
{
    AudioBlock<T> pair = step;
    pair.channels = 2;
    invertAndScale(pair, 0, T(1));
    const T sideGain = isSwapped_ ? -gain : gain;
    T side[kStep];
    for (int done = 0; done < step.frames; done += kStep) {
        const int n = std::min(kStep, step.frames - done);
        T* const left = step[0] + done;
        T* const right = step[1] + done;
        vec::subScale(side, left, right, sideGain, n);
        vec::addScale(left, left, right, gain, n);
        vec::copy(right, side, n);
    }
}

template class MixToolCore<float>;
template class MixToolCore<double>;

MixToolAlgorithm::MixToolAlgorithm() : PrecisionAlgorithm(kParameters) {}

bool MixToolAlgorithm::acceptsArrangement(const VNK::SpeakerArrangement& input,
                                          const VNK::SpeakerArrangement& output) const noexcept
{
    return input.channels <= kChannels && PrecisionAlgorithm::acceptsArrangement(input, output);
}

void MixToolAlgorithm::setParameter(Tag tag, float value) noexcept
{
    auto& s = settings();
    const bool on = value != 0;
    if (tag == "FlPL"_tag || tag == "FlPR"_tag) {
        s.sidePolarity = withBit(s.sidePolarity, tag == "FlPL"_tag ? 0 : 1, on);
    } else if (tag - kPhaseFlip < kChannels) {
        s.channelPolarity = withBit(s.channelPolarity, tag - kPhaseFlip, on);
    } else if (tag - kMute < kChannels) {
        s.muted = withBit(s.muted, tag - kMute, on);
    } else if (tag - kSolo < kChannels) {
        s.soloed = withBit(s.soloed, tag - kSolo, on);
    }
    PrecisionAlgorithm::setParameter(tag, value);
}

MixToolComponent::MixToolComponent(MixToolAlgorithm& algorithm)
    : AudioEffectComponent(
          algorithm,
          {.viewPrefix = "MixTool", .layouts = "stereo;mono;5.1;7.1", .copiesAtDefaults = true})
{}

void MixToolComponent::changed(const AlgorithmParameter& parameter, float, Setter by) noexcept
{
    if (parameter.tag - kSolo < kChannels) clearFullSolo(by);
    joinPolarity(parameter.tag, by);
}

/// What was set or stored for another layout may not fit this one. Before the layout is known, a
/// state is kept as it is.
void MixToolComponent::reconcile() noexcept
{
    if (!isPrepared()) return;
    clearFullSolo(Setter::Host);
    for (const auto& twins : kPolarityTwins)
        for (const Tag tag : twins)
            if (getValue(list().findTag(tag)) != 0) joinPolarity(tag, Setter::Host);
}

/// In surround the first two channels have two switches each, which go together.
void MixToolComponent::joinPolarity(Tag moved, Setter by) noexcept
{
    if (channels() <= 2) return;
    for (const auto& [side, channel] : kPolarityTwins) {
        if (moved != side && moved != channel) continue;
        const float now = getValue(list().findTag(moved));
        const int other = list().findTag(moved == side ? channel : side);
        if (getValue(other) != now) setAt(other, now, by);
    }
}

/// Panel and sound agree when the last channel has been soloed: all solos and mutes go out.
void MixToolComponent::clearFullSolo(Setter by) noexcept
{
    const auto indexOf = [&](Tag base, int c) {
        return list().findTag(base + static_cast<Tag>(c));
    };
    const int count = std::min(channels(), kChannels);
    for (int c = 0; c < count; ++c)
        if (getValue(indexOf(kSolo, c)) == 0) return;
    for (int c = 0; c < count; ++c) {
        setAt(indexOf(kSolo, c), 0, by);
        setAt(indexOf(kMute, c), 0, by);
    }
}

}  // namespace quillworks
