// SPDX-License-Identifier: ISC
#include "dynamics/channel_strip.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/neutral.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = SimpleStripCore<float>;
using S = SimpleStripSettings;
using namespace conversion;

constexpr int kMaxChannels = VNK::kMaxChannels;
constexpr double kFadeSeconds = 0.01;
constexpr double kGainTolerance = 0.00868;                  // dB: 0.1 %
constexpr double kKnee = 3;                                 // dB, half-width
constexpr float kCutOff = 20;                               // Hz, where the low cut is off
constexpr float kLowestReduction = -48, kLowestGate = -60;  // dB, of the meters

constexpr const char* kSlopeTexts[] = {"12 dB/oct", "24 dB/oct"};
constexpr const char* kOrderTexts[] = {"EQ First", "Dynamics First"};

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key              tag          title               kind           min    max    def   unit                  field                 dirty             forward        notes
    {"ingain",        "InGn"_tag, "Input",            Kind::Float,    -24,    24,     0, "Media.DB",           &S::inputGain,        Core::Gains,      asIs,
        {.group = "Input", .help = "Gain ahead of everything.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"polarity",      "Pola"_tag, "Polarity",         Kind::Toggle,     0,     1,     0, "",                   &S::polarity,         Core::Polarity,   asIs,
        {.group = "Input", .help = "Turns the signal over."}},
    {"lowcut",        "LCFr"_tag, "Low Cut",          Kind::Float,     20,  1000,    20, "Hz",                 &S::lowCut,           Core::Cut,        asIs,
        {.group = "Input", .help = "Takes away rumble below this frequency, ahead of all that follows.", .curve = &curve::logarithmic, .minText = "Off"}},
    {"lowcutslope",   "LCSl"_tag, "Slope",            Kind::List,       0,     1,     0, "",                   &S::lowCutSlope,      Core::Cut,        asIs,
        {.group = "Input", .help = "Steepness of the low cut.", .texts = kSlopeTexts}},
    {"eqon",          "EqOn"_tag, "EQ",               Kind::Toggle,     0,     1,     1, "",                   &S::equaliserOn,      Core::Bands,      asIs,
        {.group = "EQ", .help = "Switches the four bands."}},
    {"lowfreq",       "LoFr"_tag, "Low Freq",         Kind::Float,     20,   800,   120, "Hz",                 &S::lowFrequency,     Core::Bands,      asIs,
        {.group = "EQ", .help = "Frequency of the low band.", .curve = &curve::logarithmic}},
    {"lowgain",       "LoGn"_tag, "Low Gain",         Kind::Float,    -18,    18,     0, "dB",                 &S::lowGain,          Core::Bands,      asIs,
        {.group = "EQ", .help = "Gain of the low band.", .flags = kGainFlags}},
    {"lowbell",       "LoBl"_tag, "Low Bell",         Kind::Toggle,     0,     1,     0, "",                   &S::lowBell,          Core::Path,       asIs,
        {.group = "EQ", .help = "Makes the low band a bell instead of a shelf."}},
    {"lmfreq",        "LMFr"_tag, "Low Mid Freq",     Kind::Float,     80,  4000,   400, "Hz",                 &S::lowMidFrequency,  Core::Bands,      asIs,
        {.group = "EQ", .help = "Frequency of the lower bell.", .shortTitle = "LM Freq", .curve = &curve::logarithmic}},
    {"lmgain",        "LMGn"_tag, "Low Mid Gain",     Kind::Float,    -18,    18,     0, "dB",                 &S::lowMidGain,       Core::Bands,      asIs,
        {.group = "EQ", .help = "Gain of the lower bell.", .shortTitle = "LM Gain", .flags = kGainFlags}},
    {"lmq",           "LMQ "_tag, "Low Mid Q",        Kind::Float,   0.3f,     8,  0.9f, "",                   &S::lowMidQ,          Core::Bands,      asIs,
        {.group = "EQ", .help = "Narrowness of the lower bell.", .shortTitle = "LM Q", .curve = &curve::logarithmic}},
    {"hmfreq",        "HMFr"_tag, "High Mid Freq",    Kind::Float,    400, 16000,  2500, "Hz",                 &S::highMidFrequency, Core::Bands,      asIs,
        {.group = "EQ", .help = "Frequency of the upper bell.", .shortTitle = "HM Freq", .curve = &curve::logarithmic}},
    {"hmgain",        "HMGn"_tag, "High Mid Gain",    Kind::Float,    -18,    18,     0, "dB",                 &S::highMidGain,      Core::Bands,      asIs,
        {.group = "EQ", .help = "Gain of the upper bell.", .shortTitle = "HM Gain", .flags = kGainFlags}},
    {"hmq",           "HMQ "_tag, "High Mid Q",       Kind::Float,   0.3f,     8,  0.9f, "",                   &S::highMidQ,         Core::Bands,      asIs,
        {.group = "EQ", .help = "Narrowness of the upper bell.", .shortTitle = "HM Q", .curve = &curve::logarithmic}},
    {"highfreq",      "HiFr"_tag, "High Freq",        Kind::Float,   1000, 16000,  8000, "Hz",                 &S::highFrequency,    Core::Bands,      asIs,
        {.group = "EQ", .help = "Frequency of the high band.", .curve = &curve::logarithmic}},
    {"highgain",      "HiGn"_tag, "High Gain",        Kind::Float,    -18,    18,     0, "dB",                 &S::highGain,         Core::Bands,      asIs,
        {.group = "EQ", .help = "Gain of the high band.", .flags = kGainFlags}},
    {"highbell",      "HiBl"_tag, "High Bell",        Kind::Toggle,     0,     1,     0, "",                   &S::highBell,         Core::Path,       asIs,
        {.group = "EQ", .help = "Makes the high band a bell instead of a shelf."}},
    {"order",         "Ordr"_tag, "Order",            Kind::List,       0,     1,     0, "",                   &S::order,            Core::Path,       asIs,
        {.group = "EQ", .help = "Whether the bands come ahead of gate and compressor or behind them; the low cut is always first.", .texts = kOrderTexts}},
    {"gateon",        "GtOn"_tag, "Gate",             Kind::Toggle,     0,     1,     0, "",                   &S::gateOn,           Core::Gate,       asIs,
        {.group = "Gate", .help = "Switches the gate."}},
    {"gatethreshold", "GtTh"_tag, "Gate Threshold",   Kind::Float,    -80,     0,   -50, "Media.DB",           &S::gateThreshold,    Core::Gate,       asIs,
        {.group = "Gate", .help = "Level at which the gate opens; it closes 6 dB below.", .shortTitle = "Thresh", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"gaterange",     "GtRg"_tag, "Gate Range",       Kind::Float,    -60,     0,   -18, "Media.DB",           &S::gateRange,        Core::Gate,       asIs,
        {.group = "Gate", .help = "Gain while the gate is closed.", .shortTitle = "Range", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"gaterelease",   "GtRl"_tag, "Gate Release",     Kind::Float,     20,  2000,   150, "Media.Milliseconds", &S::gateRelease,      Core::Gate,       milliseconds,
        {.group = "Gate", .help = "Time in which the gate closes.", .shortTitle = "Release", .curve = &curve::logarithmic}},
    {"compon",        "CmOn"_tag, "Compressor",       Kind::Toggle,     0,     1,     0, "",                   &S::compressorOn,     Core::Compressor, asIs,
        {.group = "Compressor", .help = "Switches the compressor and its make-up."}},
    {"threshold",     "Thre"_tag, "Threshold",        Kind::Float,    -60,     0,   -20, "Media.DB",           &S::threshold,        Core::Compressor, asIs,
        {.group = "Compressor", .help = "Level above which the compressor works.", .shortTitle = "Thresh", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"ratio",         "Rati"_tag, "Ratio",            Kind::Float,      1,    20,     3, "Media.Ratio",        &S::slope,            Core::Compressor, ratioToSlope,
        {.group = "Compressor", .help = "How many dB more come in for each dB more that goes out.", .curve = &curve::middleAt<2000>}},
    {"attack",        "Atck"_tag, "Attack",           Kind::Float,   0.1f,   200,    10, "Media.Milliseconds", &S::attack,           Core::Compressor, milliseconds,
        {.group = "Compressor", .help = "Time in which the reduction follows.", .curve = &curve::logarithmic}},
    {"release",       "Rels"_tag, "Release",          Kind::Float,      5,  2000,   120, "Media.Milliseconds", &S::release,          Core::Compressor, milliseconds,
        {.group = "Compressor", .help = "Time in which the reduction falls; a steady tone stays undistorted however short it is.", .curve = &curve::logarithmic}},
    {"gain",          "Gain"_tag, "Make-up",          Kind::Float,      0,    24,     0, "Media.DB",           &S::makeUp,           Core::Gains,      asIs,
        {.group = "Compressor", .help = "Gain behind the compressor, while it is on.", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"outgain",       "OutG"_tag, "Output",           Kind::Float,    -24,    24,     0, "Media.DB",           &S::outputGain,       Core::Gains,      asIs,
        {.group = "Output", .help = "Gain behind everything.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"reduction",     "Redu"_tag, "Reduction",        Kind::Meter, kLowestReduction, 0, 0, "dB"},
    {"gatereduction", "GtRd"_tag, "Gate Reduction",   Kind::Meter, kLowestGate, 0, 0, "dB"},
    PeakLevels<float>::inputRow<S>(Kind::Meter),
    PeakLevels<float>::outputRow<S>(Kind::Meter),
    {"bypass",        "Bypa"_tag, "Bypass",           Kind::Bypass},
    {"editor",        "Edit"_tag, "Editor",           Kind::Command,    0,     1,     0, "",                   &S::editorOpen,       Core::Editor},
    levelRow<S>(kInputFast),
    levelRow<S>(kInputSlow),
    levelRow<S>(kOutputFast),
    levelRow<S>(kOutputSlow),
};
// clang-format on

StripPath pathOf(const S& s) noexcept
{
    StripPath path;
    if (!isNeutral(s.lowCut, kCutOff)) path.cutOrder = s.lowCutSlope != 0 ? 4 : 2;
    path.lowIsBell = s.lowBell != 0;
    path.highIsBell = s.highBell != 0;
    path.dynamicsFirst = s.order != 0;
    return path;
}

}  // namespace

template <typename T> void SimpleStripCore<T>::prepare(const ProcessSpec& spec)
{
    channelCount_ = spec.channels;
    const double halfLife = glideSubBlocks(spec.sampleRate);
    for (auto* gain : {&inputGain_, &outputGain_, &makeUp_})
        gain->prepare(halfLife, kGainTolerance);
    isTurned_.prepare(spec.sampleRate, kFadeSeconds);
    courses_.prepare(spec.sampleRate);
    path_.prepare(spec.sampleRate, kFadeSeconds);
    for (auto& run : runs_) {
        run.equaliser.prepare(spec.sampleRate, spec.channels);
        run.dynamics.prepare(spec.sampleRate);
    }
    leaving_.resize(static_cast<std::size_t>(spec.channels) * kSubBlock);
    levels_.prepare(spec);
}

template <typename T> void SimpleStripCore<T>::reset() noexcept
{
    for (auto* gain : {&inputGain_, &outputGain_, &makeUp_}) gain->snap();
    isTurned_.snap();
    courses_.snap();
    path_.snap();
    run().equaliser.reset(path_.present());
    run().dynamics.reset();
    levels_.reset();
}

template <typename T> void SimpleStripCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Gains) {
        inputGain_.target(s.inputGain);
        outputGain_.target(s.outputGain);
        makeUp_.target(s.makeUp);
    }
    if (dirty & Polarity) isTurned_.target(s.polarity != 0);
    if (dirty & (Cut | Path)) path_.target(pathOf(s));
    // One that goes out stays where it is.
    if (dirty & Cut && !isNeutral(s.lowCut, kCutOff)) courses_.setCut(s.lowCut);
    if (dirty & Bands) {
        const auto gain = [&](float db) { return s.equaliserOn != 0 ? double(db) : 0.0; };
        courses_.setBand(0, s.lowFrequency, gain(s.lowGain), 1);
        courses_.setBand(1, s.lowMidFrequency, gain(s.lowMidGain), s.lowMidQ);
        courses_.setBand(2, s.highMidFrequency, gain(s.highMidGain), s.highMidQ);
        courses_.setBand(3, s.highFrequency, gain(s.highGain), 1);
    }
    for (auto& run : runs_) {
        auto& dynamics = run.dynamics;
        if (dirty & Cut) dynamics.setLowCut(s.lowCut);
        if (dirty & Gate) dynamics.setGate(s.gateThreshold, s.gateRange, s.gateRelease);
        if (dirty & Compressor)
            dynamics.setCompressor(CompressionCurve::of(s.threshold, s.slope, kKnee), s.attack,
                                   s.release);
        if (dirty & (Gate | Compressor)) dynamics.setSwitches(s.gateOn != 0, s.compressorOn != 0);
    }
    if (dirty & Editor) levels_.setOpen(s.editorOpen != 0);
}

template <typename T> void SimpleStripCore<T>::process(const AudioBlock<T>& block) noexcept
{
    peaks_.begin();
    for (auto& run : runs_) run.dynamics.beginMeters();
    levels_.around(
        block,
        [this](T* x, int n) {
            sanitise(x, n, kLoudestSignal);
            peaks_.measureInput(x, n);
        },
        [this](const AudioBlock<T>& piece) {
            forEachSubBlock(piece, [this](const AudioBlock<T>& part) { processSlice(part); });
            for (int c = 0; c < piece.channels; ++c) peaks_.measureOutput(piece[c], piece.frames);
            if (ring_) ring_->write(piece.channel, piece.frames);
        });
}

template <typename T> void SimpleStripCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    inputGain_.follow(part, dbToGain<double>);
    outputGain_.follow(part, dbToGain<double>);
    makeUp_.follow(part, dbToGain<double>);
    isTurned_.next(part);
    nextPath(part);

    T* x[kMaxChannels];
    for (int c = 0; c < part.channels; ++c) {
        x[c] = part[c];
        inputGain_.scale(x[c], part);
    }
    if (path_.isFading()) {
        T* y[kMaxChannels];
        for (int c = 0; c < part.channels; ++c) {
            y[c] = leaving_.data() + c * kSubBlock;
            vec::copy(y[c], x[c], n);
        }
        process(runs_[1 - present_], path_.leaving(), y, part);
        process(run(), path_.present(), x, part);
        for (int c = 0; c < part.channels; ++c) path_.fade().mix(x[c], y[c], n);
    } else {
        process(run(), path_.present(), x, part);
    }
    for (int c = 0; c < part.channels; ++c) {
        outputGain_.scale(x[c], part);
        turn(x[c], n);
    }
    path_.advance(n);
    isTurned_.advance(n);
}

/// Where a sub-block begins: another path begins, and what glides goes on.
template <typename T> void SimpleStripCore<T>::nextPath(GridSlice slice) noexcept
{
    if (path_.next(slice)) {
        const Run& old = runs_[present_];
        present_ = 1 - present_;
        if (path_.leaving().cutOrder == 0) courses_.startCut();
        run().equaliser.takeOver(old.equaliser, path_.present());
        run().dynamics = old.dynamics;
    }
    if (slice.begins()) {
        courses_.advance();
        run().equaliser.follow(courses_);
        if (path_.isFading()) runs_[1 - present_].equaliser.follow(courses_);
    }
}

template <typename T>
void SimpleStripCore<T>::process(Run& run, const StripPath& path, T* const* x,
                                 GridSlice slice) noexcept
{
    if (path.dynamicsFirst) {
        run.equaliser.processCut(x, slice);
        applyDynamics(run.dynamics, x, slice);
        run.equaliser.processBands(x, slice);
    } else {
        run.equaliser.process(x, slice);
        applyDynamics(run.dynamics, x, slice);
    }
}

template <typename T>
void SimpleStripCore<T>::applyDynamics(StripDynamics<T>& dynamics, T* const* x,
                                       GridSlice slice) noexcept
{
    const int n = slice.frames;
    dynamics.next(slice);
    if (!dynamics.isOn()) return;
    T largest[kSubBlock];
    vec::absCopy(largest, x[0], n);
    for (int c = 1; c < channelCount_; ++c) vec::maxAbs(largest, x[c], n);
    T gain[kSubBlock];
    const bool isConstant = dynamics.run(largest, makeUp_, gain, slice);
    if (!isConstant)
        for (int c = 0; c < channelCount_; ++c) vec::mulInplace(x[c], gain, n);
    else if (gain[0] != 1)
        for (int c = 0; c < channelCount_; ++c) vec::scale(x[c], gain[0], n);
    dynamics.advance(n);
}

/// The polarity: from 1 to -1 in a line.
template <typename T> void SimpleStripCore<T>::turn(T* x, int n) const noexcept
{
    if (!isTurned_.isFading()) {
        if (isTurned_.present()) vec::negateCopy(x, x, n);
        return;
    }
    T weight[kSubBlock];
    isTurned_.fade().weights(weight, n);
    const T to = isTurned_.present() ? T(-1) : T(1);
    for (int i = 0; i < n; ++i) x[i] *= to * (2 * weight[i] - 1);
}

template <typename T> void SimpleStripCore<T>::publish(MeterSlots& meters) noexcept
{
    const auto& dynamics = run().dynamics;
    meters.publish("Redu"_tag,
                   std::max(kLowestReduction, static_cast<float>(0 - dynamics.largestReduction())));
    meters.publish("GtRd"_tag,
                   std::max(kLowestGate, static_cast<float>(gainToDb(dynamics.lowestGate()))));
    peaks_.publish(meters);
    levels_.publish(meters);
}

template class SimpleStripCore<float>;
template class SimpleStripCore<double>;

SimpleStripAlgorithm::SimpleStripAlgorithm() : DisplayAlgorithm(kParameters) {}

SimpleStripComponent::SimpleStripComponent(SimpleStripAlgorithm& algorithm)
    : DisplayComponent(algorithm,
                       {.viewPrefix = "SimpleStrip", .kind = "strip", .copiesAtDefaults = true},
                       {kSpectrumGround})
{}

}  // namespace quillworks
