// SPDX-License-Identifier: ISC
// The table and the component; the core is in multiband_core.cpp.
#include "dynamics/multiband_dynamics.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dynamics/lookahead.h"
#include "dynamics/multiband_meters.h"

namespace quillworks {
namespace {

using Core = MultiBandCore<float>;
using S = MultiBandSettings;
using namespace conversion;

constexpr int kSplits = kMaxBands - 1;

/// A row for each band or split.
template <auto field, int count = kMaxBands>
constexpr Family<S> perBand(float (*defaultAt)(int) = nullptr)
{
    return {.count = count,
            .element = [](S& s, int i) -> float& { return (s.*field)[i]; },
            .defaultAt = defaultAt};
}

float defaultSplit(int i)
{
    constexpr float kHz[] = {120, 800, 4000, 10000};
    return kHz[i];
}
float defaultAttack(int i)
{
    constexpr float kMs[] = {30, 20, 12, 8, 5};
    return kMs[i];
}
float defaultRelease(int i)
{
    constexpr float kMs[] = {300, 200, 150, 100, 80};
    return kMs[i];
}
/// Number of bands of a choice.
float bandsOf(float choice)
{
    return choice + 2;
}

constexpr const char* kBandTexts[] = {"2", "3", "4", "5"};
constexpr const char* kPhaseTexts[] = {"Zero Latency", "Linear"};
constexpr const char* kStereoTexts[] = {"Linked", "Per Channel", "Mid/Side"};

constexpr Tag kLearn = "Lern"_tag, kLearnings = "LrnN"_tag;
constexpr std::uint32_t kMostLearnings = 1 << 20;  // counted exactly by a float

constexpr const char* kBands = "Bands";
constexpr const char* kLevels = "Levels";
constexpr const char* kEnvelope = "Envelope";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key           tag          title            kind           min    max  def    unit                  field           dirty            forward
    {"bands",      "Bnds"_tag, "Bands",          Kind::List,      0,     3,    2,  "",                   &S::bands,      Core::Structure, bandsOf,
     {.group = kBands, .help = "Number of bands.", .texts = kBandTexts, .flags = VNK::isNotAutomatable}},
    {"split",             100, "Split",          Kind::Float,    40, 16000, 1000,  "Hz",                 nullptr,        Core::Splits,    asIs,
     {.group = kBands, .help = "Where a band ends and the next begins.", .curve = &curve::logarithmic}, perBand<&S::split, kSplits>(defaultSplit)},
    {"phase",      "Phas"_tag, "Phase",          Kind::List,      0,     1,    0,  "",                   &S::linear,     Core::Structure, asIs,
     {.group = kBands, .help = "Without latency the bands turn the phase; Linear turns none and delays by 50 ms.", .texts = kPhaseTexts, .flags = VNK::isNotAutomatable}},
    {"stereo",     "Ster"_tag, "Stereo",         Kind::List,      0,     2,    0,  "",                   &S::stereo,     Core::Stereo,    asIs,
     {.group = kBands, .help = "All channels alike, each for itself, or the middle and the sides apart.", .texts = kStereoTexts}},
    {"bandon",            200, "On",             Kind::Toggle,    0,     1,    1,  "",                   nullptr,        Core::Switches,  asIs,
     {.group = kBands, .help = "Off, the band passes as it is."}, perBand<&S::bandOn>()},
    {"solo",              300, "Solo",           Kind::Toggle,    0,     1,    0,  "",                   nullptr,        Core::Switches,  asIs,
     {.group = kBands, .help = "Only soloed bands are heard."}, perBand<&S::solo>()},
    {"mute",              400, "Mute",           Kind::Toggle,    0,     1,    0,  "",                   nullptr,        Core::Switches,  asIs,
     {.group = kBands, .help = "The band is not heard, unless it is soloed."}, perBand<&S::mute>()},
    {"threshold",         500, "Threshold",      Kind::Float,   -60,     0,  -24,  "Media.DB",           nullptr,        Core::Curves,    asIs,
     {.group = kLevels, .help = "Level of the band above which the ratio acts.", .shortTitle = "Thresh", .curve = &curve::decibel, .flags = VNK::isDecibel}, perBand<&S::threshold>()},
    {"ratio",             600, "Ratio",          Kind::Float,  0.5f,    20,    2,  "Media.Ratio",        nullptr,        Core::Curves,    ratioToSlope,
     {.group = kLevels, .help = "How many decibels above the threshold become one; below 1 what is loud becomes louder.", .curve = &curve::middleAt<2000>}, perBand<&S::slope>()},
    {"lowthreshold",      700, "Low Threshold",  Kind::Float,   -80,     0,  -60,  "Media.DB",           nullptr,        Core::Curves,    asIs,
     {.group = kLevels, .help = "Level of the band below which the low ratio acts.", .shortTitle = "Low Thr", .curve = &curve::decibel, .flags = VNK::isDecibel}, perBand<&S::lowThreshold>()},
    {"lowratio",          800, "Low Ratio",      Kind::Float,  0.5f,     4,    1,  "Media.Ratio",        nullptr,        Core::Curves,    asIs,
     {.group = kLevels, .help = "Above 1 what is quiet becomes quieter, below 1 louder; 1 leaves it.", .shortTitle = "Low Rat", .curve = &curve::middleAt<1000>}, perBand<&S::lowRatio>()},
    {"range",             900, "Range",          Kind::Float,     0,    48,   18,  "dB",                 nullptr,        Core::Gains | Core::Curves, asIs,
     {.group = kLevels, .help = "The most that a band is turned up or down.", .flags = VNK::isDecibel}, perBand<&S::range>()},
    {"attack",           1700, "Attack",         Kind::Float,  0.1f,   400,   10,  "Media.Milliseconds", nullptr,        Core::Times,     milliseconds,
     {.group = kEnvelope, .help = "Time in which the gain follows a level that rises.", .curve = &curve::logarithmic}, perBand<&S::attack>(defaultAttack)},
    {"release",          1800, "Release",        Kind::Float,     5,  4000,  100,  "Media.Milliseconds", nullptr,        Core::Times,     milliseconds,
     {.group = kEnvelope, .help = "Time in which the gain follows a level that falls.", .curve = &curve::logarithmic}, perBand<&S::release>(defaultRelease)},
    {"gain",             1900, "Gain",           Kind::Float,   -18,    18,    0,  "Media.DB",           nullptr,        Core::Gains,     asIs,
     {.group = kLevels, .help = "Gain of the band behind its dynamics.", .curve = &curve::decibel, .flags = kGainFlags}, perBand<&S::gain>()},
    {"knee",       "Knee"_tag, "Knee",           Kind::Float,  0.1f,    20,    6,  "dB",                 &S::knee,       Core::Curves,    asIs,
     {.group = kEnvelope, .help = "How far below and above the thresholds the upper curves bend; small is a hard corner.", .flags = VNK::isDecibel}},
    {"amount",     "Amnt"_tag, "Amount",         Kind::Float,     0,   200,  100,  "%",                  &S::amount,     Core::Gains | Core::Curves, percent,
     {.group = kOutput, .help = "Scales what all bands do, within their ranges."}},
    {"lookAhead",  "LkAh"_tag, "LookAhead",      Kind::Toggle,    0,     1,    0,  "",                   &S::lookAhead,  Core::Structure, asIs,
     {.group = kEnvelope, .help = "Delays the audio by 2 ms so that the gains come in time for sharp attacks."}},
    {"learn",          kLearn, "Learn",          Kind::Toggle,    0,     1,    0,  "",                   &S::learn,      Core::Learning,  asIs,
     {.group = kLevels, .help = "Listens to the bands while it is on; switched off, it sets the thresholds to the mean of their peaks.", .flags = VNK::isNotStored}},
    {"mix",        "Mix "_tag, "Mix",            Kind::Float,     0,     1,    1,  "",                   &S::mix,        Core::Mixing,    asIs,
     {.group = kOutput, .help = "Share of the processed signal; below 1 the same bands as they came are added."}},
    {"outgain",    "OutG"_tag, "Output",         Kind::Float,   -24,    24,    0,  "Media.DB",           &S::outGain,    Core::Mixing,    asIs,
     {.group = kOutput, .help = "Gain of the whole.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"reduction",  kBandChange, "Reduction",     Kind::Meter, -kMostChange, kMostChange, 0, "dB",        nullptr,        0,               asIs, {}, {.count = kMaxBands}},
    {"bandlevel",  kBandLevel, "Level",          Kind::Meter, kLowestLevel, kHighestLevel, kLowestLevel, "dB", nullptr,  0,               asIs, {}, {.count = kMaxBands}},
    {"bypass",     "Bypa"_tag, "Bypass",         Kind::Bypass},
    {"learned",    kLearned,   "Learned",        Kind::Reading, kLowestLearned, kHighestLevel, kLowestLearned, "dB", nullptr, 0,          asIs, {}, {.count = kMaxBands}},
    {"editor",     "Edit"_tag, "Editor",         Kind::Command,   0,     1,    0,  "",                   &S::editorOpen, Core::Editor},
    {"learnings",  kLearnings, "Learnings",      Kind::Command,   0, kMostLearnings, 0, "",            &S::learnings,  Core::Learning},
    levelRow<S>(kInputFast),
    levelRow<S>(kInputSlow),
    levelRow<S>(kOutputFast),
    levelRow<S>(kOutputSlow),
};
// clang-format on

}  // namespace

MultiBandCompressorAlgorithm::MultiBandCompressorAlgorithm()
    : GroundedAlgorithm(kParameters, std::vector<const char*>{"1", "2", "3", "4", "5"})
{}

MultiBandComponent::MultiBandComponent(MultiBandCompressorAlgorithm& algorithm)
    : GroundedComponent(algorithm, {.viewPrefix = "MultiBand", .kind = "compressor"}, {"history"}),
      bands_(list().find("bands")),
      phase_(list().find("phase")),
      lookAhead_(list().find("lookAhead")),
      threshold_(list().find("threshold0")),
      learned_(0)
{
    const auto& meters = list().meters();
    const auto first =
        std::find_if(meters.begin(), meters.end(), [](const auto& m) { return m.tag == kLearned; });
    learned_ = static_cast<int>(first - meters.begin());
    meterSlots().publishFamily(kLearned, kMaxBands, [](int) { return kNothingLearned; });
}

Delays MultiBandComponent::delays(double sampleRate) const noexcept
{
    int frames = 0;
    if (getValue(phase_) != 0) frames += ReversedAllPass<float>::latency(sampleRate);
    if (getValue(lookAhead_) != 0) frames += lookAheadFrames(sampleRate);
    const auto delay = static_cast<std::uint32_t>(frames);
    return {.latency = delay, .tail = delay};
}

/// The core learns and publishes while the button is down; here it is taken as it comes up.
void MultiBandComponent::changed(const AlgorithmParameter& parameter, float before,
                                 Setter by) noexcept
{
    if (parameter.tag != kLearn) return;
    const bool isOn = getValue(list().findTag(kLearn)) != 0;
    if (!isOn && before != 0) {
        const int bands = static_cast<int>(bandsOf(getValue(bands_)));
        for (int b = 0; b < bands; ++b) {
            const float level = meterSlots().read(static_cast<std::size_t>(learned_ + b));
            if (std::isfinite(level))
                setAt(threshold_ + b, std::clamp(std::round(level * 2) / 2, -60.0f, 0.0f), by);
        }
    }
    // Released and pressed again between two blocks it begins anew all the same, and what was
    // learned before does not count should it be released before the core has seen it pressed.
    if (isOn && before == 0) {
        command(kLearnings, static_cast<float>(++learnings_ % kMostLearnings));
        meterSlots().publishFamily(kLearned, kMaxBands, [](int) { return kNothingLearned; });
    }
}

}  // namespace quillworks
