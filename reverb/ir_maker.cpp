// SPDX-License-Identifier: ISC
#include "reverb/ir_maker.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = IrMakerCore<float>;
using S = IrMakerSettings;
using namespace conversion;

constexpr double kFadeSeconds = 0.01;
constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();

constexpr const char* kSources[] = {"First Output", "All at Once", "Each in Turn"};
constexpr const char* kPasses[] = {"1 pass", "2 passes", "4 passes", "8 passes"};
constexpr const char* kAligns[] = {"As Recorded", "Minus Latency", "To Onset"};
constexpr const char* kFormats[] = {"WAV 24", "WAV float", "FLAC 24"};
constexpr const char* kStates[] = {"Idle", "Noise", "Sweep", "Tail", "Solving", "Done", "Failed"};

constexpr auto kSet = VNK::isNotAutomatable;

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key             tag         title             kind            min    max    def  unit        field             dirty         forward
    {"start",         "Strt"_tag, "Start",          Kind::Trigger,    0,     1,     0, "",         nullptr,          0,            asIs,
        {.group = "Measurement", .help = "Begins a measurement: half a second of silence, then the sweeps.", .flags = kSet}},
    {"stop",          "Stop"_tag, "Stop",           Kind::Trigger,    0,     1,     0, "",         nullptr,          0,            asIs,
        {.group = "Measurement", .help = "Ends the measurement; nothing is written.", .flags = kSet}},
    {"mode",          "Mode"_tag, "Sources",        Kind::List,       0,     2,     2, "",         nullptr,          0,            asIs,
        {.group = "Sweep", .help = "Which outputs play the sweep: the first, all together, or one after the other.", .texts = kSources, .flags = kSet}},
    {"sweeplength",   "SwLn"_tag, "Sweep Length",   Kind::Float,      1,    60,     8, "s",        &S::sweepLength,  Core::Length, asIs,
        {.group = "Sweep", .help = "A longer sweep lifts the response further out of the noise and keeps distortion further away from it.", .shortTitle = "Length", .curve = &curve::logarithmic, .flags = kSet}},
    {"taillength",    "TlLn"_tag, "Tail Length",    Kind::Float,   0.5f,    30,     4, "s",        nullptr,          0,            asIs,
        {.group = "Sweep", .help = "Time for the room to die away behind each sweep: the longest response.", .shortTitle = "Tail", .curve = &curve::logarithmic, .flags = kSet}},
    {"lowfreq",       "LoFq"_tag, "From",           Kind::Float,      5,   200,    20, "Hz",       &S::lowFrequency, Core::Length, asIs,
        {.group = "Sweep", .help = "Where the sweep begins; it ends at half the sample rate.", .curve = &curve::logarithmic, .flags = kSet}},
    {"level",         "Levl"_tag, "Level",          Kind::Float,    -60,     0,   -18, "Media.DB", nullptr,          0,            asIs,
        {.group = "Sweep", .help = "Peak of the sweep.", .curve = &curve::decibel, .flags = VNK::isDecibel | kSet}},
    {"passes",        "Pass"_tag, "Passes",         Kind::List,       0,     3,     0, "",         nullptr,          0,            asIs,
        {.group = "Sweep", .help = "How often each sweep is played; the mean of all lowers steady noise.", .texts = kPasses, .flags = kSet}},
    {"align",         "Algn"_tag, "Align",          Kind::List,       0,     2,     2, "",         nullptr,          0,            asIs,
        {.group = "Response", .help = "Where the file begins: with the sweep, behind the latency set here, or 1 ms before the first sound.", .texts = kAligns, .flags = kSet}},
    {"latency",       "Latc"_tag, "Latency",        Kind::Float,      0,  1000,     0, "Media.Milliseconds", nullptr, 0,          asIs,
        {.group = "Response", .help = "What converters and drivers add to the way, taken away by Minus Latency.", .flags = kSet}},
    {"trim",          "Trim"_tag, "Trim",           Kind::Toggle,     0,     1,     1, "",         nullptr,          0,            asIs,
        {.group = "Response", .help = "Ends the file where the last octave has sunk into the noise.", .flags = kSet}},
    {"normalise",     "Norm"_tag, "Normalise",      Kind::Toggle,     0,     1,     1, "",         nullptr,          0,            asIs,
        {.group = "Response", .help = "Brings the largest sample of all paths to -1 dB.", .flags = kSet}},
    {"format",        "Frmt"_tag, "Format",         Kind::List,       0,     2,     1, "",         nullptr,          0,            asIs,
        {.group = "Response", .help = "Kind of the file; what a kind cannot hold is written as WAV.", .texts = kFormats, .flags = kSet}},
    {"harmonics",     "Harm"_tag, "Harmonics",      Kind::Toggle,     0,     1,     0, "",         nullptr,          0,            asIs,
        {.group = "Response", .help = "Also writes the responses of the harmonics 2 to 5, each to a file beside.", .flags = kSet}},
    {"thru",          "Thru"_tag, "Monitor Input",  Kind::Toggle,     0,     1,     0, "",         &S::thru,         Core::Thru,   asIs,
        {.group = "Measurement", .help = "Passes the input on while nothing is measured. Beware of howling.", .shortTitle = "Monitor", .flags = kSet}},
    {"bypass",        "Bypa"_tag, "Bypass",         Kind::Bypass},
    {"state",          "MkSt"_tag, "State",             Kind::Reading,    0,       6,     0, "", nullptr, 0, asIs, {.texts = kStates}},
    {"progress",       "MkPr"_tag, "Progress",          Kind::Reading,    0,     100,     0, "%"},
    PeakLevels<float>::inputRow<S>(),
    {"sweeptime",      "SwTm"_tag, "Sweep Played",      Kind::Reading,    0,      70,     0, "s"},
    {"clipped",        "ClIn"_tag, "Clipped",           Kind::Reading,    0, 16777216, kNothing, "samples"},
    {"noisefloor",     "NsFl"_tag, "Noise Floor",       Kind::Reading, -200,      20, kNothing, "dB"},
    {"responsetonoise","SnRt"_tag, "Response to Noise", Kind::Reading,    0,     200, kNothing, "dB"},
    {"latencyfound",   "LtFd"_tag, "Latency Found",     Kind::Reading,    0, 16777216, kNothing, "samples"},
    {"thd",            "ThdR"_tag, "Distortion",        Kind::Reading,    0,     100, kNothing, "%"},
    {"t30",            "T30m"_tag, "T30",               Kind::Reading,    0,      60, kNothing, "s"},
    {"c80",            "C80m"_tag, "C80",               Kind::Reading,  -60,      60, kNothing, "dB"},
};
// clang-format on

