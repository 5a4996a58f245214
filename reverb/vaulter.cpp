// SPDX-License-Identifier: ISC
#include "reverb/vaulter.h"

#include <algorithm>

#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = VaulterCore<float>;
using S = VaulterSettings;
using Loader = VaulterLoader;
using namespace conversion;

constexpr double kGlideSeconds = 0.03;
constexpr double kEntrySeconds = 0.05;   // from sound to sound
constexpr double kSettleSeconds = 0.08;  // without a change, until a new sound is taken
constexpr const char* kFile = "irfile";
constexpr const char* kFit = "irfit";
constexpr const char* kData = "irdata";
/// As much as a state holds.
constexpr std::size_t kMostEmbedded = kLargestChunkBlobs - 4096;

constexpr const char* kTails[] = {"Whole", "Continue", "Replace"};
constexpr const char* kRoutings[] = {"Auto", "Mono", "Stereo", "True Stereo"};
constexpr const char* kStatuses[] = {"None", "Loading", "Playing", "Missing", "Unreadable"};

constexpr const char* kTail = "Tail";
constexpr const char* kResponse = "Response";

// clang-format off
constexpr std::array kTailRows{
    // key                       tag         title            kind          min    max   def  unit                  field            dirty           forward
    Parameter<S>{"tailmode",    "TlMd"_tag, "Tail",          Kind::List,   0,     2,    0,   "",                   &S::tailMode,    Core::Response, asIs,
     {.group = kTail, .help = "The whole recording, or its tail made anew: as it decays there, or in a time of your own.", .texts = kTails}},
    Parameter<S>{"tailstart",   "TlSt"_tag, "Tail Start",    Kind::Float,  60,    2000, 200, "Media.Milliseconds", &S::tailStart,   Core::Response, asIs,
     {.group = kTail, .help = "Where in the recording the made tail takes over.", .shortTitle = "Start", .curve = &curve::logarithmic}},
    Parameter<S>{"decay",       "Deca"_tag, "Decay",         Kind::Float,  0.25f, 4,    1,   "x",                  &S::decay,       Core::Response | Core::Tail, asIs,
     {.group = kTail, .help = "Decay against that of the recording; longer ones need a made tail.", .curve = &curve::logarithmic, .origin = 1.0f}},
    Parameter<S>{"replacetime", "RpTm"_tag, "Replace Time",  Kind::Float,  0.1f,  30,   2,   "s",                  &S::replaceTime, Core::Tail,     asIs,
     {.group = kTail, .help = "Decay at 1 kHz of a tail that replaces the recorded one.", .shortTitle = "Time", .curve = &curve::logarithmic}},
};
constexpr std::array kResponseRows{
    Parameter<S>{"start",       "IrSt"_tag, "Start",         Kind::Float,  0,     500,  0,   "Media.Milliseconds", &S::start,       Core::Response, asIs,
     {.group = kResponse, .help = "Cuts the front of the recording."}},
    Parameter<S>{"length",      "IrLn"_tag, "Length",        Kind::Float,  2,     100,  100, "%",                  &S::length,      Core::Response, asIs,
     {.group = kResponse, .help = "How much of the recording is played before it is faded out.", .curve = &curve::logarithmic}},
    Parameter<S>{"stretch",     "Strc"_tag, "Stretch",       Kind::Float,  50,    200,  100, "%",                  &S::stretch,     Core::Response, asIs,
     {.group = kResponse, .help = "Draws the recording out to a larger room, or a smaller one.", .curve = &curve::logarithmic, .origin = 100.0f}},
    Parameter<S>{"reverse",     "Rvrs"_tag, "Reverse",       Kind::Toggle, 0,     1,    0,   "",                   &S::reverse,     Core::Response, asIs,
     {.group = kResponse, .help = "Plays the recording backwards, whole."}},
    Parameter<S>{"routing",     "Rout"_tag, "Routing",       Kind::List,   0,     3,    0,   "",                   &S::routing,     Core::Response, asIs,
     {.group = kResponse, .help = "Which of the recording's channels serve which ways from input to output.", .texts = kRoutings}},
};
constexpr std::array kLevelRows{
    Parameter<S>{"early",       "ErLv"_tag, "Early",         Kind::Float,  -60,   12,   0,   "dB",                 &S::early,       Core::Level,    decibelsOffAt<-60>,
     {.group = "Output", .help = "Level of the recording.", .curve = &curve::decibel, .minText = "Off", .flags = kGainFlags}},
    Parameter<S>{"late",        "LtLv"_tag, "Tail Level",    Kind::Float,  -60,   12,   0,   "dB",                 &S::late,        Core::Level,    decibelsOffAt<-60>,
     {.group = "Output", .help = "Level of the made tail.", .shortTitle = "Tail", .curve = &curve::decibel, .minText = "Off", .flags = kGainFlags}},
};
constexpr std::array kOutputRows{
    Parameter<S>{"autolevel",   "AuLv"_tag, "Auto Level",    Kind::Toggle, 0,     1,    1,   "",                   &S::autoLevel,   Core::Level,    asIs,
     {.group = "Output", .help = "Brings every recording to the same loudness.", .shortTitle = "Auto"}},
    Parameter<S>{"level",       "Levl"_tag, "Level",         Kind::Float,  -24,   24,   0,   "dB",                 &S::level,       S::Mix,         decibels,
     {.group = "Output", .help = "Level of the reverberation.", .flags = kGainFlags}},
    Parameter<S>{"embed",       "Embd"_tag, "Embed File",    Kind::Toggle, 0,     1,    0,   "",                   &S::embed,       0,              asIs,
     {.group = kResponse, .help = "Songs and presets carry the recording itself, up to 16 MiB, and presets what fits them.", .shortTitle = "Embed", .flags = VNK::isNotAutomatable}},
};
constexpr std::array kReadings{
    Parameter<S>{"loadstatus",   "LdSt"_tag, "Status",   Kind::Meter, 0, 4,   0, "",  nullptr, 0, asIs, {.texts = kStatuses}},
    Parameter<S>{"loadprogress", "LdPr"_tag, "Progress", Kind::Meter, 0, 100, 0, "%"},
};
// clang-format on
constexpr auto kParameters = joinedRows(
    kTailRows, preDelayRows<S>(), kResponseRows, kLevelRows,
    reverbMotionRow<S>(30, &S::motion, Core::Tail), reverbFreezeRow(&S::freeze, Core::Tail),
    reverbLowCutRow<S>(), reverbHighCutRow<S>(), reverbWidthRows<S>(), kOutputRows,
    reverbMixRows<S>(30), reverbReadings<S>(), kReadings);

