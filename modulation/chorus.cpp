// SPDX-License-Identifier: ISC
#include "modulation/chorus.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/neutral.h"
#include "dsp/sanitise.h"
#include "framework/note_sync.h"

namespace quillworks {
namespace {

using Core = ChorusCore<float>;
using S = ChorusSettings;
using namespace conversion;

constexpr int kVoices = Core::kMostVoices;
constexpr float kMostDetune = 50;                           // cents
constexpr float kLowCutOff = 20, kHighCutOff = 20000;       // Hz
constexpr double kMostDrift = 0.0015;                       // s
constexpr double kLongest = 0.1;                            // s, of a delay
constexpr double kNearest = FarrowLine<float>::kLeast + 1;  // samples, of a delay
constexpr double kShare = 1e-6;                             // of a range, where a glide ends
constexpr double kDriftRate = 0.11;                         // Hz, of the first voice
constexpr Tag kVoiceDelay = "Vdl0"_tag;

constexpr const char* kVoiceGroup = "Voices";
constexpr const char* kTone = "Tone";
constexpr const char* kOutput = "Output";
constexpr Family<S> kDelays{.count = kVoices};

// clang-format off
constexpr std::array kVoiceRows{
    // key                tag          title     kind          min  max          def  unit                  field       dirty         forward
    Parameter<S>{"voices", "Voic"_tag, "Voices", Kind::List,   1,   kVoices,     3,   "",                   &S::voices, Core::Voices, asIs,
        {.group = kVoiceGroup, .help = "Number of voices; more of them are denser, not louder."}},
    Parameter<S>{"delay",  "Dely"_tag, "Delay",  Kind::Float,  2,   40,          14,  "Media.Milliseconds", &S::delay,  Core::Time,   milliseconds,
        {.group = kVoiceGroup, .help = "Delay around which the voices lie.", .curve = &curve::logarithmic}},
    Parameter<S>{"detune", "Dtun"_tag, "Detune", Kind::Float,  0,   kMostDetune, 9,   "cent",               &S::detune, Core::Time,   asIs,
        {.group = kVoiceGroup, .help = "How far each voice bends the pitch, whatever the speed."}},
};
constexpr std::array kOtherRows{
    Parameter<S>{"drift",  "Drft"_tag, "Drift",    Kind::Float, 0,    100,  25,    "%",  &S::drift,   Core::Time,    percent,
        {.group = kVoiceGroup, .help = "Slow chance in the delay of each voice, the same in every rendering."}},
    Parameter<S>{"spread", "Sprd"_tag, "Spread",   Kind::Float, 0,    100,  80,    "%",  &S::spread,  Core::Place,   percent,
        {.group = kVoiceGroup, .help = "How far the voices stand apart between left and right."}},
    Parameter<S>{"lowcut", "Loct"_tag, "Low Cut",  Kind::Float, kLowCutOff, 1000, 120, "Hz", &S::lowCut, Core::Filters, asIs,
        {.group = kTone, .help = "The voices begin here; what lies below stays dry and at its level.", .curve = &curve::logarithmic, .minText = "Off"}},
    Parameter<S>{"hicut",  "Hict"_tag, "High Cut", Kind::Float, 1000, kHighCutOff, 12000, "Hz", &S::highCut, Core::Filters, asIs,
        {.group = kTone, .help = "The voices end here.", .curve = &curve::logarithmic, .maxText = "Off"}},
    Parameter<S>{"mix",    "Mix "_tag, "Mix",      Kind::Float, 0,    100,  45,    "%",  &S::mix,     Core::Mix,     percent,
        {.group = kOutput, .help = "From the input to the voices alone, above the bass."}},
    Parameter<S>{"bypass", "Bypa"_tag, "Bypass",   Kind::Bypass},
    Parameter<S>{"voicedelay", kVoiceDelay, "Voice Delay", Kind::Reading, 0, 1000 * float(kLongest), 0, "Media.Milliseconds", nullptr, 0, asIs, {}, kDelays},
    Parameter<S>{"effectivedetune", "Eff "_tag, "Effective Detune", Kind::Reading, 0, kMostDetune, 0, "cent"},
    lfoPhaseRow<S>(),
};
// clang-format on
constexpr LfoFields<S> kLfo{&S::lfoSync, &S::lfoBeats, &S::lfoRate, &S::wave, &S::stereo};
constexpr auto kParameters = joinedRows(
    kVoiceRows, lfoRows<S>(kLfo, {.beats = 2, .rate = 0.6f, .wave = LfoWave::Sine}, Core::Lfo),
    kOtherRows);

/// Delays of the voices over that of all: scattered by the golden ratio, within a quarter.
constexpr auto kDelayShares = [] {
    std::array<double, kVoices> shares{};
    for (int i = 0; i < kVoices; ++i) {
        const double place = 0.5 + 0.6180340 * i;
        shares[static_cast<std::size_t>(i)] = 0.75 + 0.5 * (place - static_cast<int>(place));
    }
    return shares;
}();

}  // namespace

template <typename T> void ChorusCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    const auto channels = static_cast<std::size_t>(spec.channels);
    const double quick = 2 * glideSubBlocks(sampleRate_), slow = 16 * glideSubBlocks(sampleRate_);
    partLength_ = 1 + static_cast<int>(0.060 * sampleRate_ / kSubBlock);
    fadeStep_ = 1 / std::max(1.0, std::trunc(0.020 * sampleRate_ / kSubBlock + 0.5));