/// What a measurement is planned by.
constexpr std::string_view kPlanned[] = {"mode",    "sweeplength", "taillength",
                                         "lowfreq", "level",       "passes"};

constexpr VNK::TextInfo kFolder{
    .key = "folder",
    .title = "Folder",
    .help = "Where responses are written; left empty, the library of responses.",
    .kind = VNK::TextKind::Folder};
constexpr VNK::TextInfo kName{.key = "name",
                              .title = "Name",
                              .help = "Name of the file; one that exists gets a number.",
                              .defaultText = "Response"};

}  // namespace

template <typename T> void IrMakerCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    inputs_ = spec.inputLayout.channels;
    outputs_ = spec.layout.channels;
    monitor_.prepare(spec.sampleRate, kFadeSeconds);
    monitorGains_.prepare(inputs_, outputs_, [&](int from, int to) {
        return placedBypassGain(spec.inputLayout, spec.layout, from, to);
    });
    dry_.resize(static_cast<std::size_t>(inputs_));
}

template <typename T>
void IrMakerCore<T>::setExchange(CaptureExchange& exchange, std::uint32_t serial) noexcept
{
    run_.prepare(exchange, serial, sampleRate_);
}

template <typename T> void IrMakerCore<T>::reset() noexcept
{
    run_.reset();
    monitor_.target(isMonitored_ ? T(1) : T(0));
    monitor_.snap();
    monitorCourse_.set(monitor_.current());
}

template <typename T>
void IrMakerCore<T>::apply(const IrMakerSettings& settings, unsigned dirty) noexcept
{
    if (dirty & Length)
        sweepSeconds_ = Sweep(SweepSettings{sampleRate_, double(settings.sweepLength),
                                            double(settings.lowFrequency)})
                            .seconds();
    if (dirty & Thru) isMonitored_ = settings.thru != 0;
}

