// SPDX-License-Identifier: ISC
#include "analysis/tone_generator.h"

#include <limits>
#include <sstream>
#include <string>

#include "analysis/tone_trace.h"
#include "dsp/decibel.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = ToneGeneratorCore<float>;
using S = ToneGeneratorSettings;
using namespace conversion;

constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();
constexpr double kRamp = 0.01;  // seconds

constexpr const char* kSignal = "Signal";
constexpr const char* kLevel = "Level";
constexpr const char* kSweep = "Sweep";
constexpr const char* kOutput = "Output";

constexpr const char* kWaves[] = {
    "Sine",  "Triangle", "Sawtooth",      "Square",    "Pulse",        "Two-tone", "Multitone",
    "White", "Pink",     "Periodic Pink", "Log Sweep", "Linear Sweep", "Impulses"};
constexpr const char* kReferences[] = {"True Peak", "RMS"};
constexpr const char* kChannels[] = {"All",
                                     "1",
                                     "2",
                                     "3",
                                     "4",
                                     "5",
                                     "6",
                                     "7",
                                     "8",
                                     "9",
                                     "10",
                                     "11",
                                     "12",
                                     "13",
                                     "14",
                                     "15",
                                     "16",
                                     "Walk",
                                     "Line-up Ident"};

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key             tag         title                   kind            min   max    def    unit  field             dirty          forward
    {"wave",           "Wave"_tag, "Signal",               Kind::List,     0,    12,    0,     "",   &S::wave,         Core::Signal,  asIs,
        {.group = kSignal, .help = "What is played.", .texts = kWaves}},
    {"frequency",      "Freq"_tag, "Frequency",            Kind::Float,    1,    40000, 1000,  "Hz", &S::frequency,    Core::Signal,  asIs,
        {.group = kSignal, .help = "Frequency of the wave, of the first tone, of the impulses, and where a sweep begins.", .shortTitle = "Freq", .curve = &curve::logarithmic}},
    {"frequency2",     "Frq2"_tag, "End Frequency",        Kind::Float,    1,    40000, 20000, "Hz", &S::frequency2,   Core::Signal,  asIs,
        {.group = kSignal, .help = "Where a sweep ends, and the second of two tones.", .shortTitle = "End", .curve = &curve::logarithmic}},
    {"level",          "Levl"_tag, "Level",                Kind::Float,    -120, 0,     -18,   "dB", &S::level,        Core::Signal,  asIs,
        {.group = kLevel, .help = "Level of the signal, which is never passed, between the samples either."}},
    {"reference",      "LRef"_tag, "Level Means",          Kind::List,     0,    1,     0,     "",   &S::reference,    Core::Signal,  asIs,
        {.group = kLevel, .help = "Whether the level is that of the true peak or of the RMS, where a full-scale sine is 0 dB.", .shortTitle = "Means", .texts = kReferences}},
    {"width",          "PWid"_tag, "Pulse Width",          Kind::Float,    1,    99,    25,    "%",  &S::width,        Core::Signal,  percent,
        {.group = kSignal, .help = "How much of a cycle the pulse takes.", .shortTitle = "Width"}},
    {"length",         "Leng"_tag, "Sweep Length",         Kind::Float,    0.1f, 60,    10,    "s",  &S::length,       Core::Signal,  asIs,
        {.group = kSweep, .help = "Length of a sweep; a logarithmic one is rounded to whole periods.", .shortTitle = "Length", .curve = &curve::logarithmic}},
    {"pause",          "Paus"_tag, "Pause",                Kind::Float,    0,    10,    1,     "s",  &S::pause,        Core::Signal,  asIs,
        {.group = kSweep, .help = "Silence between one sweep and the next."}},
    {"repeat",         "Rept"_tag, "Repeat",               Kind::Toggle,   0,    1,     1,     "",   &S::repeat,       Core::Signal,  asIs,
        {.group = kSweep, .help = "One sweep follows another."}},
    {"start",          "Strt"_tag, "Start",                Kind::Trigger,  0,    1,     0,     "",   nullptr,          Core::Start,   asIs,
        {.group = kSweep, .help = "Sweep, impulses, walk and ident begin anew."}},
    {"snap",           "Snap"_tag, "Snap to Bins",         Kind::Toggle,   0,    1,     0,     "",   &S::snap,         Core::Signal,  asIs,
        {.group = kSignal, .help = "Moves steady tones to lines of a transform of 32768 samples, which then shows them without leakage.", .shortTitle = "Snap"}},
    {"channels",       "Chan"_tag, "Channels",             Kind::List,     0,    18,    0,     "",   &S::channels,     Core::Routing, asIs,
        {.group = kOutput, .help = "Which channels play: all, one, each for a second in turn, or all with gaps in the first that tell left from right.", .texts = kChannels}},
    {"invert",         "Invt"_tag, "Invert Even Channels", Kind::Toggle,   0,    1,     0,     "",   &S::invert,       Core::Routing, asIs,
        {.group = kOutput, .help = "Turns the second, fourth, ... channel upside down.", .shortTitle = "Invert"}},
    {"independent",    "Indp"_tag, "Independent Noise",    Kind::Toggle,   0,    1,     0,     "",   &S::independent,  Core::Signal,  asIs,
        {.group = kOutput, .help = "Each channel has a noise of its own.", .shortTitle = "Indep"}},
    {"through",        "Thru"_tag, "Add to Input",         Kind::Toggle,   0,    1,     0,     "",   &S::through,      Core::Routing, asIs,
        {.group = kOutput, .help = "The signal is added to what comes in, instead of taking its place.", .shortTitle = "Add"}},
    {"run",            "Run "_tag, "Run",                  Kind::Toggle,   0,    1,     1,     "",   &S::run,          Core::Signal,  asIs,
        {.group = kOutput, .help = "Plays; switched on, everything begins anew."}},
    {"bypass",         "Bypa"_tag, "Bypass",               Kind::Bypass},
    {"frequencyinuse", "Frq "_tag, "Frequency in Use",     Kind::Reading,  0,    192000, kNothing, "Hz"},
    {"peakbound",      "PkDB"_tag, "Peak Bound",           Kind::Reading,  -144, 0,     -144,  "dB"},
    {"lowered",        "LRed"_tag, "Lowered",              Kind::Reading,  0,    24,    0,     "dB"},
    {"progress",       "Prog"_tag, "Progress",             Kind::Reading,  0,    1,     kNothing, ""},
};
// clang-format on

