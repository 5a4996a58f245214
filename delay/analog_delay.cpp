// SPDX-License-Identifier: ISC
#include "delay/analog_delay.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "dsp/vec.h"
#include "framework/note_sync.h"

namespace quillworks {
namespace {

using Core = AnalogDelayCore<float>;
using L = EchoLoop;
using S = AnalogDelaySettings;
using namespace conversion;

/// Deliberately more than unity: an echo at half mix stands up to the dry signal.
constexpr float kWetGain = 1.78f;

constexpr const char* kModes[] = {"Mono", "PingPong", "Stereo"};
constexpr const char* kWaves[] = {"Triangle", "Sine", "Sawtooth", "Square"};

/// The notes that earlier versions stored by index, straight, triplet and dotted from the longest.
constexpr const char* kOldNotes[] = {"4/1",   "2/1",    "1/1",    "1/2",    "1/4",   "1/8",
                                     "1/16",  "1/32",   "1/64",   "1/1 T",  "1/2 T", "1/4 T",
                                     "1/8 T", "1/16 T", "1/32 T", "1/64 T", "1/1 D", "1/2 D",
                                     "1/4 D", "1/8 D",  "1/16 D", "1/32 D", "1/64 D"};

float oldNoteValue(float index)
{
    const int i = static_cast<int>(std::nearbyint(index));
    if (i < 9) return std::ldexp(8.0f, -i);
    const bool isTriplet = i < 16;
    const float base = std::ldexp(1.0f, -(isTriplet ? i - 9 : i - 16));
    return NoteValue{isTriplet ? NoteKind::Triplet : NoteKind::Dotted, base}.value();
}

std::string wholePercent(float value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%02.0f %%", double(value));
    return text;
}

/// Both pairs of a note value and its free counterpart.
constexpr NoteSync kSyncs[] = {{"sync", "beatsnu", "time"}, kLfoSync};

/// In integers, which whole vectors of any processor take without a branch.
bool areFinite(const float* x, int n)
{
    constexpr std::uint32_t kExponent = 0x7F800000, kLowest = 0x00800000;
    std::uint32_t carries = 0;  // out of exponents of all ones, into the sign
    const auto test = [&](int i) {
        carries |= (std::bit_cast<std::uint32_t>(x[i]) & kExponent) + kLowest;
    };
    if (n == kSubBlock)  // the usual length is known to the compiler
        for (int i = 0; i < kSubBlock; ++i) test(i);
    else
        for (int i = 0; i < n; ++i) test(i);
    return carries >> 31 == 0;
}

template <typename T> void silenceBadSamples(T* x, int n)
{
    for (int i = 0; i < n; ++i)
        if (!std::isfinite(x[i])) x[i] = 0;
}

constexpr std::uint32_t kLegacy = VNK::isHidden | VNK::isNotStored | VNK::isNotAutomatable;
constexpr const char* kTime = "Time / Speed";
constexpr const char* kFeedback = "Feedback";
constexpr const char* kLfo = "LFO";
constexpr const char* kDamping = "Damping";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key            tag         title              kind           min         max    def    unit                 field             dirty          forward
    {"sync",          "Sync"_tag, "Delay Sync",      Kind::Toggle,  0,          1,     1,     "",                  &S::sync,         L::Length,     asIs,
        {.group = kTime, .help = "Follows the song's tempo: the delay is a note value instead of a time.", .shortTitle = "Sync"}},
    noteRow("beatsnu", "BtNu"_tag, "Delay Beats", 0.5f, &S::beats, L::Length,
        {.group = kTime, .help = "Delay as a note value; the nearest straight, triplet or dotted note sounds.", .shortTitle = "Beats"}),
    {"beats",         "Beat"_tag, "Old Delay Beats", Kind::List,    0,          22,    3,     "",                  nullptr,          0,             asIs,
        {.group = kTime, .help = "Note of songs made with earlier versions.", .texts = kOldNotes, .flags = kLegacy}},
    {"time",          "Time"_tag, "Delay Time",      Kind::Float,   1,          3000,  250,   "Media.Milliseconds", &S::time,        L::Length,     milliseconds,
        {.group = kTime, .help = "Delay while it does not follow the tempo.", .shortTitle = "Time", .curve = &curve::logarithmic, .drivenBy = "sync"}},
    {"speed",         "Rati"_tag, "Delay Speed",     Kind::Float,   0.5f,       2,     1,     "",                  &S::speed,        L::Length,     asIs,
        {.group = kTime, .help = "Speed of the motor: faster is shorter, and bends the pitch while it changes.", .shortTitle = "Speed", .curve = &curve::logarithmic}},
    {"inertia",       "Inrt"_tag, "Delay Inertia",   Kind::Float,   0.001f,     5,     0.004f, "s",                &S::inertia,      L::Inertia,    asIs,
        {.group = kTime, .help = "Time in which the motor covers half the way to a new speed.", .shortTitle = "Inertia", .curve = &curve::logarithmic}},
    {"feedback",      "FBLv"_tag, "Feedback Level",  Kind::Float,   0,          100,   40,    "%",                 &S::feedback,     L::Feedback,   percent,
        {.group = kFeedback, .help = "How much of each echo comes back as the next.", .shortTitle = "Level", .toText = wholePercent}},
    {"feedbackboost", "FBBo"_tag, "Feedback Boost",  Kind::Toggle,  0,          1,     0,     "",                  &S::boost,        L::Feedback,   asIs,
        {.group = kFeedback, .help = "Half as much feedback again, into a clipper: the echoes may sing on for ever.", .shortTitle = "Boost"}},
    {"width",         "FBWd"_tag, "Feedback Width",  Kind::Float,   0,          100,   20,    "%",                 &S::width,        L::Feedback,   percent,
        {.group = kFeedback, .help = "How far apart the echoes of left and right stay.", .shortTitle = "Width"}},
    {"pingpongmode",  "FBPM"_tag, "Ping-Pong Mode",  Kind::List,    0,          2,     1,     "",                  &S::pingPongMode, L::Mode,       asIs,
        {.group = kFeedback, .help = "Echoes of the sum, echoes that change sides, or echoes of both channels.", .shortTitle = "Mode", .texts = kModes}},
    {"pingpongswap",  "FBPS"_tag, "Ping-Pong Swap",  Kind::Toggle,  0,          1,     0,     "",                  &S::pingPongSwap, L::Feedback,   asIs,
        {.group = kFeedback, .help = "Starts the ping-pong on the other side.", .shortTitle = "Swap"}},
    {"saturation",    "Sat "_tag, "Saturation",      Kind::Float,   0,          100,   0,     "%",                 &S::saturation,   L::Saturation, percent,
        {.group = kDamping, .help = "Drives the echoes into a diode circuit, warmer with every repeat."}},
    {"filterreso",    "Reso"_tag, "Reso",            Kind::Float,   0.3f,       3,     1,     "",                  &S::resonance,    L::Filters,    asIs,
        {.group = kDamping, .help = "Resonance of low cut and high cut."}},
    {"lfosync",       "LFOS"_tag, "LFO Sync",        Kind::Toggle,  0,          1,     0,     "",                  &S::lfoSync,      L::Lfo,        asIs,
        {.group = kLfo, .help = "The modulation follows the song's tempo.", .shortTitle = "Sync"}},
    noteRow("lfobeatsnu", "LFBN"_tag, "LFO Beats", 0.5f, &S::lfoBeats, L::Lfo,
        {.group = kLfo, .help = "Period of the modulation as a note value.", .shortTitle = "Beats"}),
    {"lfobeats",      "LFOB"_tag, "Old LFO Beats",   Kind::List,    0,          22,    3,     "",                  nullptr,          0,             asIs,
        {.group = kLfo, .help = "Note of songs made with earlier versions.", .texts = kOldNotes, .flags = kLegacy}},
    {"lfotime",       "LFSp"_tag, "LFO Speed",       Kind::Float,   0.01f,      15,    1.2f,  "Hz",                &S::lfoRate,      L::Lfo,        asIs,
        {.group = kLfo, .help = "Rate of the modulation while it does not follow the tempo.", .shortTitle = "Speed", .curve = &curve::logarithmic, .drivenBy = "lfosync"}},
    {"wave",          "LFWv"_tag, "LFO Waveform",    Kind::List,    0,          3,     0,     "",                  &S::lfoWave,      L::Lfo,        asIs,
        {.group = kLfo, .help = "Course of the motor's speed over one period.", .shortTitle = "Wave", .texts = kWaves}},
    {"lfowidth",      "LFWd"_tag, "LFO Width",       Kind::Float,   -50,        50,    0,     "%",                 &S::lfoDepth,     L::Lfo,        percent,
        {.group = kLfo, .help = "How far the modulation changes the motor's speed; negative values turn the wave over.", .shortTitle = "Width", .flags = VNK::isBipolar}},
    {"locut",         "Loct"_tag, "Low Cut",         Kind::Float,   20,         3200,  20,    "Hz",                &S::lowCut,       L::Filters,    asIs,
        {.group = kDamping, .help = "Takes the lows from the echoes, more with every repeat.", .curve = &curve::logarithmic, .minText = "Off"}},
    {"hicut",         "Hict"_tag, "High Cut",        Kind::Float,   400,        16000, 16000, "Hz",                &S::highCut,      L::Filters,    asIs,
        {.group = kDamping, .help = "Takes the highs from the echoes, more with every repeat.", .curve = &curve::logarithmic, .maxText = "Off"}},
    {"mix",           "Mix "_tag, "Mix",             Kind::Float,   0,          100,   30,    "%",                 &S::mix,          Core::Mix,     percent,
        {.group = kOutput, .help = "From the dry signal to the echoes alone."}},
    {"tempo",         "Tmpo"_tag, "Tempo",           Kind::Tempo,   10,         400,   30,    "bpm",               nullptr,          0,             asIs,
        {.group = kTime, .help = "Tempo of the song."}},
    {"bypass",        "Bypa"_tag, "Bypass",          Kind::Bypass,  0,          1,     0,     "",                  nullptr,          0,             asIs,
        {.group = kOutput, .help = "Passes the input as it is."}},
    lfoPhaseRow<S>(),
};
// clang-format on

}  // namespace

