// SPDX-License-Identifier: ISC
#include "analysis/phase_meter.h"

#include <limits>

#include "framework/note_sync.h"

namespace quillworks {
namespace {

using S = CaptureSettings;
using namespace conversion;

constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();

constexpr const char* kViews[] = {"Goniometer", "X/Y", "Polar"};
constexpr const char* kPairs[] = {"First", "Second", "Third",   "Fourth",
                                  "Fifth", "Sixth",  "Seventh", "Eighth"};
constexpr const char* kTimes[] = {"0.1 s", "0.3 s", "1 s", "3 s"};
constexpr const char* kBands[] = {"1/1 octave", "1/3 octave"};

// clang-format off
constexpr std::array kOwn = {
    // key                   tag         title          kind          min  max  def   unit
    Parameter<S>{"view",        "View"_tag, "View",        Kind::List,   0,   2,   0,    "",   nullptr, 0, asIs, {.group = "Display", .help = "Mono upright, left against right, or direction and level.", .texts = kViews}},
    Parameter<S>{"pair",        "Pair"_tag, "Pair",        Kind::List,   0,   7,   0,    "",   nullptr, 0, asIs, {.group = "Measure", .help = "Pair of channels that is compared, counted in the layout.", .texts = kPairs}},
    Parameter<S>{"time",        "Time"_tag, "Time",        Kind::List,   0,   3,   1,    "",   nullptr, 0, asIs, {.group = "Measure", .help = "Over what time correlation and levels are averaged.", .texts = kTimes}},
    Parameter<S>{"bands",       "Band"_tag, "Bands",       Kind::List,   0,   1,   0,    "",   nullptr, 0, asIs, {.group = "Measure", .help = "Width of the bands that are compared one by one.", .texts = kBands}},
    Parameter<S>{"autogain",    "AGai"_tag, "Auto Gain",   Kind::Toggle, 0,   1,   1,    "",   nullptr, 0, asIs, {.group = "Display", .help = "The picture fills the display at any level."}},
    Parameter<S>{"gain",        "Gain"_tag, "Gain",        Kind::Float,  -24, 48,  0,    "dB", nullptr, 0, asIs, {.group = "Display", .help = "Gain of the picture while Auto Gain is off.", .drivenBy = "autogain", .origin = 0.0f}},
    Parameter<S>{"persistence", "Pers"_tag, "Persistence", Kind::Float,  0,   5,   0.4f, "s",  nullptr, 0, asIs, {.group = "Display", .help = "How long points remain visible.", .shortTitle = "Persist"}},
    Parameter<S>{"finddelay",   "FDly"_tag, "Find Delay",  Kind::Toggle, 0,   1,   1,    "",   nullptr, 0, asIs, {.group = "Measure", .help = "Looks for what one channel has later than the other, and for its polarity."}},
};

constexpr std::array kBypass = {
    Parameter<S>{"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
};

constexpr std::array kReadings = {
    Parameter<S>{"correlation",     "Corr"_tag, "Correlation",        Kind::Reading, -1,   1,   kNothing, ""},
    Parameter<S>{"mincorrelation",  "MinC"_tag, "Lowest Correlation", Kind::Reading, -1,   1,   kNothing, ""},
    Parameter<S>{"balance",         "Bal "_tag, "Balance",            Kind::Reading, -144, 144, kNothing, "dB"},
    Parameter<S>{"mono",            "Mono"_tag, "Mono",               Kind::Reading, -144, 0,   kNothing, "dB"},
    Parameter<S>{"sidemid",         "SMRt"_tag, "Side to Mid",        Kind::Reading, -144, 144, kNothing, "dB"},
    Parameter<S>{"delay",           "Dely"_tag, "Delay",              Kind::Reading, -20,  20,  kNothing, "ms"},
    Parameter<S>{"delayconfidence", "DlyC"_tag, "Delay Confidence",   Kind::Reading, 0,    1,   kNothing, ""},
    Parameter<S>{"polarity",        "Pola"_tag, "Polarity",           Kind::Reading, -1,   1,   kNothing, ""},
};
// clang-format on

constexpr auto kParameters =
    joinedRows(kOwn, meterParameters<S>(), kBypass, kReadings, meterReadings<S>());

void configurePhase(const MeterComponent<PhaseMeterAlgorithm>& values, PhaseEngine& engine)
{
    constexpr double kSeconds[] = {0.1, 0.3, 1, 3};
    PhaseSettings s;
    s.pair = static_cast<int>(values.value("pair"));
    s.time = kSeconds[static_cast<int>(values.value("time"))];
    s.fraction = values.value("bands") == 0 ? 1 : 3;
    s.autoGain = values.isOn("autogain");
    s.gain = double(values.value("gain"));
    s.persistence = double(values.value("persistence"));
    s.findsDelay = values.isOn("finddelay");
    engine.set(s);
}

}  // namespace

PhaseMeterAlgorithm::PhaseMeterAlgorithm() : MeterAlgorithm(kParameters) {}

PhaseMeterComponent::PhaseMeterComponent(PhaseMeterAlgorithm& algorithm)
    : MeterComponent(algorithm,
                     {.viewPrefix = "PhaseMeter",
                      .kind = "analyser",
                      .layouts = "stereo;mono;5.1",
                      .copiesAtDefaults = true},
                     {"goniometer", "bandcorrelation", "matrix", kRecentField}, &configurePhase)
{}

}  // namespace quillworks
