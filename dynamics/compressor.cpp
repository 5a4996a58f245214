// SPDX-License-Identifier: ISC
#include "dynamics/compressor.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "dsp/fast_log.h"
#include "dsp/sanitise.h"
#include "framework/sidechain_source.h"

namespace quillworks {
namespace {

using Core = CompressorCore<float>;
using S = CompressorSettings;
using namespace conversion;

constexpr int kMaxChannels = VNK::kMaxChannels;

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key                  tag          title                kind           min    max    def   unit                  field          dirty                  forward        notes
    {"ratio",             "Rati"_tag, "Ratio",             Kind::Float,      1,    20,     1, "Media.Ratio",        &S::slope,      Core::Curve,           ratioToSlope,
        {.group = "Curve", .help = "How many dB the input must rise above the threshold for the output to rise by one.", .curve = &curve::middleAt<2000>}},
    {"threshold",         "Thre"_tag, "Threshold",         Kind::Float,    -48,     0,     0, "Media.DB",           &S::threshold,  Core::Curve,           asIs,
        {.group = "Curve", .help = "Level above which the signal is reduced.", .shortTitle = "Thresh", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"knee",              "Knee"_tag, "Knee",              Kind::Float,   0.1f,    20,     6, "dB",                 &S::knee,       Core::Curve,           asIs,
        {.group = "Curve", .help = "How far below and above the threshold the curve bends; small is a hard corner.", .flags = VNK::isDecibel}},
    {"auto",              "AutG"_tag, "Auto Gain",         Kind::Toggle,     0,     1,     0, "",                   &S::autoGain,   Core::Curve,           asIs,
        {.group = "Gain / Envelope", .help = "Makes up for the reduction by ratio and threshold instead of Gain.", .shortTitle = "Auto"}},
    {"gain",              "Gain"_tag, "Gain",              Kind::Float,      0,    48,     0, "Media.DB",           &S::gain,       Core::Curve,           asIs,
        {.group = "Gain / Envelope", .help = "Make-up gain after the compression.", .curve = &curve::decibel, .drivenBy = "auto", .flags = kGainFlags}},
    {"ingain",            "Inpt"_tag, "Input",             Kind::Float,    -12,    24,     0, "Media.DB",           &S::inputGain,  Core::Gains,           decibels,
        {.group = "Gain / Envelope", .help = "Gain in front of the compression.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"autospeed",         "AutS"_tag, "Auto Speed",        Kind::Toggle,     0,     1,     0, "",                   &S::autoSpeed,  Core::Times,           asIs,
        {.group = "Gain / Envelope", .help = "Follows the programme slowly by itself instead of Attack and Release."}},
    {"attack",            "Atck"_tag, "Attack",            Kind::Float,   0.1f,   400,    15, "Media.Milliseconds", &S::attack,     Core::Times,           milliseconds,
        {.group = "Gain / Envelope", .help = "Time in which the reduction sets in.", .curve = &curve::logarithmic, .drivenBy = "autospeed"}},
    {"release",           "Rels"_tag, "Release",           Kind::Float,      1,  2000,   120, "Media.Milliseconds", &S::release,    Core::Times,           milliseconds,
        {.group = "Gain / Envelope", .help = "Time in which the reduction goes back.", .curve = &curve::logarithmic, .drivenBy = "autospeed"}},
    {"adaptive",          "Dual"_tag, "Adaptive Speed",    Kind::Toggle,     0,     1,     1, "",                   &S::adaptive,   Core::Times,           asIs,
        {.group = "Gain / Envelope", .help = "Detects lows and highs apart, each at its own pace: less pumping and less distortion of the bass.", .shortTitle = "Adaptive"}},
    {"internalsidechain", "SExt"_tag, "Sidechain Filter",  Kind::Toggle,     0,     1,     0, "",                   &S::filter,     Core::Switches,        asIs,
        {.group = "Sidechain Filter", .help = "Puts the filter in front of the detector.", .shortTitle = "Filter"}},
    {"sidechainlisten",   "SCls"_tag, "Sidechain Listen",  Kind::Toggle,     0,     1,     0, "",                   &S::listen,     Core::Switches,        asIs,
        {.group = "Sidechain Filter", .help = "Lets you hear what the detector hears, while the filter is on.", .shortTitle = "Listen"}},
    {"sidechainfreqlow",  "SCFL"_tag, "Sidechain LC-Freq", Kind::Float,     20, 16000,    20, "Hz",                 &S::lowCut,     Core::Filters,         asIs,
        {.group = "Sidechain Filter", .help = "Frequencies below do not trigger the compression.", .shortTitle = "Low Cut", .curve = &curve::logarithmic, .minText = "Off"}},
    {"sidechainfreqhigh", "SCFH"_tag, "Sidechain HC-Freq", Kind::Float,     20, 16000, 16000, "Hz",                 &S::highCut,    Core::Filters,         asIs,
        {.group = "Sidechain Filter", .help = "Frequencies above do not trigger the compression.", .shortTitle = "High Cut", .curve = &curve::logarithmic, .maxText = "Off"}},
    {"swapfreqs",         "SCSw"_tag, "Swap Frequencies",  Kind::Toggle,     0,     1,     0, "",                   nullptr,        0,                     asIs,
        {.group = "Sidechain Filter", .help = "Exchanges the two frequencies: a band is rejected instead of passed.", .shortTitle = "Swap"}},
    {"linked",            "Link"_tag, "Link Channels",     Kind::Toggle,     0,     1,     1, "",                   &S::linked,     Core::Switches,        asIs,
        {.group = "Sidechain Filter", .help = "Reduces all channels alike, so that the stereo image stays.", .shortTitle = "Link"}},
    {"lookAhead",         "LkAh"_tag, "LookAhead",         Kind::Toggle,     0,     1,     1, "",                   &S::lookAhead,  Core::LookAheadSwitch, asIs,
        {.group = "Gain / Envelope", .help = "Delays the audio by 2 ms so that the reduction comes in time for sharp attacks."}},
    {"reduction",         "Redu"_tag, "Reduction",         Kind::Meter,    -48,     0,   -48, "dB"},
    {"minreduction",      "MnRd"_tag, "Min Reduction",     Kind::Meter,   -144,     0,     0, "dB"},
    {"resetmin",          "RsMR"_tag, "Reset Min",         Kind::Trigger,    0,     1,     0, "",                   nullptr,        Core::ResetMinimum,    asIs,
        {.help = "Resets the deepest gain reduction."}},
    {"inlevelavg",        "ILvA"_tag, "In Level Avg",      Kind::Meter,   -120,    20,  -120, "dB"},
    {"mix",               "Mix "_tag, "Mix",               Kind::Float,      0,     1,     1, "",                   &S::mix,        Core::Gains,           asIs,
        {.group = "Gain / Envelope", .help = "Share of the compressed signal; below 1 the untouched signal is added."}},
    {"bypass",            "Bypa"_tag, "Bypass",            Kind::Bypass},
    {"editor",            "Edit"_tag, "Editor",            Kind::Command,    0,     1,     0, "",                   &S::editorOpen, Core::Editor},
    levelRow<S>(kInputFast),
    levelRow<S>(kInputSlow),
    levelRow<S>(kOutputFast),
    levelRow<S>(kOutputSlow),
};
// clang-format on

/// What a reduction reads as on the meter.
float reductionReading(double reduction)
{
    return static_cast<float>(reduction > -kSilenceDb ? kSilenceDb : 0 - reduction);
}

}  // namespace

float autoMakeUp(float slope, float threshold) noexcept
{
    const double s = slope;
    return static_cast<float>(std::clamp(
        16.608 * s - 7.3664 - 16.376 * s * s - 0.70248 * s * double(threshold), 0.0, 35.0));
}

template <typename T> void CompressorCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    const int lookAhead = lookAheadFrames(sampleRate_);
    const int hold = static_cast<int>(sampleRate_ * 0.002);
    channels_.resize(static_cast<std::size_t>(spec.channels));
    for (auto& ch : channels_) {
        ch.detector.prepare(sampleRate_);
        ch.computer.prepare(hold);
        ch.lookAhead.prepare(lookAhead);
    }
    filter_.prepare(sampleRate_, spec.channels);
    levels_.prepare(spec);
    inputGain_.prepareHalfLife(50 * glideSubBlocks(sampleRate_));
    mixer_.prepare(sampleRate_, 0.03);
    mixer_.prepareDry(spec.channels, lookAhead);
}

template <typename T> void CompressorCore<T>::reset() noexcept
{
    inputGain_.snap();
    mixer_.reset();
    filter_.reset();
    levels_.reset();
    autoSpeedNow_ = k_.autoSpeed;
    isFading_ = false;
    for (auto& ch : channels_) {
        ch.detector.reset();
        ch.computer.reset();
        ch.computer.takeLargest();  // what was before is no longer measured
        ch.inputGain.snap(inputGain_.current());
        ch.lookAhead.reset();
    }
}

template <typename T> void CompressorCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Curve) {
        k_.curve = CompressionCurve::of(s.threshold, s.slope, s.knee);
        k_.makeUpDb = double(s.autoGain != 0 ? autoMakeUp(s.slope, s.threshold) : s.gain);
    }
    if (dirty & Times) {
        setAdaptive(s.adaptive != 0);
        k_.autoSpeed = s.autoSpeed != 0;
        const double release = k_.autoSpeed ? 20 : s.release;  // seconds
        for (auto& ch : channels_) ch.detector.setTimes(sampleRate_, s.attack, release);
        // At auto speed the follower's own slowness is all the release there is.
        k_.gainRelease = k_.autoSpeed ? 0 : followerCoefficient(sampleRate_, 4 * release);
    }
    if (dirty & Filters) filter_.tune(s.lowCut, s.highCut);
    if (dirty & Switches) {
        k_.listen = s.listen != 0;
        setFilter(s.filter != 0);
        setLinked(s.linked != 0);
    }
    if (dirty & Gains) {
        inputGain_.target(T(s.inputGain));
        mixer_.target(T(s.mix));
    }
    if (dirty & LookAheadSwitch) {
        k_.lookAhead = s.lookAhead != 0;
        mixer_.setDelay(k_.lookAhead ? lookAheadFrames(sampleRate_) : 0);
        for (auto& ch : channels_) {
            ch.lookAhead.reset();
            ch.computer.setHold(k_.lookAhead);
        }
    }
    if (dirty & Editor) levels_.setOpen(s.editorOpen != 0);
    if (dirty & ResetMinimum) {
        minimum_ = 0;
        for (auto& ch : channels_) ch.computer.takeLargest();
    }
}