template <typename T> void AnalogDelayCore<T>::prepare(const ProcessSpec& spec)
{
    channels_ = std::min(2, spec.channels);
    loop_.prepare(channels_, spec.sampleRate);
    for (auto* gain : {&dryGain_, &wetGain_})
        gain->prepareHalfLife(EchoLoop::gainHalfLife(spec.sampleRate));
}

template <typename T> void AnalogDelayCore<T>::reset() noexcept
{
    loop_.reset();
    dryGain_.snap();
    wetGain_.snap();
}

template <typename T>
void AnalogDelayCore<T>::apply(const Settings& settings, unsigned dirty) noexcept
{
    loop_.apply(settings, dirty);
    if (dirty & Mix) {
        mix_ = settings.mix;
        updateMix();
    }
}

template <typename T> void AnalogDelayCore<T>::setWetOnly(bool wetOnly) noexcept
{
    wetOnly_ = wetOnly;
    updateMix();
}

template <typename T> void AnalogDelayCore<T>::updateMix() noexcept
{
    dryGain_.target(wetOnly_ ? T(0) : 1 - T(mix_));
    wetGain_.target(wetOnly_ ? T(1) : T(mix_) * T(kWetGain));
}

template <typename T> void AnalogDelayCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [this](const AudioBlock<T>& part) {
        float dry[2][kSubBlock], echo[2][kSubBlock];
        const float* in[2];
        float* const wet[2] = {echo[0], echo[1]};
        for (int c = 0; c < channels_; ++c) {
            if constexpr (std::is_same_v<T, float>) {
                in[c] = part[c];
            } else {
                vec::convert(dry[c], part[c], part.frames);
                in[c] = dry[c];
            }
            if (areFinite(in[c], part.frames)) continue;
            // The dry signal is played too, where not even a gain of 0 would keep them out.
            silenceBadSamples(part[c], part.frames);
            if constexpr (!std::is_same_v<T, float>) vec::convert(dry[c], part[c], part.frames);
        }
        loop_.process(part, in, wet);
        dryGains_.follow(dryGain_, part);
        wetGains_.follow(wetGain_, part);
        for (int c = 0; c < channels_; ++c) mix(part[c], wet[c], part);
    });
}

