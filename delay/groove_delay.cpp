// SPDX-License-Identifier: ISC
#include "delay/groove_delay.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "framework/speakers.h"

namespace quillworks {
namespace {

using Core = RhythmDelayCore<float>;
using S = RhythmDelaySettings;
using namespace conversion;

constexpr int kTaps = S::kTaps;
constexpr double kLongest = 16;  // s
constexpr Tag kTapPeak = 1100;
constexpr EchoDefaults kDefaults{25, 100, 9000, 4, 250, 35};
constexpr NoteSync kSync{"sync", "grid", "steptime"};

constexpr float kSteps[] = {3, 6, 10, 14, 8, 11, 12, 16};
constexpr float kLevels[] = {-2, -5, -8, -11, -6, -6, -6, -6};
constexpr float kPans[] = {-60, 60, -30, 40, 0, 80, -80, 0};
constexpr float kTones[] = {0, -20, -35, -50, 20, 40, -40, 0};

constexpr Family<S> kOnFamily{.count = kTaps,
                              .element = [](S& s, int i) -> float& { return s.tapOn[i]; },
                              .defaultAt = [](int i) { return i < 4 ? 1.0f : 0.0f; }};
constexpr Family<S> kStepFamily{.count = kTaps,
                                .element = [](S& s, int i) -> float& { return s.tapStep[i]; },
                                .defaultAt = [](int i) { return kSteps[i]; }};
constexpr Family<S> kLevelFamily{.count = kTaps,
                                 .element = [](S& s, int i) -> float& { return s.tapLevel[i]; },
                                 .defaultAt = [](int i) { return kLevels[i]; }};
constexpr Family<S> kPanFamily{.count = kTaps,
                               .element = [](S& s, int i) -> float& { return s.tapPan[i]; },
                               .defaultAt = [](int i) { return kPans[i]; }};
constexpr Family<S> kToneFamily{.count = kTaps,
                                .element = [](S& s, int i) -> float& { return s.tapTone[i]; },
                                .defaultAt = [](int i) { return kTones[i]; }};

/// A note value, the longest of which is a half note.
constexpr Parameter<S> gridRow()
{
    auto row = noteRow("grid", "BtNu"_tag, "Grid", 0.125f, &S::grid, Core::Time,
                       {.group = "Grid", .help = "Length of a step as a note value."});
    row.max = 1;
    return row;
}

// clang-format off
constexpr std::array kOwnRows{
    // key                     tag         title             kind           min    max   def    unit                  field         dirty        forward
    Parameter<S>{"sync",      "Sync"_tag, "Grid Sync",      Kind::Toggle,  0,     1,    1,     "",                   &S::sync,     Core::Time,  asIs,
     {.group = "Grid", .help = "Follows the song's tempo: a step is a note value instead of a time.", .shortTitle = "Sync"}},
    gridRow(),
    Parameter<S>{"steptime",  "Time"_tag, "Step Time",      Kind::Float,   10,    1000, 125,   "Media.Milliseconds", &S::stepTime, Core::Time,  milliseconds,
     {.group = "Grid", .help = "Length of a step while it does not follow the tempo.", .shortTitle = "Time", .curve = &curve::logarithmic, .drivenBy = "sync"}},
    Parameter<S>{"swing",     "Swng"_tag, "Swing",          Kind::Float,   50,    75,   54,    "%",                  &S::swing,    Core::Time,  percent,
     {.group = "Grid", .help = "Share of each pair of steps that the first one takes: 50 is straight, 66.7 a triplet."}},
    Parameter<S>{"length",    "Leng"_tag, "Pattern Length", Kind::List,    1,     32,   16,    "steps",              &S::length,   Core::Time,  asIs,
     {.group = "Grid", .help = "Steps after which the whole pattern comes again.", .shortTitle = "Length"}},
    Parameter<S>{"tapon",     100,        "Tap On",         Kind::Toggle,  0,     1,    0,     "",                   nullptr,      Core::Taps,  asIs,
     {.group = "Taps", .help = "Lets the tap be heard."}, kOnFamily},
    Parameter<S>{"tapstep",   200,        "Tap Step",       Kind::Float,   0.25f, 32,   8,     "steps",              nullptr,      Core::Time,  asIs,
     {.group = "Taps", .help = "Where on the grid the tap plays; between whole steps it pushes or drags."}, kStepFamily},
    Parameter<S>{"taplevel",  300,        "Tap Level",      Kind::Float,   -48,   6,    -6,    "Media.DB",           nullptr,      Core::Taps,  decibelsOffAt<-48>,
     {.group = "Taps", .help = "Level of the tap.", .curve = &curve::decibel, .minText = "Off", .flags = VNK::isDecibel}, kLevelFamily},
    Parameter<S>{"tappan",    400,        "Tap Pan",        Kind::Float,   -100,  100,  0,     "%",                  nullptr,      Core::Taps,  percent,
     {.group = "Taps", .help = "Where the tap is heard, from left to right; in the middle it is stereo.", .flags = VNK::isBipolar}, kPanFamily},
    Parameter<S>{"taptone",   500,        "Tap Tone",       Kind::Float,   -100,  100,  0,     "%",                  nullptr,      Core::Taps,  percent,
     {.group = "Taps", .help = "Takes highs from the tap below 0, lows above.", .flags = VNK::isBipolar}, kToneFamily},
};
constexpr std::array kPeakRow{
    Parameter<S>{"tappeak",   kTapPeak,   "Tap Peak",       Kind::Meter,   -144,  20,   -144,  "dB",                 nullptr,      0,           asIs,
     {}, {.count = kTaps}},
};
// clang-format on
constexpr auto kParameters = joinedRows(kOwnRows, echoFeedbackRow<S>(kDefaults),
                                        echoRows<S>(kDefaults), echoReadings<S>(), kPeakRow);

double stepSeconds(const S& s, double tempo)
{
    return s.sync != 0 ? exactNoteValue(double(s.grid)) * 120 / tempo : double(s.stepTime);
}

/// Steps on a grid with swing: the first of each pair takes `swing` of both, straight in between.
double swung(double steps, double swing)
{
    const double pair = 2 * std::floor(steps / 2), f = steps - pair;
    return pair + (f < 1 ? 2 * swing * f : 2 * swing + (f - 1) * (2 - 2 * swing));
}

}  // namespace

template <typename T> void RhythmDelayCore<T>::prepare(const ProcessSpec& spec)
{
    const auto pairs = ChannelPairs::of(spec.layout);
    first_ = 0;
    second_ = 1;
    if (pairs.count > 0) {
        first_ = pairs.pairs[0].first;
        second_ = pairs.pairs[0].second;
    }
    lines_ = std::min(spec.channels, 2);
    echoes_.prepare(2);
    loop_.prepare(2);
    network_.prepare(lines_, 1 + kTaps, {spec.sampleRate, kLongest});
    taps_.prepare(spec.sampleRate, lines_ == 1);
    output_.prepare(lines_, spec.sampleRate);
}

template <typename T> void RhythmDelayCore<T>::reset() noexcept
{
    network_.reset();
    taps_.reset();
    output_.reset();
}

template <typename T> void RhythmDelayCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    settings_ = s;
    network_.apply(s, dirty);
    output_.apply(s, dirty);
    if (dirty & Time) updateTimes();
    if (dirty & Taps)
        for (int t = 0; t < kTaps; ++t)
            taps_.set(t, {s.tapOn[t] != 0, s.tapLevel[t], s.tapPan[t], s.tapTone[t]});
}

