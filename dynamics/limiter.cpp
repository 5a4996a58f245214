// SPDX-License-Identifier: ISC
#include "dynamics/limiter.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

using Core = LimiterCore<float>;
using S = LimiterSettings;
using namespace conversion;

/// Attack step to seconds.
float attackTime(float step)
{
    return step < 1 ? 0.0001f : step > 1 ? 0.05f : 0.01f;
}

constexpr const char* kAttackTexts[] = {"Fast", "Medium", "Slow"};
constexpr const char* kModeTexts[] = {"A", "B"};

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key            tag         title                 kind             min   max   def  unit                  field               dirty           forward
    {"ingain",       "InGn"_tag, "Input",               Kind::Float,      0,   18,    0, "Media.DB",           &S::inputGain,      Core::Gains,    decibels,
     {.group = "Level", .help = "Gain before the limiter: drive the signal into the ceiling.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"ceiling",      "Ceil"_tag, "Ceiling",             Kind::Float,    -12,    0,    0, "Media.DB",           &S::ceiling,        Core::Gains,    asIs,
     {.group = "Level", .help = "Level that the output never passes.", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"thresholdrel", "Thrs"_tag, "Threshold",           Kind::Float,    -12,    0,    0, "Media.DB",           &S::threshold,      Core::Curve,    asIs,
     {.group = "Level", .help = "How far below the ceiling the gain begins to be reduced, with a soft knee.", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"release",      "Rele"_tag, "Release",             Kind::Float,      1, 3000,  180, "Media.Milliseconds", &S::releaseSeconds, Core::Times,    milliseconds,
     {.group = "Envelope", .help = "Time in which the gain recovers.", .curve = &curve::logarithmic}},
    {"attack",       "Attk"_tag, "Attack",              Kind::List,       0,    2,    1, "",                   &S::attackSeconds,  Core::Times,    attackTime,
     {.group = "Envelope", .help = "How soon the gain stays down: fast is dense, slow leaves short peaks to a dip of their own.", .texts = kAttackTexts}},
    {"clipper",      "ClMd"_tag, "SoftClipper",         Kind::Toggle,     0,    1,    0, "",                   &S::fastFall,       Core::Hold,     asIs,
     {.group = "Envelope", .help = "Lets the gain recover between the peaks of low tones: louder, with the sound of a clipper.", .shortTitle = "Clipper"}},
    {"reduction",    "Redu"_tag, "Reduction",           Kind::Meter,    -24,    0,  -24, "dB",                 nullptr,            0,              asIs,
     {.group = "Meters", .help = "Gain reduction, its deepest since the last block."}},
    {"minreduction", "MnRd"_tag, "Min Reduction",       Kind::Meter,   -144,    0,    0, "dB",                 nullptr,            0,              asIs,
     {.group = "Meters", .help = "Deepest gain reduction since it was reset."}},
    {"softclip",     "Wall"_tag, "Soft Clip",           Kind::Toggle,     0,    1,    0, "",                   &S::wall,           Core::Clip,     asIs,
     {.group = "Envelope", .help = "Rounds off the peaks that the attack lets through instead of dipping the gain; not with true-peak limiting."}},
    {"highqual",     "OvrS"_tag, "True Peak Limiting",  Kind::Toggle,     0,    1,    0, "",                   &S::truePeak,       Core::Detector, asIs,
     {.group = "Level", .help = "Keeps the signal below the ceiling between its samples too, with a longer latency.", .shortTitle = "True Peak"}},
    {"resetmin",     "RsMR"_tag, "Reset Min",           Kind::Trigger,    0,    1,    0, "",                   nullptr,            Core::ResetHold, asIs,
     {.group = "Meters", .help = "Resets the deepest gain reduction."}},
    {"abmode",       "MMod"_tag, "Mode ",               Kind::Toggle,     0,    1,    0, "",                   &S::programme,      Core::Mode,     asIs,
     {.group = "Envelope", .help = "A: one release time. B: fast after short peaks, slow after long passages.", .texts = kModeTexts}},
    {"bypass",       "Bypa"_tag, "Bypass",              Kind::Bypass},
    {"thresholdabs", "ThrA"_tag, "Absolute Threshold",  Kind::Reading,  -24,    0,    0, "dB"},
    {"ratio",        "Rati"_tag, "Ratio",               Kind::Command,    1,   20,    2, "",                   &S::ratio,          Core::Curve},
    {"editor",       "Edit"_tag, "Editor",              Kind::Command,    0,    1,    0, "",                   &S::editorOpen,     Core::Editor},
    levelRow<S>(kInputFast),
    levelRow<S>(kInputSlow),
    levelRow<S>(kOutputFast),
    levelRow<S>(kOutputSlow),
};
// clang-format on

}  // namespace

template <typename T> void LimiterCore<T>::prepare(const ProcessSpec& spec)
{
    engine_.prepare(spec.sampleRate, spec.channels);
    levels_.prepare(spec);
}

template <typename T> void LimiterCore<T>::reset() noexcept
{
    engine_.reset();
    levels_.reset();
    most_ = 0;
}

template <typename T> void LimiterCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    const bool isWall = s.wall != 0, isTruePeak = s.truePeak != 0;
    if (dirty & Gains) engine_.setGains(s.inputGain, s.ceiling);
    if (dirty & (Curve | Clip | Detector))
        engine_.setCurve(s.threshold, isWall && !isTruePeak ? s.ratio : 2);
    if (dirty & Times) engine_.setTimes(s.attackSeconds, s.releaseSeconds);
    if (dirty & Hold) engine_.setHold(s.fastFall == 0);
    if (dirty & Clip) engine_.setWall(isWall);
    if (dirty & Mode) engine_.setProgrammeRelease(s.programme != 0);
    if (dirty & Detector) engine_.setTruePeak(isTruePeak);
    if (dirty & (ResetHold | Detector)) most_ = 0;
    if (dirty & Editor) levels_.setOpen(s.editorOpen != 0);
    absoluteThreshold_ = s.ceiling + s.threshold;
}

