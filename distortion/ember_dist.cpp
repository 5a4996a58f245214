// SPDX-License-Identifier: ISC
#include "distortion/ember_dist.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/one_pole_section.h"
#include "dsp/sanitise.h"

namespace quillworks {
namespace {

using Core = EmberDistCore<float>;
using S = EmberDistSettings;
using namespace conversion;

constexpr float kTightOff = 20, kHighCutOff = 20000;  // Hz
/// Of full scale, at both ends of the parameter: a curve as lopsided as makes sense.
constexpr float kMostBias = 0.8f;
constexpr double kTiltCorner = 800;       // Hz
constexpr double kTiltDb = 6;             // on either side of it
constexpr double kGainTolerance = 48e-6;  // dB

constexpr Tag kDynamicsGain = "DyGn"_tag;
constexpr const char* kCharacters[] = {"Warm", "Soft", "Hard", "Tube", "Fold"};
static_assert(std::size(kCharacters) == kSaturations);
constexpr const char* kDrive = "Drive";
constexpr const char* kColour = "Colour";
constexpr const char* kOutput = "Output";

float bias(float percent)
{
    return percent * 0.01f * kMostBias;
}

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key         tag           title          kind          min    max    def    unit        field           dirty           forward
    {"drive",      "Driv"_tag,   "Drive",       Kind::Float,  0,     48,    12,    "Media.DB", &S::drive,      Core::Drive,    asIs,
        {.group = kDrive, .help = "How far the signal is driven into the curve.", .flags = VNK::isDecibel}},
    {"character",  "Char"_tag,   "Character",   Kind::List,   0,     4,     0,     "",         &S::character,  Core::Curve,    asIs,
        {.group = kDrive, .help = "The curve: from a soft bend over a hard corner to one that folds back.", .texts = kCharacters}},
    {"bias",       "Bias"_tag,   "Bias",        Kind::Float,  -100,  100,   0,     "%",        &S::bias,       Core::Curve,    bias,
        {.group = kDrive, .help = "Moves the curve off its middle, which adds even harmonics.", .flags = VNK::isBipolar}},
    {"tight",      "Tigt"_tag,   "Tight",       Kind::Float,  20,    1000,  20,    "Hz",       &S::tight,      Core::Filters,  asIs,
        {.group = kColour, .help = "Low cut before the drive: keeps the bass from breaking up.", .curve = &curve::logarithmic, .minText = "Off"}},
    {"hicut",      "Hict"_tag,   "High Cut",    Kind::Float,  1000,  20000, 20000, "Hz",       &S::highCut,    Core::Filters,  asIs,
        {.group = kColour, .help = "Takes the edge off behind the drive.", .curve = &curve::logarithmic, .maxText = "Off"}},
    {"tone",       "Tone"_tag,   "Tone",        Kind::Float,  -100,  100,   0,     "%",        &S::tone,       Core::Tone,     percent,
        {.group = kColour, .help = "Tilts the distorted sound around 800 Hz, to the dark or to the bright.", .flags = VNK::isBipolar}},
    {"dynamics",   "Dyna"_tag,   "Dynamics",    Kind::Float,  0,     100,   0,     "%",        &S::dynamics,   Core::Dynamics, percent,
        {.group = kOutput, .help = "Gives the distorted sound the dynamics of the input back."}},
    {"levelmatch", "LvMt"_tag,   "Level Match", Kind::Toggle, 0,     1,     1,     "",         &S::levelMatch, Core::Curve,    asIs,
        {.group = kDrive, .help = "Keeps the level while Drive is turned.", .shortTitle = "Match"}},
    {"mix",        "Mix "_tag,   "Mix",         Kind::Float,  0,     100,   100,   "%",        &S::mix,        Core::Mix,      percent,
        {.group = kOutput, .help = "From the input to the distorted sound alone."}},
    {"output",     "OutG"_tag,   "Output",      Kind::Float,  -24,   24,    0,     "Media.DB", &S::output,     Core::Output,   asIs,
        {.group = kOutput, .help = "Level behind the mix.", .flags = kGainFlags}},
    {"bypass",     "Bypa"_tag,   "Bypass",      Kind::Bypass},
    PeakLevels<float>::inputRow<S>(),
    PeakLevels<float>::outputRow<S>(),
    {"dynamicsgain", kDynamicsGain, "Dynamics Gain", Kind::Reading, -24, 24, 0,   "dB"},
};
// clang-format on

}  // namespace