/// What the loader is told of, by key.
constexpr std::pair<const char*, Loader::Value> kLoaderValues[] = {
    {"start", Loader::Start},        {"length", Loader::Length},   {"stretch", Loader::Stretch},
    {"reverse", Loader::Reverse},    {"routing", Loader::Routing}, {"tailmode", Loader::Mode},
    {"tailstart", Loader::TailFrom}, {"decay", Loader::Decay},
};

}  // namespace

template <typename T> void VaulterCore<T>::prepare(const ProcessSpec& spec)
{
    path_.prepare(spec);
    const double halfLife = halfLifeSubBlocks(spec.sampleRate, kGlideSeconds);
    early_.prepareHalfLife(halfLife);
    late_.prepareHalfLife(halfLife);
    autoLevel_.prepare(spec.sampleRate, kEntrySeconds);
    entry_.prepare(spec.sampleRate, kEntrySeconds);
    leaving_.prepare(spec.sampleRate, kEntrySeconds);
    settled_ = fadeFrames(spec.sampleRate, kSettleSeconds);
}

template <typename T>
void VaulterCore<T>::connect(const VaulterLoader& loader,
                             std::shared_ptr<VaulterExchange<T>> exchange)
{
    loader_ = &loader;
    exchange_ = std::move(exchange);
}