template <typename T> void RhythmDelayCore<T>::setTempo(double beatsPerMinute) noexcept
{
    tempo_ = beatsPerMinute;
    updateTimes();
}

template <typename T> void RhythmDelayCore<T>::updateTimes() noexcept
{
    auto& lines = network_.lines();
    const double step = stepSeconds(settings_, tempo_), swing = settings_.swing;
    lines.setTime(0, step * swung(settings_.length, swing));
    for (int t = 0; t < kTaps; ++t) lines.setTime(1 + t, step * swung(settings_.tapStep[t], swing));
}

template <typename T> void RhythmDelayCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [this](const AudioBlock<T>& part) {
        T* const x[2] = {part[first_], lines_ == 2 ? part[second_] : nullptr};
        taps_.next(part);
        network_.process(x, loop_.data(), part,
                         [this](GridSlice run, int offset) { listen(run, offset); });
        output_.process(x, echoes_.data(), part);
    });
}

/// The taps of a run; the loop itself is not heard.
template <typename T> void RhythmDelayCore<T>::listen(GridSlice run, int offset) noexcept
{
    for (int t = 0; t < kTaps; ++t) {
        if (!taps_.runs(t)) continue;
        const T* samples[2] = {taps_.room(t)[0], taps_.room(t)[1]};
        network_.lines().look(1 + t, samples, taps_.room(t), run);
        taps_.place(t, samples);
    }
    taps_.process(echoes_[0] + offset, echoes_[1] + offset, run);
}

template <typename T> void RhythmDelayCore<T>::publish(MeterSlots& meters) noexcept
{
    const auto& lines = network_.lines();
    int longest = lines.delay(0, 0);
    for (int t = 0; t < kTaps; ++t)
        if (taps_.runs(t)) longest = std::max(longest, lines.delay(1 + t, 0));
    output_.publish(meters, lines, longest);
    meters.publishFamily(kTapPeak, kTaps, [this](int t) {
        return static_cast<float>(std::clamp(gainToDb(double(taps_.takePeak(t))), -144.0, 20.0));
    });
}

template class RhythmDelayCore<float>;
template class RhythmDelayCore<double>;

RhythmDelayAlgorithm::RhythmDelayAlgorithm() : EchoAlgorithm(kParameters) {}

RhythmDelayComponent::RhythmDelayComponent(RhythmDelayAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "RhythmDelay"}),
      firstOn_(list().find("tapon0")),
      firstStep_(list().find("tapstep0"))
{}

void RhythmDelayComponent::changed(const AlgorithmParameter& parameter, float before,
                                   Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const auto move =
        kSync.moved(parameter.key, value(parameter.key.c_str()), before, read, tempo());
    if (move) set(move->key, move->value, by);
}

Delays RhythmDelayComponent::delays(double sampleRate) const noexcept
{
    S s{};
    s.sync = value("sync");
    s.grid = soundingNoteValue(value("grid"));
    s.stepTime = milliseconds(value("steptime"));
    const StepDelays delays{sampleRate, kLongest};
    const double step = stepSeconds(s, double(tempo())), swing = double(percent(value("swing")));
    int longest = delays.samples(step * swung(double(value("length")), swing));
    for (int t = 0; t < kTaps; ++t)
        if (getValue(firstOn_ + t) != 0)
            longest = std::max(
                longest, delays.samples(step * swung(double(getValue(firstStep_ + t)), swing)));
    return echoDelays(longest, double(percent(value("feedback"))), isOn("freeze"));
}

}  // namespace quillworks