template <typename T>
void AnalogDelayCore<T>::mix(T* x, const float* wet, GridSlice slice) const noexcept
{
    const T* const d = dryGains_.of(slice);
    const T* const w = wetGains_.of(slice);
    for (int i = 0; i < slice.frames; ++i) x[i] = d[i] * x[i] + w[i] * T(wet[i]);
}

template class AnalogDelayCore<float>;
template class AnalogDelayCore<double>;

AnalogDelayAlgorithm::AnalogDelayAlgorithm() : PrecisionAlgorithm(kParameters) {}

AnalogDelayComponent::AnalogDelayComponent(AnalogDelayAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "AnalogDelay"})
{}

void AnalogDelayComponent::changed(const AlgorithmParameter& parameter, float before,
                                   Setter by) noexcept
{
    const float now = value(parameter.key.c_str());
    if (parameter.key == "beats") set("beatsnu", oldNoteValue(now), by);
    if (parameter.key == "lfobeats") set("lfobeatsnu", oldNoteValue(now), by);
    const auto read = [this](const char* key) { return value(key); };
    for (const auto& pair : kSyncs)
        if (const auto move = pair.moved(parameter.key, now, before, read, tempo()))
            set(move->key, move->value, by);
}

void AnalogDelayComponent::migrate(StoredState& state) const
{
    constexpr const char* kKeys[][2] = {{"beats", "beatsnu"}, {"lfobeats", "lfobeatsnu"}};
    for (const auto& [old, present] : kKeys) {
        const float* index = state.find(old);
        if (!index || state.find(present)) continue;
        const float last = std::size(kOldNotes) - 1;
        state.set(present, oldNoteValue(std::clamp(*index, 0.0f, last)));
    }
}

Delays AnalogDelayComponent::delays(double sampleRate) const noexcept
{
    const bool isSynced = isOn("sync");
    const float seconds =
        isSynced ? soundingNoteValue(value("beatsnu")) : milliseconds(value("time"));
    const auto time = DelayTime::of(isSynced, seconds, tempo(), value("speed"), sampleRate);
    const ColourFilters filters{value("locut"), value("hicut"), value("filterreso")};
    const double gain =
        double(percent(value("feedback"))) * (isOn("feedbackboost") ? 1.5 : 1) * filters.peakGain();
    if (gain >= 0.98) return {0, VNK::kEndlessTail};
    const double echoes = std::ceil(60 / (-20 * std::log10(std::max(gain, 0.001))));
    return {0, static_cast<std::uint32_t>(
                   std::min(std::ceil(time.echo() * (1 + echoes)), 4294967294.0))};
}

}  // namespace quillworks