template <typename T> void VaulterCore<T>::reset() noexcept
{
    path_.reset();
    early_.snap();
    earlies_.set(early_.current());
    late_.snap();
    lates_.set(late_.current());
    autoLevel_.snap();
    entry_.finish();
    isLeaving_ = false;
    previousLeft_ = 0;
    isFresh_ = true;
    sinceChange_ = settled_;
    setTails();
    if (auto* const sound = exchange_ ? exchange_->sounds.current() : nullptr) sound->reset();
}

template <typename T> void VaulterCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    path_.apply(s, dirty);
    if (dirty & Response) sinceChange_ = 0;
    if (dirty & Tail) {
        controls_ = {double(s.decay), double(s.replaceTime), double(s.motion), s.freeze != 0};
        setTails();
    }
    if (dirty & Level) {
        early_.target(T(s.early));
        late_.target(T(s.late));
        autoLevel_.target(s.autoLevel != 0);
    }
}

/// A sound that is being left decays whatever is frozen.
template <typename T> void VaulterCore<T>::setTails() noexcept
{
    if (!exchange_) return;
    if (auto* const sound = exchange_->sounds.current()) sound->setTail(controls_);
    TailControls released = controls_;
    released.isFrozen = false;
    if (auto* const sound = exchange_->sounds.previous()) sound->setTail(released);
}

template <typename T> void VaulterCore<T>::process(const AudioBlock<T>& block) noexcept
{
    path_.process(block, [this](const T* const* in, T* const* out, GridSlice slice) {
        play(in, out, slice);
    });
}

/// A new sound lies ready and nothing has changed for a while. What is frozen stays.
template <typename T> bool VaulterCore<T>::mayTake() const noexcept
{
    const auto& sounds = exchange_->sounds;
    if (!sounds.isWaiting() || loader_->isBusy()) return false;
    const auto* const present = sounds.current();
    if (isFresh_ || !present) return true;
    return sinceChange_ >= settled_ && !(controls_.isFrozen && present->hasTank());
}

template <typename T> void VaulterCore<T>::beginSubBlock() noexcept
{
    if (!exchange_) return;
    auto& sounds = exchange_->sounds;
    if (sounds.previous() && previousLeft_ > 0 && !isLeaving_ && !isFresh_ && mayTake()) {
        isLeaving_ = true;
        leaving_.start();
    }
    if (isLeaving_ && !leaving_.isRunning()) {
        isLeaving_ = false;
        previousLeft_ = 0;
    }
    if (sounds.previous() && previousLeft_ <= 0 && sounds.mayRelease()) sounds.release();
    if (!sounds.previous() && mayTake()) take();
    isFresh_ = false;
}

template <typename T> void VaulterCore<T>::take() noexcept
{
    auto& sounds = exchange_->sounds;
    if (!sounds.takeEarly()) return;
    auto* const previous = sounds.previous();
    setTails();
    if (isFresh_ || !previous) {
        // Where nothing has been heard since reset it begins as if it had been there all the time.
        if (isFresh_) sounds.current()->snapTail();
        entry_.finish();
        previousLeft_ = 0;
    } else {
        entry_.start();
        previousLeft_ = previous->ringFrames() + entry_.length();
    }
}

template <typename T>
void VaulterCore<T>::play(const T* const* in, T* const* out, GridSlice slice) noexcept
{
    if (slice.begins()) beginSubBlock();
    const int n = slice.frames, channels = path_.channels();
    earlies_.follow(early_, slice);
    lates_.follow(late_, slice);
    autoLevel_.next(slice);
    auto* const sound = exchange_ ? exchange_->sounds.current() : nullptr;
    if (!sound) {
        for (int c = 0; c < channels; ++c) vec::clear(out[c], n);
    } else if (!entry_.isRunning()) {
        playSound(*sound, in, out, slice);
    } else {
        T weights[kSubBlock], faded[WetPath<T>::kMostChannels][WetPath<T>::kRow];
        entry_.weights(weights, n);
        const T* rows[WetPath<T>::kMostChannels]{};
        for (int c = 0; c < channels; ++c) {
            vec::mulCopy(faded[c], in[c], static_cast<const T*>(weights), n);
            rows[c] = faded[c];
        }
        playSound(*sound, rows, out, slice);
    }
    if (previousLeft_ > 0) playPrevious(in, out, slice);
    entry_.advance(n);
    leaving_.advance(n);
    autoLevel_.advance(n);
    sinceChange_ = std::min(sinceChange_ + n, settled_);
}