// A path that a switch brings in begins with what is heard now, not with what it held when it went
// off: a loud passage of long ago would reduce a quiet one.

template <typename T> void CompressorCore<T>::setAdaptive(bool isAdaptive) noexcept
{
    if (std::exchange(k_.adaptive, isAdaptive) == isAdaptive) return;
    for (auto& ch : channels_) ch.detector.clearBands();
}

template <typename T> void CompressorCore<T>::setFilter(bool isOn) noexcept
{
    if (std::exchange(k_.filter, isOn) != isOn) filter_.reset();
}

template <typename T> void CompressorCore<T>::setLinked(bool isLinked) noexcept
{
    if (std::exchange(k_.linked, isLinked) == isLinked || isLinked) return;
    filter_.spread();
    for (auto& ch : channels_) {
        if (&ch == &channels_.front()) continue;
        ch.detector = channels_.front().detector;
        ch.computer.takeOver(channels_.front().computer);
    }
}

template <typename T> void CompressorCore<T>::process(const AudioBlock<T>& block) noexcept
{
    // Another key: what the filters of this one have heard is past.
    if (std::exchange(keyChannels_, block.sideChainChannels) != block.sideChainChannels)
        filter_.reset();
    levels_.around(
        block, [](T* x, int n) { sanitise(x, n); },
        [this](const AudioBlock<T>& piece) {
            forEachSubBlock(piece, [this](const AudioBlock<T>& part) { processSlice(part); });
        });
    const bool both = !isLinked() && channels_.size() > 1;
    for (std::size_t c = 0; c < (both ? 2u : 1u); ++c)
        minimum_ = std::max(minimum_, channels_[c].computer.takeLargest());
}