template <typename T> void LimiterCore<T>::process(const AudioBlock<T>& block) noexcept
{
    // Of the slices' size, these would crowd the cache in every instance.
    LimiterEngine::Scratch scratch;
    EditorLevels::Inputs inputs;
    const bool isOpen = levels_.isOpen();
    for (int done = 0; done < block.frames;) {
        auto part = block.slice(done, block.frames - done);
        part.frames = engine_.begin(part, scratch);
        for (int c = 0; c < part.channels; ++c) {
            engine_.take(c, part[c]);
            if (isOpen) levels_.keep(inputs, c, part[c], part.frames);
        }
        engine_.findGain();
        for (int c = 0; c < part.channels; ++c) engine_.put(c, part[c]);
        if (isOpen) levels_.measure(inputs, part);
        done += part.frames;
    }
}

template <typename T> void LimiterCore<T>::publish(MeterSlots& meters) noexcept
{
    const double reduction = engine_.takeReduction();
    most_ = std::max(most_, reduction);
    meters.publish("Redu"_tag, static_cast<float>(0 - std::min(reduction, 24.0)));
    meters.publish("MnRd"_tag, static_cast<float>(0 - std::min(most_, 144.0)));
    meters.publish("ThrA"_tag, absoluteThreshold_);
    levels_.publish(meters);
}

template class LimiterCore<float>;
template class LimiterCore<double>;

LimiterAlgorithm::LimiterAlgorithm() : PrecisionAlgorithm(kParameters) {}

LimiterComponent::LimiterComponent(LimiterAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "Limiter",
                                       .views = {"Editor", "Compact", "InplaceEditor"},
                                       .kind = "limiter"})
{}

Delays LimiterComponent::delays(double sampleRate) const noexcept
{
    const auto latency = static_cast<std::uint32_t>(limiterLatency(sampleRate, isOn("highqual")));
    return {latency, latency};
}

}  // namespace quillworks