    sides_ = channelSides(spec.layout);
    feeds_.resize(channels);
    wets_.resize(channels);
    dry_.resize(channels);
    cuts_.prepare({.lowOrder = 4, .highOrder = 2, .lowEnd = kLowCutOff, .highEnd = kHighCutOff},
                  spec.channels, sampleRate_, quick);
    bass_.prepare(1, spec.channels);
    // What a sub-block reads behind itself and the tap's neighbours come on top.
    line_.prepare(spec.channels, static_cast<int>(kLongest * sampleRate_) + 3 * kSubBlock);

    lfo_.prepare(sampleRate_);
    driftCycle_.prepare(sampleRate_);
    driftWave_.select(LfoWave::Random);
    driftCycle_.set(false, 1, kDriftRate);
    const auto glide = [](auto& value, double halfLife, double range) {
        value.prepareHalfLife(halfLife);
        value.setTolerance(range * kShare);
    };
    for (auto& voice : voices_) {
        for (auto& lfo : voice.lfo) lfo.prepare(sampleRate_);
        voice.drift.prepare(sampleRate_);
        glide(voice.pan, quick, 2);
    }
    glide(delay_, slow, 0.04);
    glide(depth_, slow, kMostDrift);
    glide(drift_, slow, kMostDrift);
    glide(stereo_, quick, 0.5);
    glide(bassOctave_, quick, 1);
    glide(bassShare_, quick, 1);
    dryWet_.prepareHalfLife(quick);
    dryWet_.prepareDry(spec.channels);
}

template <typename T> void ChorusCore<T>::reset() noexcept
{
    lfo_.reset();
    driftCycle_.reset();
    voiceCount_ = wantedVoices_;
    for (int i = 0; i < kMostVoices; ++i) {
        Voice& voice = voices_[static_cast<std::size_t>(i)];
        for (auto& lfo : voice.lfo) lfo.reset();
        voice.drift.reset();
        voice.presence = i < voiceCount_ ? 1 : 0;
    }
    for (auto* value : {&delay_, &drift_, &stereo_, &bassOctave_, &bassShare_}) value->snap();
    cuts_.reset();
    bass_.reset();
    line_.clear();
    dryWet_.reset();
    partLeft_ = 0;
    isFresh_ = gainsMove_ = true;
}

template <typename T> void ChorusCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Voices) wantedVoices_ = std::clamp(static_cast<int>(s.voices), 1, kMostVoices);
    if (dirty & Time) {
        delay_.target(double(s.delay));
        detune_ = std::exp2(double(s.detune) / 1200) - 1;
        drift_.target(double(s.drift) * kMostDrift);
    }
    if (dirty & Lfo) {
        lfo_.set({.isSynced = s.lfoSync != 0,
                  .noteValue = double(s.lfoBeats),
                  .hertz = double(s.lfoRate),
                  .wave = static_cast<LfoWave>(static_cast<int>(s.wave))});
        stereo_.target(double(s.stereo) / 360);
    }
    if (dirty & Place) {
        spread_ = double(s.spread);
        gainsMove_ = true;
    }
    if (dirty & Filters) {
        cuts_.tune(s.lowCut, s.highCut);
        const bool isOff = isNeutral(s.lowCut, kLowCutOff);
        bassShare_.target(isOff ? 0 : 1);
        if (!isOff) bassOctave_.target(std::log2(double(s.lowCut)));
    }
    if (dirty & Mix) dryWet_.target(T(s.mix));
}

template <typename T> void ChorusCore<T>::process(const AudioBlock<T>& block) noexcept
{
    lfo_.begin(*block.transport, block.frames);
    forEachSubBlock(
        block, [&](const AudioBlock<T>& part) { processSlice(part, part.offset - block.offset); });
}

