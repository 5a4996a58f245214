// SPDX-License-Identifier: ISC
#include "analysis/scope.h"

#include "framework/note_sync.h"

namespace quillworks {
namespace {

using S = ScopeSettings;
using namespace conversion;

constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();
constexpr NoteSync kSync{"sync", "beats", "time"};

constexpr const char* kTriggers[] = {"Free", "Auto", "Normal", "Single", "Period", "Beat"};
constexpr const char* kSources[] = {"1",  "2",  "3",  "4",  "5",  "6",  "7",  "8",   "9",
                                    "10", "11", "12", "13", "14", "15", "16", "Mid", "Side"};
constexpr const char* kSlopes[] = {"Rising", "Falling", "Either"};
constexpr const char* kLayouts[] = {"Overlay", "Stack", "X/Y"};
constexpr const char* kStates[] = {"Waiting", "Triggered", "Automatic", "Stopped"};

// clang-format off
constexpr std::array kOwn = {
    // key                   tag         title             kind           min   max    def   unit
    Parameter<S>{"time",        "Time"_tag, "Time",           Kind::Float,   0.1f, 10000, 20,   "ms",  nullptr, 0, asIs, {.group = "Time", .help = "Length of the stretch that is shown.", .curve = &curve::logarithmic, .drivenBy = "sync"}},
    Parameter<S>{"sync",        "Sync"_tag, "Sync",           Kind::Toggle,  0,    1,     0,    "",    nullptr, 0, asIs, {.group = "Time", .help = "The length is a note value of the song."}},
    noteRow<S>("beats",         "Beat"_tag, "Beats",          2, nullptr, 0, {.group = "Time", .help = "Length as a note value, and distance of the beats that trigger."}),
    Parameter<S>{"trigger",     "Trig"_tag, "Trigger",        Kind::List,    0,    5,     1,    "",    nullptr, 0, asIs, {.group = "Trigger", .help = "What a trace begins with: anything, an edge, one edge only, a period or a beat.", .texts = kTriggers}},
    Parameter<S>{"source",      "TSrc"_tag, "Trigger Source", Kind::List,    0,    17,    0,    "",    nullptr, 0, asIs, {.group = "Trigger", .help = "Channel that triggers and is read, or middle or side of the first pair.", .shortTitle = "Source", .texts = kSources}},
    Parameter<S>{"slope",       "Slop"_tag, "Slope",          Kind::List,    0,    2,     0,    "",    nullptr, 0, asIs, {.group = "Trigger", .help = "Direction of the edge.", .texts = kSlopes}},
    Parameter<S>{"level",       "TLev"_tag, "Level",          Kind::Float,   -100, 100,   0,    "%",   nullptr, 0, asIs, {.group = "Trigger", .help = "Level of the edge, of full scale."}},
    Parameter<S>{"hysteresis",  "Hyst"_tag, "Hysteresis",     Kind::Float,   0,    50,    2,    "%",   nullptr, 0, asIs, {.group = "Trigger", .help = "How far the signal must have been on the other side of the level."}},
    Parameter<S>{"holdoff",     "HOff"_tag, "Hold-off",       Kind::Float,   0,    1000,  0,    "ms",  nullptr, 0, asIs, {.group = "Trigger", .help = "Least time from one trigger to the next.", .curve = &curve::middleAt<50000>}},
    Parameter<S>{"pretrigger",  "Pre "_tag, "Pre-trigger",    Kind::Float,   0,    100,   10,   "%",   nullptr, 0, asIs, {.group = "Trigger", .help = "Share of the stretch that lies before the trigger."}},
    Parameter<S>{"gain",        "Gain"_tag, "Gain",           Kind::Float,   -24,  60,    0,    "dB",  nullptr, 0, asIs, {.group = "Display", .help = "Gain of what is drawn."}},
    Parameter<S>{"layout",      "Layo"_tag, "Layout",         Kind::List,    0,    2,     1,    "",    nullptr, 0, asIs, {.group = "Display", .help = "Channels on top of each other, below each other, or one against the other.", .texts = kLayouts}},
    Parameter<S>{"persistence", "Pers"_tag, "Persistence",    Kind::Float,   0,    10,    0,    "s",   nullptr, 0, asIs, {.group = "Display", .help = "How long earlier traces remain visible."}},
    Parameter<S>{"arm",         "Arm "_tag, "Arm",            Kind::Trigger, 0,    1,     0,    "",    nullptr, 0, asIs, {.group = "Trigger", .help = "Makes a single shot possible again."}},
};

constexpr std::array kBypass = {
    Parameter<S>{"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
};

constexpr std::array kReadings = {
    Parameter<S>{"frequency",    "Freq"_tag, "Frequency",     Kind::Reading, 0,  192000, kNothing, "Hz"},
    Parameter<S>{"peaktopeak",   "VPP "_tag, "Peak to Peak",  Kind::Reading, 0,  8,      kNothing, ""},
    Parameter<S>{"maximum",      "VMax"_tag, "Maximum",       Kind::Reading, -4, 4,      kNothing, ""},
    Parameter<S>{"minimum",      "VMin"_tag, "Minimum",       Kind::Reading, -4, 4,      kNothing, ""},
    Parameter<S>{"rms",          "VRMS"_tag, "RMS",           Kind::Reading, 0,  4,      kNothing, ""},
    Parameter<S>{"dc",           "VDC "_tag, "DC",            Kind::Reading, -4, 4,      kNothing, ""},
    Parameter<S>{"dutycycle",    "Duty"_tag, "Duty Cycle",    Kind::Reading, 0,  100,    kNothing, "%"},
    Parameter<S>{"triggerstate", "TSta"_tag, "Trigger State", Kind::Reading, 0,  3,      kNothing, "", nullptr, 0, asIs, {.texts = kStates}},
};
// clang-format on

constexpr auto kParameters =
    joinedRows(kOwn, meterParameters<S>(), kBypass, kReadings, meterReadings<S>());

void configureScope(const MeterComponent<TestScopeAlgorithm>& values, ScopeEngine& engine)
{
    const double rate = engine.spec().sampleRate, perMs = rate / 1000;
    const double beats = exactNoteValue(double(soundingNoteValue(values.value("beats"))));
    TriggerSettings s;
    s.span = values.isOn("sync") ? beats * 120 / double(values.tempo()) * rate
                                 : double(values.value("time")) * perMs;
    s.mode = static_cast<TriggerMode>(static_cast<int>(values.value("trigger")));
    s.source = static_cast<int>(values.value("source"));
    s.slope = static_cast<Slope>(static_cast<int>(values.value("slope")));
    s.level = double(values.value("level")) / 100;
    s.hysteresis = double(values.value("hysteresis")) / 100;
    s.holdOff = double(values.value("holdoff")) * perMs;
    s.preTrigger = double(values.value("pretrigger")) / 100;
    s.beat = 2 * beats;
    engine.set(s, values.commands());
}

}  // namespace

template <typename T> void ScopeCore<T>::reset() noexcept
{
    clock_.reset();
    anchor_ = {};
    again_ = 0;
}

template <typename T> void ScopeCore<T>::captureSong(const AudioBlock<T>& block) noexcept
{
    constexpr int kAgain = 4096;  // frames
    clock_.begin(*block.transport, block.frames);
    const std::int64_t now = ring_->written();
    SongAnchor anchor;
    if (clock_.isLocked()) {
        const auto line = clock_.line();
        anchor.origin = now - static_cast<std::int64_t>(line.first);
        anchor.position = line.origin;
        anchor.step = line.step;
    }
    anchor.from = anchor_.from;
    if (anchor == anchor_ && now < again_) return;
    again_ = now + kAgain;
    anchor.from = now;
    anchor_ = anchor;
    float packed[kSongChannels];
    packAnchor(anchor, packed);
    const float* channels[kSongChannels];
    for (int c = 0; c < kSongChannels; ++c) channels[c] = &packed[c];
    song_->write(channels, 1);
}

template <typename T> void ScopeCore<T>::process(const AudioBlock<T>& block) noexcept
{
    captureSong(block);
    const T* x[VNK::kMaxChannels];
    for (int c = 0; c < block.channels; ++c) x[c] = block[c];
    ring_->write(x, block.frames);
}

template class ScopeCore<float>;
template class ScopeCore<double>;

TestScopeAlgorithm::TestScopeAlgorithm() : MeterAlgorithm(kParameters)
{
    engine().follow(song_);
}

void TestScopeAlgorithm::prepareCore(const ProcessSpec& spec, VNK::Precision precision)
{
    // At most one word a call, and calls of a frame are the shortest.
    if (song_.channels() == 0) song_.prepare(kSongChannels, 1000, 1);
    MeterAlgorithm::prepareCore(spec, precision);
    withCore([this](auto& core) { core.setSong(song_); });
}

void TestScopeAlgorithm::resetCore() noexcept
{
    song_.reset();
    MeterAlgorithm::resetCore();
}

TestScopeComponent::TestScopeComponent(TestScopeAlgorithm& algorithm)
    : MeterComponent(algorithm,
                     {.viewPrefix = "TestScope",
                      .kind = "analyser",
                      .layouts = "stereo;mono;5.1",
                      .copiesAtDefaults = true},
                     {"trace"}, &configureScope, "arm")
{}

void TestScopeComponent::changed(const AlgorithmParameter& parameter, float before,
                                 Setter by) noexcept
{
    const std::string_view key = parameter.key;
    const auto read = [this](const char* k) { return value(k); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kSync.moved(key, now, before, read, tempo()))
        set(move->key, move->value, by);
    MeterComponent::changed(parameter, before, by);
}

}  // namespace quillworks