ToneSettings toneSettings(const ToneGeneratorSettings& s) noexcept
{
    // A time as it was typed: 0.1 s as a float is a sample too long.
    const auto typed = [](float seconds) { return std::round(double(seconds) * 1e5) / 1e5; };
    return {.wave = static_cast<Wave>(static_cast<int>(s.wave)),
            .frequency = double(s.frequency),
            .frequency2 = double(s.frequency2),
            .level = s.level == 0 ? 1 : dbToGain(double(s.level)),
            .levelIsRms = s.reference != 0,
            .width = double(s.width),
            .seconds = typed(s.length),
            .pause = typed(s.pause),
            .repeats = s.repeat != 0,
            .snaps = s.snap != 0,
            .isIndependent = s.independent != 0,
            .runs = s.run != 0};
}

void layScaled(float* out, const double* x, double gain, int n) noexcept
{
    vec::convertScaled(out, x, gain, n);
}
void layScaled(double* out, const double* x, double gain, int n) noexcept
{
    vec::scaleCopy(out, x, gain, n);
}

/// Of a ramp over a whole sub-block, at its k-th frame.
double valueAt(Ramp<double> ramp, int k) noexcept
{
    return ramp.from + (ramp.to - ramp.from) * ((k + 1) / double(kSubBlock));
}

}  // namespace

template <typename T> void ToneGeneratorCore<T>::prepare(const ProcessSpec& spec)
{
    source_.prepare(spec.sampleRate, spec.layout.channels);
    routing_.prepare(spec.sampleRate, spec.layout.channels);
    through_.prepare(spec.sampleRate, kRamp);
}

template <typename T> void ToneGeneratorCore<T>::reset() noexcept
{
    source_.reset();
    isFresh_ = true;
}

template <typename T> void ToneGeneratorCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Signal) source_.set(toneSettings(s));
    if (dirty & Start) source_.start();
    if (dirty & Routing) {
        routing_.set(static_cast<int>(s.channels), s.invert != 0);
        through_.target(s.through != 0 ? 1 : 0);
    }
}

template <typename T> void ToneGeneratorCore<T>::nextSubBlock() noexcept
{
    source_.next();
    if (source_.hasBegun()) routing_.begin();
    routing_.next(isFresh_);
    if (std::exchange(isFresh_, false)) through_.snap();
    input_ = through_.next();
}

template <typename T> void ToneGeneratorCore<T>::write(const AudioBlock<T>& slice, int c) noexcept
{
    T* const out = slice[c];
    const int n = slice.frames;
    const double* const x = source_.of(c) + slice.phase;
    const auto gain = source_.isSounding() ? routing_.gain(c) : Ramp<double>{0, 0};
    if (!gain.isConstant() || !input_.isConstant()) {
        const bool hasInput = input_.from > 0 || input_.to > 0;  // what is not heard may be NaN
        for (int i = 0; i < n; ++i) {
            const double in = hasInput ? double(out[i]) * valueAt(input_, slice.phase + i) : 0;
            out[i] = static_cast<T>(in + x[i] * valueAt(gain, slice.phase + i));
        }
    } else if (input_.to > 0) {
        if (gain.to != 0) vec::addScaled(out, x, static_cast<T>(gain.to), n);
    } else if (gain.to != 0) {
        layScaled(out, x, gain.to, n);
    } else {
        vec::clear(out, n);
    }
}

template <typename T> void ToneGeneratorCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [&](const AudioBlock<T>& slice) {
        if (slice.begins()) nextSubBlock();
        for (int c = 0; c < slice.outputChannels; ++c) write(slice, c);
    });
}