/// Adds what is left of the sound before: its share of the input until the fade is over, then
/// silence.
template <typename T>
void VaulterCore<T>::playPrevious(const T* const* in, T* const* out, GridSlice slice) noexcept
{
    const int n = slice.frames, channels = path_.channels();
    T weights[kSubBlock];
    T entering[WetPath<T>::kMostChannels][WetPath<T>::kRow];
    T heard[WetPath<T>::kMostChannels][WetPath<T>::kRow];
    const T* from[WetPath<T>::kMostChannels]{};
    T* to[WetPath<T>::kMostChannels]{};
    entry_.weights(weights, n);
    for (int c = 0; c < channels; ++c) {
        for (int i = 0; i < n; ++i) entering[c][i] = in[c][i] * (1 - weights[i]);
        from[c] = entering[c];
        to[c] = heard[c];
    }
    playSound(*exchange_->sounds.previous(), from, to, slice);
    if (isLeaving_) {
        leaving_.weights(weights, n);
        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < n; ++i) heard[c][i] *= 1 - weights[i];
    }
    for (int c = 0; c < channels; ++c) vec::addInplace(out[c], static_cast<T*>(heard[c]), n);
    previousLeft_ -= n;
}

template <typename T>
void VaulterCore<T>::playSound(VaulterSound<T>& sound, const T* const* in, T* const* out,
                               GridSlice slice) noexcept
{
    const int n = slice.frames;
    T early[kSubBlock], late[kSubBlock];
    const T gain = T(sound.autoGain());
    const T present = autoLevel_.present() ? gain : T(1);
    const T leaving = autoLevel_.leaving() ? gain : T(1);
    T weights[kSubBlock];
    autoLevel_.fade().weights(weights, n);
    const T *const e = earlies_.of(slice), *const l = lates_.of(slice);
    for (int i = 0; i < n; ++i) {
        const T g = leaving + (present - leaving) * weights[i];
        early[i] = e[i] * g;
        late[i] = l[i] * g;
    }
    sound.process(in, out, slice, early, late);
}

template <typename T> void VaulterCore<T>::publish(MeterSlots& meters) noexcept
{
    path_.publish(meters);
    if (!loader_) return;
    meters.publish("LdSt"_tag, static_cast<float>(loader_->status()));
    meters.publish("LdPr"_tag, loader_->progress());
}

template class VaulterCore<float>;
template class VaulterCore<double>;

FDNReverbAlgorithm::FDNReverbAlgorithm() : WetPathAlgorithm(kParameters) {}

void FDNReverbAlgorithm::prepareCore(const ProcessSpec& spec, VNK::Precision precision)
{
    WetPathAlgorithm::prepareCore(spec, precision);
    withCore([&](auto& core) {
        using T = typename std::decay_t<decltype(core)>::Sample;
        core.connect(loader_, loader_.connect<T>(spec));
    });
}

FDNReverbComponent::FDNReverbComponent(FDNReverbAlgorithm& algorithm)
    : VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays>(
          algorithm, {.viewPrefix = "FDNReverb",
                      .layouts = "stereo;mono;mono>stereo;quad;5.1;7.1;5.1.4;7.1.4;9.1.6"}),
      vaulter_(algorithm),
      loader_(algorithm.loader())
{
    declareText({.key = kFile,
                 .title = "File",
                 .help = "The recorded response of the room: a sound file.",
                 .defaultText = "factory:Wood Room",
                 .kind = VNK::TextKind::File});
    loader_.setListener([this] { updateDelays(); });
    tellLoader();
    textChanged(kFile);
}

FDNReverbComponent::~FDNReverbComponent()
{
    loader_.setListener(nullptr);
}

/// What a job has found decides how long the sound rings; a host that asks again gets it.
void FDNReverbComponent::updateDelays() noexcept
{
    const auto stamp = vaulter_.drawDelayStamp();
    const auto [latency, tail] = delays(loader_.sampleRate());
    vaulter_.setDelays(stamp, latency, tail, isOn("bypass"));
}