template <typename T> void CompressorCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    const T* dry[kMaxChannels];

    mixer_.next(part);
    for (int c = 0; c < part.channels; ++c) dry[c] = mixer_.keep(c, part[c], n);
    applyInputGain(part);

    filter_.next(part);
    if (part.begins()) {
        isFading_ = autoSpeedNow_ != k_.autoSpeed;
        autoSpeedNow_ = k_.autoSpeed;
        if (isFading_)
            for (auto& ch : channels_) ch.detector.start(speedNow());
    }
    const bool listens = k_.filter && k_.listen;
    T gain[kSubBlock];
    double key[kSubBlock];
    bool isConstant = false;
    for (int c = 0; c < part.channels; ++c) {
        auto& ch = channels_[static_cast<std::size_t>(c)];
        T* const x = part[c];
        if (c == 0 || !isLinked()) {
            takeKey(key, part, c);
            if (k_.filter) filter_.run(c, key, part);
            isConstant = detect(ch, key, gain, part);
        }
        if (listens) {
            for (int i = 0; i < n; ++i) x[i] = T(key[i]);
            if (k_.lookAhead) ch.lookAhead.delay(x, gain[n - 1], n);
        } else if (k_.lookAhead) {
            ch.lookAhead.run(x, gain, isConstant, n);
        } else {
            vec::mulInplace(x, gain, n);
        }
    }
    for (int c = 0; c < part.channels; ++c) mixer_.mix(part[c], dry[c], part);
}