template <typename T> void ToneGeneratorCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publish("Frq "_tag, static_cast<float>(source_.frequency()));
    meters.publish("PkDB"_tag, static_cast<float>(gainToDb(source_.bound())));
    meters.publish("LRed"_tag, static_cast<float>(source_.lowered()));
    const double progress = std::isnan(source_.progress()) && routing_.isWalk()
                                ? routing_.progress()
                                : source_.progress();
    meters.publish("Prog"_tag, static_cast<float>(progress));
}

template class ToneGeneratorCore<float>;
template class ToneGeneratorCore<double>;

SignalGeneratorAlgorithm::SignalGeneratorAlgorithm() : PrecisionAlgorithm(kParameters) {}

void SignalGeneratorAlgorithm::prepareCore(const ProcessSpec& spec, VNK::Precision precision)
{
    rate_.store(spec.sampleRate, std::memory_order_release);
    {
        const std::lock_guard lock(outputMutex_);
        output_ = spec.layout;
    }
    PrecisionAlgorithm::prepareCore(spec, precision);
    withCore([this](auto& core) { core.setTables(tables_); });
}

VNK::SpeakerArrangement SignalGeneratorAlgorithm::preparedOutput() const noexcept
{
    const std::lock_guard lock(outputMutex_);
    return output_;
}

SignalGeneratorComponent::SignalGeneratorComponent(SignalGeneratorAlgorithm& algorithm)
    : VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays>(
          algorithm,
          {.viewPrefix = "SignalGenerator", .kind = "generator", .layouts = "stereo;mono;5.1"}),
      algorithm_(algorithm),
      maker_([this](const WorkerJob::Progress& progress) { makeTables(progress); })
{}

Delays SignalGeneratorComponent::delays(double) const noexcept
{
    return {0, isOn("run") ? VNK::kEndlessTail : 0};
}

void SignalGeneratorComponent::changed(const AlgorithmParameter& parameter, float, Setter) noexcept
{
    if (parameter.tag == "Wave"_tag) followTables();
}

/// Asks for the tables of the present rate where the signal is read from one.
void SignalGeneratorComponent::followTables() noexcept
{
    const double rate = algorithm_.preparedRate();
    const bool isWanted = rate > 0 && isPeriodic(static_cast<Wave>(int(value("wave"))));
    if (isWanted && givenRate_.load(std::memory_order_acquire) != rate) maker_.request();
}

void SignalGeneratorComponent::makeTables(const WorkerJob::Progress& progress)
{
    const double rate = algorithm_.preparedRate();
    if (givenRate_.load(std::memory_order_relaxed) == rate) return;
    auto made = PeriodicSignals::of(rate, [&] { return progress.isCancelled(); });
    if (!made) return;
    algorithm_.tables().give(std::make_unique<std::shared_ptr<const PeriodicSignals>>(made));
    {
        const std::lock_guard lock(mutex_);
        signals_ = std::move(made);
    }
    givenRate_.store(rate, std::memory_order_release);
}

std::shared_ptr<const PeriodicSignals> SignalGeneratorComponent::signals() const
{
    const std::lock_guard lock(mutex_);
    return signals_ && signals_->rate == algorithm_.preparedRate() ? signals_ : nullptr;
}

const char* SignalGeneratorComponent::displayName(std::int32_t index) const noexcept
{
    return index == 0 ? "trace" : nullptr;
}

bool SignalGeneratorComponent::snapshot(const char* name, VNK::IDisplaySink* sink) noexcept
{
    if (!name || !sink || std::string_view(name) != "trace") return false;
    try {
        S values{};
        for (const auto& row : kParameters)
            if (row.field) values.*row.field = row.forward(value(row.key));
        const auto held = signals();
        const double rate = algorithm_.preparedRate();
        const auto trace =
            traceOf(toneSettings(values), rate > 0 ? rate : ProcessSpec{}.sampleRate, held.get());
        const int only = static_cast<int>(values.channels) - kOneChannel;
        const auto layout = algorithm_.preparedOutput();
        std::istringstream names(layout.names());
        sink->number("lost", 0);
        sink->number("period", trace.period);
        sink->beginList("channels");
        for (int c = 0; c < layout.channels && !trace.samples.empty(); ++c) {
            const bool isSilent = only >= 0 && only < kWalk - kOneChannel && only != c;
            const double sign = values.invert != 0 && c % 2 == 1 ? -1 : 1;
            auto samples = trace.samples;
            vec::scale(samples.data(), isSilent || values.run == 0 ? 0 : sign,
                       static_cast<int>(samples.size()));
            std::string title = "-";
            names >> title;
            sink->beginObject(nullptr);
            sink->text("name", title.c_str());
            sink->numbers("samples", samples.data(), static_cast<std::int64_t>(samples.size()));
            sink->end();
        }
        sink->end();
    } catch (...) {  // out of memory
        return false;
    }
    return true;
}

}  // namespace quillworks