template <typename T> void IrMakerCore<T>::process(const AudioBlock<T>& block) noexcept
{
    peaks_.begin();
    forEachSubBlock(block, [this](const AudioBlock<T>& part) { processSlice(part); });
}

/// The loopback that belongs to what is played, null where nothing is connected.
template <typename T>
const float* IrMakerCore<T>::takeReference(const AudioBlock<T>& part, float* room) const noexcept
{
    if (part.sideChainChannels == 0) return nullptr;
    const T* const x = part.side(std::min(run_.source(), part.sideChainChannels - 1));
    for (int i = 0; i < part.frames; ++i) room[i] = static_cast<float>(x[i]);
    sanitise(room, part.frames, kLoudestSignal);
    return room;
}

template <typename T> void IrMakerCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    if (part.begins()) run_.follow();
    const int heard = std::min(inputs_, part.inputChannels);
    for (int c = 0; c < heard; ++c) peaks_.measureInput(part[c], part.frames);

    float rows[kMostMeasured][kSubBlock], loopback[kSubBlock];
    const float* inputs[kMostMeasured];
    const bool isUnderWay = run_.isUnderWay();
    for (int c = 0; isUnderWay && c < inputs_; ++c) {
        const T* const x = part[c];
        for (int i = 0; i < part.frames; ++i) rows[c][i] = static_cast<float>(x[i]);
        sanitise(rows[c], part.frames, kLoudestSignal);
    }
    passThrough(part);
    for (int done = 0; done < part.frames;) {
        const auto step = run_.step(part.frames - done);
        const AudioBlock<T> piece = part.slice(done, step.frames);
        for (int o = step.firstOutput; step.sweep && o < step.firstOutput + step.outputs; ++o) {
            T* const out = piece[o];
            for (int i = 0; i < step.frames; ++i)
                out[i] += T(step.sweep[i]) * T(step.gain + step.gainStep * static_cast<float>(i));
        }
        for (int c = 0; c < inputs_; ++c) inputs[c] = rows[c] + done;
        run_.advance(step, inputs, takeReference(piece, loopback));
        done += step.frames;
    }
}

/// The input where it is asked for and nothing is measured; else silence: between microphone and
/// loudspeaker anything else would howl.
template <typename T> void IrMakerCore<T>::passThrough(const AudioBlock<T>& part) noexcept
{
    monitor_.target(isMonitored_ && !run_.isUnderWay() ? T(1) : T(0));
    monitorCourse_.follow(monitor_, part);
    if (monitorCourse_.is(0)) {
        for (int o = 0; o < part.outputChannels; ++o) vec::clear(part[o], part.frames);
        return;
    }
    if (!monitorGains_.isIdentity()) {
        const T* inputs[kMostMeasured];
        for (int c = 0; c < inputs_; ++c) {
            vec::copy(dry_[static_cast<std::size_t>(c)].data(), part[c], part.frames);
            inputs[c] = dry_[static_cast<std::size_t>(c)].data();
        }
        for (int o = 0; o < std::min(outputs_, part.outputChannels); ++o)
            monitorGains_.play(inputs, std::min(inputs_, part.inputChannels), o, part[o],
                               part.frames);
    }
    for (int o = 0; o < part.outputChannels; ++o) monitorCourse_.scale(part[o], part);
}

template <typename T> void IrMakerCore<T>::publish(MeterSlots& meters) noexcept
{
    peaks_.publish(meters);
    meters.publish("SwTm"_tag, static_cast<float>(sweepSeconds_));
    meters.publish("MkPr"_tag, static_cast<float>(100 * run_.progress()));
    if (run_.tellsState()) meters.publish("MkSt"_tag, static_cast<float>(run_.state()));
    run_.handOver();
}

template class IrMakerCore<float>;
template class IrMakerCore<double>;

IrMakerAlgorithm::IrMakerAlgorithm() : PrecisionAlgorithm(kParameters) {}

bool IrMakerAlgorithm::acceptsArrangement(const VNK::SpeakerArrangement& input,
                                          const VNK::SpeakerArrangement& output) const noexcept
{
    const auto isIn = [](int channels) { return channels >= 1 && channels <= kMostMeasured; };
    return isIn(input.channels) && isIn(output.channels);
}