void FDNReverbComponent::tellLoader() noexcept
{
    for (const auto& [key, which] : kLoaderValues) loader_.set(which, value(key));
}

void FDNReverbComponent::changed(const AlgorithmParameter& parameter, float before,
                                 Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kPreDelaySync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
    for (const auto& [key, which] : kLoaderValues)
        if (parameter.key == key) loader_.set(which, now);
}

void FDNReverbComponent::reconcile() noexcept
{
    restored_.reset();
    tellLoader();
}

void FDNReverbComponent::restored(const StoredState& state)
{
    VaulterLoader::Source source;
    source.known = ResponseIdentity::of(state);
    if (const auto* const fit = state.attribute<Blob>(kFit))
        source.fit = ResponseFingerprint::of(*fit);
    if (const auto* const data = state.attribute<Blob>(kData)) source.embedded = data->bytes;
    source.isRestored = true;
    loader_.expect(source);
    restored_ = std::move(source);
}

void FDNReverbComponent::textChanged(const std::string&) noexcept
{
    try {
        auto source = restored_.value_or(VaulterLoader::Source{});
        source.file = text(kFile);
        source.baseFolder = baseFolder();
        loader_.setSource(std::move(source));
    } catch (...) {  // without memory the response in use stays
    }
}

void FDNReverbComponent::complete(StoredState& state) const
{
    const auto report = loader_.report();
    auto identity = report.identity;
    // Where this machine keeps what comes with the effect is nothing to the next.
    if (text(kFile).starts_with(VNK::kFactoryPrefix)) identity.path.clear();
    identity.store(state);
    if (report.fit) state.attributes[kFit] = report.fit->blob();
    if (isOn("embed") && !report.embedded.empty()) state.attributes[kData] = Blob{report.embedded};
    if (!isOn("embed") || !report.file) return;
    const auto& sound = *report.file;
    bool fits = sound.channels.size() <= 8;
    for (const auto& x : sound.channels)
        for (const float v : x) fits = fits && v >= -1 && v < 1;
    std::string content, reason;
    const auto kind = fits ? VNK::SoundKind::Flac24 : VNK::SoundKind::WavFloat;
    if (VNK::encodeSound(sound, kind, content, reason) && content.size() <= kMostEmbedded)
        state.attributes[kData] = Blob{std::move(content)};
}

std::string FDNReverbComponent::problemOf(const std::string&) const
{
    return loader_.report().problem;
}

Delays FDNReverbComponent::delays(double sampleRate) const noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    TailControls controls;
    controls.decay = double(value("decay"));
    controls.replaceTime = double(value("replacetime"));
    const double wet = loader_.ringSeconds(controls);
    return reverbDelays(readPreDelaySeconds(read, double(tempo())) + wet,
                        isOn("freeze") && loader_.hasTank(), sampleRate);
}

const char* FDNReverbComponent::displayName(std::int32_t index) const noexcept
{
    return index == 0 ? "response" : nullptr;
}

bool FDNReverbComponent::snapshot(const char* name, VNK::IDisplaySink* sink) noexcept
try {
    if (!name || std::string_view(name) != "response" || !sink) return false;
    const auto report = loader_.report();
    sink->number("seconds", report.seconds);
    sink->number("tailstart", report.tailStart);
    const bool hasTank = report.tailStart > 0;
    sink->numbers("t60", report.t60.data(), hasTank ? kOctaves : 0);
    sink->beginList("channels");
    for (const auto& peaks : report.envelope) {
        sink->beginObject(nullptr);
        sink->numbers("peaks", peaks.data(), static_cast<std::int64_t>(peaks.size()));
        sink->end();
    }
    sink->end();
    sink->beginObject("file");
    sink->number("seconds", report.wholeSeconds);
    sink->numbers("peaks", report.whole.data(), static_cast<std::int64_t>(report.whole.size()));
    if (report.fit) sink->numbers("decay", report.fit->t60.data(), kOctaves);
    sink->end();
    return true;
} catch (...) {
    return false;
}

}  // namespace quillworks