template <typename T> void EmberDistCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    const double halfLife = 2 * glideSubBlocks(sampleRate_);
    lowCut_.prepare({.lowOrder = 2, .highOrder = 0, .lowEnd = kTightOff}, spec.channels,
                    sampleRate_, halfLife);
    highCut_.prepare({.lowOrder = 0, .highOrder = 2, .highEnd = kHighCutOff}, spec.channels,
                     sampleRate_, halfLife);
    saturator_.prepare(sampleRate_, spec.channels, halfLife);
    tone_.prepareHalfLife(halfLife);
    tone_.setTolerance(kGainTolerance);
    tilt_.prepare(1, spec.channels);
    restorer_.prepare(sampleRate_, spec.channels, halfLife);
    dryWet_.prepareHalfLife(halfLife);
    dryWet_.prepareDry(spec.channels, Saturator<T>::latencyAt(sampleRate_));
    output_.prepare(halfLife, kGainTolerance);
    const auto channels = static_cast<std::size_t>(spec.channels);
    undelayed_.resize(channels * kSubBlock);
    wet_.resize(channels);
    dry_.resize(channels);
}

template <typename T> void EmberDistCore<T>::reset() noexcept
{
    lowCut_.reset();
    highCut_.reset();
    saturator_.reset();
    tone_.snap();
    tilt_.reset();
    isTilted_ = false;
    restorer_.reset();
    dryWet_.reset();
    output_.snap();
}

template <typename T> void EmberDistCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Drive) saturator_.setDrive(double(s.drive));
    if (dirty & Curve) {
        saturator_.setCurve(static_cast<Saturation>(static_cast<int>(s.character)));
        saturator_.setBias(double(s.bias));
        saturator_.setLevelMatch(s.levelMatch != 0);
    }
    if (dirty & Filters) {
        lowCut_.tune(s.tight, kHighCutOff);
        highCut_.tune(kTightOff, s.highCut);
    }
    if (dirty & Tone) tone_.target(-kTiltDb * double(s.tone));
    if (dirty & Dynamics) restorer_.setAmount(double(s.dynamics));
    if (dirty & Mix) dryWet_.target(T(s.mix));
    if (dirty & Output) output_.target(double(s.output));
}

template <typename T> void EmberDistCore<T>::process(const AudioBlock<T>& block) noexcept
{
    peaks_.begin();
    forEachSubBlock(block, [this](const AudioBlock<T>& part) { processSlice(part); });
}

/// The tone control.
template <typename T> void EmberDistCore<T>::tilt(GridSlice slice) noexcept
{
    if (slice.begins()) {
        const bool wasTilted = isTilted_;
        const auto gain = tone_.next(kWholeSubBlock);
        isTilted_ = gain.from != 0 || gain.to != 0;
        if (!isTilted_) return;
        if (!wasTilted) tilt_.reset();
        const auto at = [this](double db) {
            return asSection(OnePoleCoefficients<T>::tilt(kTiltCorner, dbToGain(db), sampleRate_));
        };
        if (!wasTilted) tilt_.set(0, at(gain.from));
        if (!gain.isConstant()) tilt_.glide(0, at(gain.to));
    }
    if (isTilted_) tilt_.process(wet_.data(), slice);
}

template <typename T> void EmberDistCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    dryWet_.next(part);
    output_.follow(part, dbToGain<double>);
    for (int c = 0; c < part.channels; ++c) {
        const auto at = static_cast<std::size_t>(c);
        T* const x = part[c];
        sanitise(x, n, kLoudestSignal);
        peaks_.measureInput(x, n);
        wet_[at] = x;
        dry_[at] = dryWet_.keep(c, x, n);
        if (!dry_[at]) dry_[at] = std::copy_n(x, n, &undelayed_[at * kSubBlock]) - n;
    }
    lowCut_.process(wet_.data(), part);
    saturator_.process(wet_.data(), part);
    highCut_.process(wet_.data(), part);
    tilt(part);
    restorer_.process(dry_.data(), wet_.data(), part);
    for (int c = 0; c < part.channels; ++c) {
        T* const x = part[c];
        dryWet_.mix(x, dry_[static_cast<std::size_t>(c)], part);
        output_.scale(x, part);
        peaks_.measureOutput(x, n);
    }
}

template <typename T> void EmberDistCore<T>::publish(MeterSlots& meters) noexcept
{
    peaks_.publish(meters);
    meters.publish(kDynamicsGain, static_cast<float>(restorer_.gainDb()));
}

template class EmberDistCore<float>;
template class EmberDistCore<double>;

SimpleDistAlgorithm::SimpleDistAlgorithm() : PrecisionAlgorithm(kParameters) {}

SimpleDistComponent::SimpleDistComponent(SimpleDistAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "SimpleDist"})
{}

Delays SimpleDistComponent::delays(double sampleRate) const noexcept
{
    const bool makesConstant =
        value("bias") != 0 || static_cast<Saturation>(int(value("character"))) == Saturation::Tube;
    return {static_cast<std::uint32_t>(Saturator<float>::latencyAt(sampleRate)),
            Saturator<float>::tailAt(sampleRate, makesConstant)};
}

}  // namespace quillworks