template <typename T> void CompressorCore<T>::applyInputGain(const AudioBlock<T>& part) noexcept
{
    inputGain_.next(part);
    const T gain = inputGain_.current();
    for (int c = 0; c < part.channels; ++c)
        channels_[static_cast<std::size_t>(c)].inputGain.run(part[c], gain, part);
}

template <typename T>
void CompressorCore<T>::takeKey(double* key, const AudioBlock<T>& part, int c) const noexcept
{
    if (part.sideChainChannels == 0)
        return isLinked() ? takeMean(key, part) : takeChannel(key, part[c], part.frames);
    // Linked, a single channel too is keyed by all of the bus.
    if (!k_.linked && part.sideChainChannels >= part.channels)
        takeBusChannel(key, part, c);
    else
        takeBusMean(key, part);
}

/// Gains for a key; true if they are all the same.
template <typename T>
bool CompressorCore<T>::detect(Channel& ch, const double* key, T* gain, GridSlice slice) noexcept
{
    const int n = slice.frames;
    double level[kSubBlock];
    if (isFading_) {
        double timed[kSubBlock], automatic[kSubBlock];
        ch.detector.runBoth(key, timed, automatic, n, k_.adaptive);
        for (int i = 0; i < n; ++i) {
            const double rise = double(slice.phase + i + 1) / kSubBlock;
            const double w = autoSpeedNow_ ? rise : 1 - rise;
            level[i] = timed[i] + (automatic[i] - timed[i]) * w;
        }
    } else {
        ch.detector.run(key, level, n, k_.adaptive, speedNow());
    }
    return ch.computer.run(level, gain, k_.curve, k_.gainRelease, k_.makeUpDb, slice);
}

template <typename T> void CompressorCore<T>::publish(MeterSlots& meters) noexcept
{
    const bool both = !isLinked() && channels_.size() > 1;
    double reduction = channels_[0].computer.reduction();
    double level = channels_[0].detector.inputLevel();
    if (both) {
        reduction = std::max(reduction, channels_[1].computer.reduction());
        level += channels_[1].detector.inputLevel();
    }
    meters.publish("Redu"_tag, reductionReading(reduction));
    meters.publish("MnRd"_tag, reductionReading(minimum_));
    meters.publish("ILvA"_tag, fastDecibels(std::max(static_cast<float>(std::sqrt(level)), 1e-6f)));
    levels_.publish(meters);
}

template class CompressorCore<float>;
template class CompressorCore<double>;

CompressorAlgorithm::CompressorAlgorithm() : PrecisionAlgorithm(kParameters) {}

CompressorComponent::CompressorComponent(CompressorAlgorithm& algorithm)
    : SidechainComponent(
          algorithm, {.viewPrefix = "Compressor", .algorithmVersion = 2, .kind = "compressor"},
          {.lowCut = "sidechainfreqlow", .highCut = "sidechainfreqhigh", .lookAhead = "lookAhead"})
{}

void CompressorComponent::migrate(StoredState& state) const
{
    if (state.algorithmVersion.value_or(1) >= 2) return;
    // Auto Gain once worked on the ratio where it now works on the slope, and at twice the amount:
    // what such a preset was mixed with is kept as a gain of its own.
    const float* const on = state.find("auto");
    const float* const ratio = state.find("ratio");
    const float* const threshold = state.find("threshold");
    if (!on || *on == 0 || !ratio || !threshold || !state.find("gain")) return;
    state.set("gain", autoMakeUp(*ratio, *threshold) * 0.5f);
    state.set("auto", 0);
}

}  // namespace quillworks