void IrMakerAlgorithm::prepareCore(const ProcessSpec& spec, VNK::Precision precision)
{
    // A recording under way ends before the core that makes it goes.
    withCore([](auto& core) { core.reset(); });
    exchange_.prepare(spec.sampleRate, spec.inputLayout.channels, spec.layout.channels);
    PrecisionAlgorithm::prepareCore(spec, precision);
    withCore([this](auto& core) { core.setExchange(exchange_, exchange_.shape().serial); });
}

IrMakerComponent::IrMakerComponent(IrMakerAlgorithm& algorithm)
    : VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays, VNK::IImpulseResponses>(
          algorithm, EffectTraits{.viewPrefix = "IrMaker",
                                  .kind = "utility",
                                  .layouts = "stereo;mono;mono>stereo"}),
      measured_(algorithm),
      name_(kName.defaultText),
      maker_(algorithm.exchange(), meterSlots(),
             [this](const CaptureShape& shape) { return wishes(shape); }),
      worker_([this](const WorkerJob::Progress& progress) { maker_.run(progress); })
{
    declareText(kFolder);
    declareText(kName);
    algorithm.exchange().setWorker(&worker_);
}

IrMakerComponent::~IrMakerComponent()
{
    measured_.exchange().setWorker(nullptr);
}

void IrMakerComponent::changed(const AlgorithmParameter& parameter, float /*before*/,
                               Setter /*by*/) noexcept
{
    auto& exchange = measured_.exchange();
    const std::string_view key = parameter.key;
    if (key == "start" && !isOn("bypass")) exchange.start();
    if (key == "stop" || (key == "bypass" && isOn("bypass"))) exchange.stop();
    const bool isPlanned =
        std::find(std::begin(kPlanned), std::end(kPlanned), key) != std::end(kPlanned);
    if (isPlanned && exchange.isWaiting()) exchange.requestWork();
}

void IrMakerComponent::reconcile() noexcept
{
    if (isOn("bypass")) measured_.exchange().stop();
}

/// On the worker thread.
ResponseMaker::Wishes IrMakerComponent::wishes(const CaptureShape& shape) const
{
    const auto number = [this](const char* key) { return double(value(key)); };
    const auto choice = [this](const char* key) { return static_cast<int>(value(key)); };
    ResponseMaker::Wishes w;
    w.plan.sweep = {shape.sampleRate, number("sweeplength"), number("lowfreq"),
                    dbToGain(number("level"))};
    w.plan.tailSeconds = number("taillength");
    w.plan.sources = static_cast<CapturePlan::Sources>(choice("mode"));
    w.plan.inputs = shape.inputs;
    w.plan.outputs = shape.outputs;
    w.plan.passes = 1 << choice("passes");
    w.plan.hasReference = measured_.isSideChainActive();
    w.options = {static_cast<Align>(choice("align")), number("latency") / 1000, isOn("trim"),
                 isOn("normalise"), isOn("harmonics")};
    constexpr VNK::SoundKind kKinds[] = {VNK::SoundKind::Wav24, VNK::SoundKind::WavFloat,
                                         VNK::SoundKind::Flac24};
    w.target.kind = kKinds[choice("format")];
    const std::lock_guard lock(mutex_);
    w.target.folder = folder_;
    w.target.name = name_;
    return w;
}

bool IrMakerComponent::acceptsText(const std::string& key, const std::string& text,
                                   std::string& reason) const
{
    reason.clear();
    std::error_code error;
    if (key == kFolder.key && !text.empty() && !std::filesystem::is_directory(text, error))
        reason = "there is no folder \"" + text + "\"";
    if (key == kName.key && (text.empty() || text.find('/') != std::string::npos || text[0] == '.'))
        reason = "a file cannot be called \"" + text + "\"";
    return reason.empty();
}

void IrMakerComponent::textChanged(const std::string& key) noexcept
{
    const std::lock_guard lock(mutex_);
    (key == kFolder.key ? folder_ : name_) = text(key);
}

std::string IrMakerComponent::problemOf(const std::string& key) const
{
    std::string reason;
    if (!acceptsText(key, text(key), reason)) return reason;
    const auto report = maker_.report();
    return key == kFolder.key && report ? report->failure : std::string();
}

}  // namespace quillworks