/// A sub-block begins `offset` frames after the block.
template <typename T> void ChorusCore<T>::begin(int offset) noexcept
{
    lfo_.next(offset);
    if (gainsMove_ || wantedVoices_ != voiceCount_) moveGains();
    moveDelays(offset);
    moveBass();
    isFresh_ = false;
}

/// Voices that come and go, and where they stand.
template <typename T> void ChorusCore<T>::moveGains() noexcept
{
    voiceCount_ = wantedVoices_;
    gainsMove_ = false;
    double power = 0;
    for (int i = 0; i < kMostVoices; ++i) {
        Voice& voice = voices_[static_cast<std::size_t>(i)];
        const bool isThere = i < voiceCount_, wasSilent = voice.presence == 0;
        const double presence = voice.presence + (isThere ? fadeStep_ : -fadeStep_);
        // Steps of a fade add up to a little beside 0 and 1.
        voice.presence = presence < fadeStep_ / 2 ? 0 : presence > 1 - fadeStep_ / 2 ? 1 : presence;
        gainsMove_ |= voice.presence != (isThere ? 1 : 0) || wasSilent != (voice.presence == 0);
        power += voice.presence * voice.presence;
        if (isThere && voiceCount_ > 1)
            voice.pan.target(spread_ * (2.0 * i / (voiceCount_ - 1) - 1));
        else if (isThere)
            voice.pan.target(0);
        if (isFresh_ || (wasSilent && isThere)) voice.pan.snap();
        gainsMove_ |= voice.pan.isGliding();
    }
    for (auto& voice : voices_) {
        const bool sounded = voice.sounds;
        const double pan = voice.pan.next(kWholeSubBlock).to;
        const double middle = voice.presence / std::sqrt(power);
        const double side = std::numbers::sqrt2 * middle, angle = (1 + pan) * std::numbers::pi / 4;
        const std::array<double, kPlaces> gains{middle, side * std::cos(angle),
                                                side * std::sin(angle)};
        for (std::size_t p = 0; p < kPlaces; ++p) {
            const T to = T(gains[p]), from = voice.gain[p].at[kSubBlock - 1];
            voice.gain[p].follow({isFresh_ ? to : sounded ? from : T(0), to});
            gainsMove_ |= !voice.gain[p].isConstant();
        }
        voice.sounds = !(voice.gain[0].is(0));
    }
}

/// Seconds of delay per second, at most, that a wave of depth 1 s makes.
template <typename T> double ChorusCore<T>::slope() const noexcept
{
    const double hertz = lfo_.hertz();
    switch (lfo_.wave()) {
    case LfoWave::Sine:
        return 2 * std::numbers::pi * hertz;
    case LfoWave::Sawtooth:
        return 2 * hertz;
    case LfoWave::Random:
        return 3 * hertz;
    case LfoWave::Triangle:
    case LfoWave::Square:
        return 4 * hertz;
    }
    return hertz;
}

template <typename T> void ChorusCore<T>::moveDelays(int offset) noexcept
{
    // A delay that changes by a share of the time bends the pitch by that share of the frequency.
    depth_.target(std::min(kLongest, detune_ / slope()));
    if (isFresh_) depth_.snap();
    const double delay = delay_.next(kWholeSubBlock).to, depth = depth_.next(kWholeSubBlock).to;
    const double stereo = stereo_.next(kWholeSubBlock).to, drift = drift_.next(kWholeSubBlock).to;
    const double driftPlace = driftCycle_.next(lfo_.clock(), offset);
    const double nearest = kNearest / sampleRate_;
    kept_ = 1;
    // A voice alone is stereo by its phase; where others join it, its sides meet.
    partLeft_ = voiceCount_ == 1 ? partLength_ : std::max(0, partLeft_ - 1);
    for (int i = 0; i < kMostVoices; ++i) {
        Voice& voice = voices_[static_cast<std::size_t>(i)];
        if (!voice.sounds) {
            for (auto& lfo : voice.lfo) lfo.reset();
            voice.drift.reset();
            voice.delay[Left].to = 0;
            continue;
        }
        const bool isFresh = voice.delay[Left].to == 0 || isFresh_;
        const double base = delay * kDelayShares[static_cast<std::size_t>(i)],
                     room = std::max(0.0, base - nearest);
        const double kept = depth + drift > room ? room / (depth + drift) : 1;
        kept_ = std::min(kept_, kept);
        const double wander =
            drift > 0 ? drift * voice.drift.next(driftWave_, driftPlace * (1 + 0.13 * i),
                                                 static_cast<std::uint32_t>(i + 1),
                                                 driftCycle_.hasJumped())
                      : 0;
        const double ahead = double(i) / voiceCount_;
        const bool jumps = ahead != voice.ahead;
        voice.ahead = ahead;
        const auto delayAt = [&](Phase phase, double further) {
            const double value = lfo_.read(voice.lfo[phase], ahead + further, 0, jumps);
            const double seconds = base + kept * (depth * value + wander);
            return MovingDelay::of(
                std::clamp(seconds * sampleRate_, kNearest, kLongest * sampleRate_ + kSubBlock));
        };
        const auto left = delayAt(Left, 0);
        auto right = left;
        if (i == 0 && partLeft_ > 0)
            right = delayAt(Right, voiceCount_ == 1 ? stereo : 0);
        else if (i == 0)
            voice.lfo[Right] = voice.lfo[Left];
        voice.delay[Left] = {isFresh ? left : voice.delay[Left].to, left};
        voice.delay[Right] = {isFresh ? right : voice.delay[Right].to, right};
    }
}

