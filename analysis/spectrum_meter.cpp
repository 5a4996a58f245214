// SPDX-License-Identifier: ISC
#include "analysis/spectrum_meter.h"

#include <limits>

#include "framework/note_sync.h"

namespace quillworks {
namespace {

using S = CaptureSettings;
using namespace conversion;

constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();
constexpr double kForEver = std::numeric_limits<double>::infinity();

constexpr const char* kModes[] = {"Spectrum", "Bands", "Sonogram"};
constexpr const char* kSources[] = {"Each Channel", "Loudest", "Sum", "Mid/Side"};
constexpr const char* kResolutions[] = {"Fast", "Normal", "Fine", "Finest"};
constexpr const char* kWindows[] = {"Nuttall", "Hann", "Flat Top", "Rectangular"};
constexpr const char* kBands[] = {"1/1 octave", "1/3 octave", "1/6 octave", "1/12 octave",
                                  "1/24 octave"};
constexpr const char* kAverages[] = {"Off", "Fast", "Slow", "4 s", "Infinite"};
constexpr const char* kHolds[] = {"Off", "2 s", "10 s", "Infinite"};
constexpr const char* kWeightings[] = {"Z", "A", "B", "C"};
constexpr const char* kReadingsOf[] = {"Sine Level", "Density"};
constexpr const char* kSmoothings[] = {"Off", "1/24 octave", "1/12 octave", "1/6 octave",
                                       "1/3 octave"};

// clang-format off
constexpr std::array kOwn = {
    // key                   tag         title               kind           min  max     def    unit
    Parameter<S>{"mode",       "Mode"_tag, "Mode",            Kind::List,    0,   2,      0,     "",       nullptr, 0, asIs, {.group = "Measure", .help = "Fine lines, bands of octaves and parts of them, or the course of the spectrum in time.", .texts = kModes}},
    Parameter<S>{"source",     "Srce"_tag, "Source",          Kind::List,    0,   3,      0,     "",       nullptr, 0, asIs, {.group = "Measure", .help = "A curve for each channel, for the loudest at each frequency, for all together, or for middle and side.", .texts = kSources}},
    Parameter<S>{"resolution", "Reso"_tag, "Resolution",      Kind::List,    0,   3,      1,     "",       nullptr, 0, asIs, {.group = "Measure", .help = "Finer lines need a longer stretch of sound.", .shortTitle = "Resol", .texts = kResolutions}},
    Parameter<S>{"window",     "Wind"_tag, "Window",          Kind::List,    0,   3,      0,     "",       nullptr, 0, asIs, {.group = "Measure", .help = "Nuttall reads tones exactly beside much louder ones; the others are for comparison with other analysers.", .texts = kWindows}},
    Parameter<S>{"bands",      "Band"_tag, "Bands",           Kind::List,    0,   4,      1,     "",       nullptr, 0, asIs, {.group = "Measure", .help = "Width of the bands.", .texts = kBands}},
    Parameter<S>{"average",    "Avrg"_tag, "Average",         Kind::List,    0,   4,      1,     "",       nullptr, 0, asIs, {.group = "Measure", .help = "Over what time levels are averaged; Infinite is the mean since it was chosen or reset.", .texts = kAverages}},
    Parameter<S>{"hold",       "Hold"_tag, "Peak Hold",       Kind::List,    0,   3,      1,     "",       nullptr, 0, asIs, {.group = "Measure", .help = "How long the highest levels stay before they fall.", .shortTitle = "Hold", .texts = kHolds}},
    Parameter<S>{"weighting",  "Wght"_tag, "Weighting",       Kind::List,    0,   3,      0,     "",       nullptr, 0, asIs, {.group = "Reading", .help = "Weighs frequencies as sound level meters do; Z weighs all alike.", .shortTitle = "Weight", .texts = kWeightings}},
    Parameter<S>{"reading",    "Read"_tag, "Reading",         Kind::List,    0,   1,      0,     "",       nullptr, 0, asIs, {.group = "Reading", .help = "The level a tone has, or the density of noise per hertz.", .texts = kReadingsOf}},
    Parameter<S>{"smooth",     "Smth"_tag, "Smoothing",       Kind::List,    0,   4,      0,     "",       nullptr, 0, asIs, {.group = "Reading", .help = "Width over which the curve is averaged.", .shortTitle = "Smooth", .texts = kSmoothings}},
    Parameter<S>{"tilt",       "Tilt"_tag, "Tilt",            Kind::Float,   0,   6,      3,     "dB/oct", nullptr, 0, asIs, {.group = "Display", .help = "Turns the picture about 1 kHz, so that music lies level; readings know nothing of it."}},
    Parameter<S>{"top",        "Top "_tag, "Top",             Kind::Float,   -60, 60,     0,     "dB",     nullptr, 0, asIs, {.group = "Display", .help = "Level at the upper edge of the picture."}},
    Parameter<S>{"range",      "Rnge"_tag, "Range",           Kind::Float,   20,  180,    90,    "dB",     nullptr, 0, asIs, {.group = "Display", .help = "Decibels from the upper edge to the lower."}},
    Parameter<S>{"freqlow",    "FrLo"_tag, "Low Frequency",   Kind::Float,   1,   2000,   20,    "Hz",     nullptr, 0, asIs, {.group = "Display", .help = "Where the picture begins.", .shortTitle = "Low", .curve = &curve::logarithmic}},
    Parameter<S>{"freqhigh",   "FrHi"_tag, "High Frequency",  Kind::Float,   1000, 192000, 20000, "Hz",    nullptr, 0, asIs, {.group = "Display", .help = "Where the picture ends.", .shortTitle = "High", .curve = &curve::logarithmic}},
    Parameter<S>{"offset",     "Offs"_tag, "Calibration",     Kind::Float,   -60, 160,    0,     "dB",     nullptr, 0, asIs, {.group = "Reading", .help = "Added to all levels, as for sound pressure from a known microphone.", .shortTitle = "Calib", .origin = 0.0f}},
    Parameter<S>{"store",      "Stor"_tag, "Store Reference", Kind::Trigger, 0,   1,      0,     "",       nullptr, 0, asIs, {.group = "Reference", .help = "Keeps the present curves to compare others with.", .shortTitle = "Store"}},
    Parameter<S>{"compare",    "Cmpr"_tag, "Compare",         Kind::Toggle,  0,   1,      0,     "",       nullptr, 0, asIs, {.group = "Reference", .help = "Shows the stored curves beside the present ones."}},
};

constexpr std::array kBypass = {
    Parameter<S>{"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
};

constexpr std::array kReadings = {
    Parameter<S>{"peakfrequency", "PkFr"_tag, "Peak Frequency", Kind::Reading, 0,    192000, kNothing, "Hz"},
    Parameter<S>{"peaklevel",     "PkLv"_tag, "Peak Level",     Kind::Reading, -144, 184,    kNothing, "dB"},
    Parameter<S>{"level",         "Lvl "_tag, "Level",          Kind::Reading, -144, 184,    kNothing, "dB"},
};
// clang-format on

constexpr auto kParameters =
    joinedRows(kOwn, meterParameters<S>(), kBypass, kReadings, meterReadings<S>());

void configureSpectrum(const MeterComponent<SpectrumMeterAlgorithm>& values, SpectrumEngine& engine)
{
    constexpr int kFractions[] = {1, 3, 6, 12, 24};
    constexpr double kAverageSeconds[] = {0, 0.125, 1, 4, kForEver};
    constexpr double kHoldSeconds[] = {0, 2, 10, kForEver};
    constexpr double kOctaves[] = {0, 1.0 / 24, 1.0 / 12, 1.0 / 6, 1.0 / 3};
    const auto choice = [&](const char* key) { return static_cast<int>(values.value(key)); };
    SpectrumSettings s;
    s.mode = static_cast<SpectrumMode>(choice("mode"));
    s.source = static_cast<SourceKind>(choice("source"));
    s.resolution = choice("resolution");
    s.window = static_cast<WindowShape>(choice("window"));
    s.fraction = kFractions[choice("bands")];
    s.average = kAverageSeconds[choice("average")];
    s.hold = kHoldSeconds[choice("hold")];
    s.weighting = static_cast<Weighting>(choice("weighting"));
    s.reading = static_cast<SpectrumReading>(choice("reading"));
    s.smoothing = kOctaves[choice("smooth")];
    s.low = double(values.value("freqlow"));
    s.high = std::max(double(values.value("freqhigh")), 1.1 * s.low);
    s.offset = double(values.value("offset"));
    s.compares = values.isOn("compare");
    engine.set(s, values.commands());
}

}  // namespace

SpectrumMeterAlgorithm::SpectrumMeterAlgorithm() : MeterAlgorithm(kParameters) {}

SpectrumMeterComponent::SpectrumMeterComponent(SpectrumMeterAlgorithm& algorithm)
    : MeterComponent(algorithm,
                     {.viewPrefix = "SpectrumMeter",
                      .kind = "analyser",
                      .layouts = "stereo;mono;5.1",
                      .copiesAtDefaults = true},
                     {"spectrum", "bands", "sonogram"}, &configureSpectrum, "store")
{}

}  // namespace quillworks