/// The low-pass whose output the mix leaves alone.
template <typename T> void ChorusCore<T>::moveBass() noexcept
{
    hasBass_ = bassShare_.target() != 0 || bassShare_.current() != 0;
    if (!isFresh_ && !bassShare_.isGliding() && !bassOctave_.isGliding()) return;
    const bool comesIn = bassShare_.current() == 0;
    if (comesIn) {
        bassOctave_.snap();
        bass_.reset();
    }
    bassOctave_.next(kWholeSubBlock);
    bassShare_.next(kWholeSubBlock);
    const double g = warpedFrequency(std::exp2(bassOctave_.current()), sampleRate_);
    const auto low = SectionCoefficients<T>::of(g, 1 / kButterworthQ, {0, 0, bassShare_.current()});
    if (isFresh_)
        bass_.set(0, low);
    else
        bass_.glide(0, low);
}

template <typename T>
void ChorusCore<T>::processSlice(const AudioBlock<T>& part, int offset) noexcept
{
    const int n = part.frames;
    dryWet_.next(part);
    if (part.begins()) begin(offset);
    for (std::size_t c = 0; c < sides_.size(); ++c) {
        T* const x = wets_[c] = part[static_cast<int>(c)];
        sanitise(x, n, kLoudestSignal);
        dry_[c] = dryWet_.keep(static_cast<int>(c), x, n);
        feeds_[c] = line_.incoming(static_cast<int>(c));
        vec::copy(feeds_[c], x, n);
        if (!hasBass_) vec::clear(x, n);
    }
    cuts_.process(feeds_.data(), part);
    line_.advance(n);
    if (hasBass_) bass_.process(wets_.data(), part);
    addVoices(part);
    for (std::size_t c = 0; c < sides_.size(); ++c) dryWet_.mix(wets_[c], dry_[c], part);
}

template <typename T> void ChorusCore<T>::addVoices(const AudioBlock<T>& part) noexcept
{
    for (std::size_t c = 0; c < sides_.size(); ++c) {
        const Phase phase = sides_[c] == ChannelSide::Right ? Right : Left;
        std::array<typename FarrowLine<T>::Tap, kMostVoices> taps;
        std::size_t count = 0;
        for (const auto& voice : voices_)
            if (voice.sounds)
                taps[count++] = {static_cast<int>(c),
                                 voice.delay[phase].taps(part.phase, part.frames), wets_[c],
                                 voice.gain[static_cast<std::size_t>(sides_[c])].of(part)};
        line_.read({taps.data(), count}, part.frames);
    }
}

template <typename T> void ChorusCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publishFamily(kVoiceDelay, kMostVoices, [this](int i) {
        const Voice& voice = voices_[static_cast<std::size_t>(i)];
        if (!voice.sounds) return 0.0f;
        const double samples = double(voice.delay[Left].to) / double(TapGlide::kOne);
        return static_cast<float>(std::min(1000 * samples / sampleRate_, 1000 * kLongest));
    });
    const double cents = 1200 * std::log2(1 + kept_ * depth_.current() * slope());
    meters.publish("Eff "_tag, static_cast<float>(std::clamp(cents, 0.0, double(kMostDetune))));
    publishLfoPhase(meters, lfo_.place());
}

template class ChorusCore<float>;
template class ChorusCore<double>;

ChorusAlgorithm::ChorusAlgorithm() : PrecisionAlgorithm(kParameters) {}

ChorusComponent::ChorusComponent(ChorusAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "Chorus", .kind = "chorus"})
{}

void ChorusComponent::changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kLfoSync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
}

Delays ChorusComponent::delays(double sampleRate) const noexcept
{
    const double lowCut = value("lowcut");
    double seconds = kLongest;
    if (!isNeutral(value("lowcut"), kLowCutOff)) seconds += 3 / lowCut;
    return {0, static_cast<std::uint32_t>(seconds * sampleRate)};
}

}  // namespace quillworks
