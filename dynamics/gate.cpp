// SPDX-License-Identifier: ISC
#include "dynamics/gate.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"
#include "framework/sidechain_source.h"

namespace quillworks {
namespace {

using Core = GateXCore<float>;
using S = GateXSettings;
using namespace conversion;

constexpr int kMaxChannels = VNK::kMaxChannels;
constexpr double kLongestLookAhead = 0.01;  // seconds

constexpr const char* kLookAheadTexts[] = {"Off", "2 ms", "5 ms", "10 ms"};
constexpr const char* kListenTexts[] = {"Off", "Key", "Removed"};
constexpr const char* kStateTexts[] = {"Closed", "Holding", "Open"};

/// Seconds of a choice.
float lookAheadTime(float choice)
{
    constexpr float kSeconds[] = {0, 0.002f, 0.005f, 0.01f};
    return kSeconds[std::clamp(static_cast<int>(choice), 0, 3)];
}

int lookAheadFrames(double sampleRate, float seconds)
{
    return static_cast<int>(sampleRate * double(seconds) + 0.5);
}

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key                  tag          title           kind           min    max    def   unit                  field           dirty             forward        notes
    {"threshold",         "Thre"_tag, "Threshold",    Kind::Float,    -80,     0,   -40, "Media.DB",           &S::threshold,  Core::Levels,     asIs,
        {.group = "Levels", .help = "Level of the key at which the gate opens.", .shortTitle = "Thresh", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"hysteresis",        "Hyst"_tag, "Hysteresis",   Kind::Float,      0,    24,     6, "dB",                 &S::hysteresis, Core::Levels,     asIs,
        {.group = "Levels", .help = "How far the key must fall below the threshold before the gate closes again; keeps it from chattering.", .shortTitle = "Hyst", .flags = VNK::isDecibel}},
    {"range",             "Rnge"_tag, "Range",        Kind::Float,    -96,     0,   -60, "Media.DB",           &S::range,      Core::Levels,     asIs,
        {.group = "Levels", .help = "Gain while the gate is closed; at the lower end nothing passes.", .curve = &curve::decibel, .minText = "Silence", .flags = VNK::isDecibel}},
    {"attack",            "Atck"_tag, "Attack",       Kind::Float,  0.01f,   200,  0.5f, "Media.Milliseconds", &S::attack,     Core::Times,      milliseconds,
        {.group = "Envelope", .help = "Time in which the gate opens.", .curve = &curve::logarithmic}},
    {"hold",              "Hold"_tag, "Hold",         Kind::Float,      0,  2000,    20, "Media.Milliseconds", &S::hold,       Core::Times,      milliseconds,
        {.group = "Envelope", .help = "Time that the gate stays open after the key has fallen below.", .curve = &curve::middleAt<100000>}},
    {"release",           "Rels"_tag, "Release",      Kind::Float,      1,  4000,   150, "Media.Milliseconds", &S::release,    Core::Times,      milliseconds,
        {.group = "Envelope", .help = "Time in which the gate closes.", .curve = &curve::logarithmic}},
    {"lookahead",         "LkAh"_tag, "Look-ahead",   Kind::List,       0,     3,     1, "",                   &S::lookAhead,  Core::LookAhead,  lookAheadTime,
        {.group = "Envelope", .help = "Delays the audio so that the gate has opened when an attack leaves it.", .shortTitle = "LkAh", .texts = kLookAheadTexts}},
    {"sidechainfreqlow",  "SCFL"_tag, "Key LC-Freq",  Kind::Float,     20, 16000,    20, "Hz",                 &S::lowCut,     Core::Filters,    asIs,
        {.group = "Key", .help = "Frequencies below do not open the gate; above the other frequency, a band is rejected instead of passed.", .shortTitle = "Low Cut", .curve = &curve::logarithmic, .minText = "Off"}},
    {"sidechainfreqhigh", "SCFH"_tag, "Key HC-Freq",  Kind::Float,     20, 16000, 16000, "Hz",                 &S::highCut,    Core::Filters,    asIs,
        {.group = "Key", .help = "Frequencies above do not open the gate.", .shortTitle = "High Cut", .curve = &curve::logarithmic, .maxText = "Off"}},
    {"listen",            "List"_tag, "Listen",       Kind::List,       0,     2,     0, "",                   &S::listen,     Core::Listening,  asIs,
        {.group = "Key", .help = "Lets you hear the filtered key, or what the gate takes away.", .texts = kListenTexts, .flags = VNK::isNotStored}},
    {"duck",              "Invt"_tag, "Duck",         Kind::Toggle,     0,     1,     0, "",                   &S::duck,       Core::Ducking,    asIs,
        {.group = "Key", .help = "Lowers the signal while the key is loud instead of while it is quiet."}},
    {"reduction",         "Redu"_tag, "Reduction",    Kind::Meter,    -96,     0,     0, "dB"},
    {"keylevel",          "KeyL"_tag, "Key Level",    Kind::Meter,   -144,    20,  -144, "dB"},
    {"gatestate",         "Open"_tag, "State",        Kind::Meter,      0,     2,     0, "",                   nullptr,        0,                asIs,
        {.texts = kStateTexts}},
    {"bypass",            "Bypa"_tag, "Bypass",       Kind::Bypass},
    {"editor",            "Edit"_tag, "Editor",       Kind::Command,    0,     1,     0, "",                   &S::editorOpen, Core::Editor},
    levelRow<S>(kInputFast),
    levelRow<S>(kInputSlow),
    levelRow<S>(kOutputFast),
    levelRow<S>(kOutputSlow),
};
// clang-format on

/// The gliding frequency; exactly what was set when it has arrived.
double frequencyOf(const Smoothed<double>& octave, double set) noexcept
{
    return octave.current() == octave.target() ? set : std::exp2(octave.current());
}

/// y = d times the gains.
template <typename T>
void applyGains(T* y, const T* d, const T* gain, bool isConstant, int n) noexcept
{
    if (!isConstant)
        vec::mulCopy(y, d, gain, n);
    else if (gain[0] != 1)
        vec::scaleCopy(y, d, gain[0], n);
    else if (y != d)
        vec::copy(y, d, n);
}

}  // namespace

template <typename T> void GateXCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    channels_.resize(static_cast<std::size_t>(spec.channels));
    for (auto& ch : channels_) {
        ch.input.prepare(fadeFrames(sampleRate_, kLongestLookAhead), 0);
        ch.key.prepare(fadeFrames(sampleRate_, kLongestLookAhead), 0);
    }
    gain_.setSampleRate(sampleRate_);
    filter_.prepare(sampleRate_, kMaxChannels, 4);  // the bus may have more than the audio
    levels_.prepare(spec);
    for (auto* octave : {&lowOctave_, &highOctave_}) {
        octave->prepareHalfLife(glideSubBlocks(sampleRate_));
        octave->setTolerance(0.00144);  // 0.1 %
    }
    listen_.prepare(sampleRate_, kSubBlock / sampleRate_);
    lookAhead_.prepare(sampleRate_, kLongestLookAhead);
}

template <typename T> void GateXCore<T>::reset() noexcept
{
    gain_.reset();
    lowOctave_.snap();
    highOctave_.snap();
    filter_.tune(lowCut_, highCut_);
    filter_.reset();
    listen_.snap();
    lookAhead_.snap();
    for (auto& ch : channels_) {
        ch.input.reset();
        ch.key.reset();
    }
    levels_.reset();
    history_.reset();
}

template <typename T> void GateXCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Levels) {
        gain_.setThreshold(s.threshold, s.hysteresis);
        gain_.setRange(s.range);
    }
    if (dirty & (Times | Filters)) {
        const bool hasLowCut = s.lowCut > static_cast<float>(SidechainFilter::kLowest);
        gain_.setTimes(s.attack, s.hold, s.release, hasLowCut ? s.lowCut : 0);
    }
    if (dirty & Filters) {
        lowCut_ = s.lowCut;
        highCut_ = s.highCut;
        lowOctave_.target(std::log2(lowCut_));
        highOctave_.target(std::log2(highCut_));
    }
    if (dirty & Ducking) gain_.setDuck(s.duck != 0);
    if (dirty & Listening) listen_.target(static_cast<Listen>(static_cast<int>(s.listen)));
    if (dirty & LookAhead) lookAhead_.target(lookAheadFrames(sampleRate_, s.lookAhead));
    if (dirty & Editor) levels_.setOpen(s.editorOpen != 0);
}

template <typename T> void GateXCore<T>::process(const AudioBlock<T>& block) noexcept
{
    lowest_ = 1;
    keyPeak_ = 0;
    // Another key: what the filters of this one have heard is past.
    if (std::exchange(keyChannels_, block.sideChainChannels) != block.sideChainChannels)
        filter_.reset();
    levels_.around(
        block, [](T* x, int n) { sanitise(x, n, kLoudestSignal); },
        [this](const AudioBlock<T>& piece) {
            forEachSubBlock(piece, [this](const AudioBlock<T>& part) { processSlice(part); });
        });
}

template <typename T> void GateXCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    glideFilter(part);
    if (listen_.next(part) && listen_.present() == Listen::Key)
        for (auto& ch : channels_) ch.key.reset();  // not what was heard long ago
    lookAhead_.next(part);

    T heard[kMaxChannels][kSubBlock];  // the key of each channel, for listening
    double key[kSubBlock];
    takeKey(key, part, hears(Listen::Key) ? heard : nullptr);
    const double peak = vec::peak(key, n);
    keyPeak_ = std::max(keyPeak_, peak);

    Gains gains;
    gains.isConstant = gain_.run(key, peak, gains.kept, n);
    const int count = gains.isConstant ? 1 : n;
    const T lowest = *std::min_element(gains.kept, gains.kept + count);
    lowest_ = std::min(lowest_, lowest);
    history_.add(0, peak, double(lowest));
    history_.end(part);
    if (hears(Listen::Removed))
        for (int i = 0; i < count; ++i) gains.removed[i] = 1 - gains.kept[i];

    for (int c = 0; c < part.channels; ++c) {
        auto& ch = channels_[static_cast<std::size_t>(c)];
        T* const x = part[c];
        T room[kSubBlock], keyRoom[kSubBlock], leaving[kSubBlock];
        const T* const d = delayed(ch.input, x, room, n);
        const auto play = [&](Listen what, T* y) {
            if (what == Listen::Key)  // in time with what it opens, and with the other tracks
                vec::copy(y, delayed(ch.key, heard[c], keyRoom, n), n);
            else
                applyGains(y, d, what == Listen::Off ? gains.kept : gains.removed, gains.isConstant,
                           n);
        };
        if (listen_.isFading()) play(listen_.leaving(), leaving);
        play(listen_.present(), x);
        if (listen_.isFading()) listen_.fade().mix(x, leaving, n);
    }
    listen_.advance(n);
    lookAhead_.advance(n);
}

template <typename T> void GateXCore<T>::glideFilter(GridSlice slice) noexcept
{
    if (slice.begins() && (lowOctave_.isGliding() || highOctave_.isGliding())) {
        lowOctave_.next(slice);
        highOctave_.next(slice);
        filter_.tune(frequencyOf(lowOctave_, lowCut_), frequencyOf(highOctave_, highCut_),
                     highCut_ < lowCut_);
    }
    filter_.next(slice);
}

/// The largest magnitude among the channels of the key, filtered; what was filtered goes to
/// `heard` unless that is null.
template <typename T>
void GateXCore<T>::takeKey(double* key, const AudioBlock<T>& part, T (*heard)[kSubBlock]) noexcept
{
    const int n = part.frames;
    const bool isExternal = part.sideChainChannels > 0;
    if (!isExternal && !heard && !filter_.isActive()) {
        T largest[kSubBlock];
        vec::absCopy(largest, part[0], n);
        for (int c = 1; c < part.channels; ++c) vec::maxAbs(largest, part[c], n);
        return takeChannel(key, largest, n);
    }
    const int count = isExternal ? part.sideChainChannels : part.channels;
    for (int first = 0; first < count; first += 2) {
        double x[2][kSubBlock];
        const int both = std::min(2, count - first);
        for (int i = 0; i < both; ++i) {
            takeChannel(x[i], isExternal ? part.side(first + i) : part[first + i], n);
            if (isExternal) sanitise(x[i], n, kLoudestSignal);
        }
        if (filter_.isActive()) {
            if (both == 2)
                filter_.runPair(first, x[0], x[1], part);
            else
                filter_.run(first, x[0], part);
        }
        for (int i = 0; i < both; ++i) {
            const int c = first + i;
            if (c == 0)
                vec::absCopy(key, x[i], n);
            else
                vec::maxAbs(key, x[i], n);
            if (heard && c < part.channels)
                for (int f = 0; f < n; ++f) heard[c][f] = T(x[i][f]);
        }
    }
    if (heard)
        for (int c = count; c < part.channels; ++c) vec::copy(heard[c], heard[count - 1], n);
}

/// x behind the look-ahead; in `room` where it is a mixture.
template <typename T>
const T* GateXCore<T>::delayed(DelayLine<T>& line, const T* x, T* room, int n) noexcept
{
    line.push(x, n);
    const T* const now = line.tap(lookAhead_.present(), n);
    if (!lookAhead_.isFading()) return lookAhead_.present() == 0 ? x : now;
    vec::copy(room, now, n);
    lookAhead_.fade().mix(room, line.tap(lookAhead_.leaving(), n), n);
    return room;
}

template <typename T> void GateXCore<T>::publish(MeterSlots& meters) noexcept
{
    const double reduction = std::max(GateGain<T>::kSilentRange, gainToDb(double(lowest_)));
    meters.publish("Redu"_tag, static_cast<float>(reduction));
    meters.publish("KeyL"_tag, static_cast<float>(std::min(20.0, gainToDb(keyPeak_))));
    meters.publish("Open"_tag, static_cast<float>(gain_.state()));
    levels_.publish(meters);
}

template class GateXCore<float>;
template class GateXCore<double>;

GateXAlgorithm::GateXAlgorithm() : DisplayAlgorithm(kParameters, std::vector<const char*>{"Key"}) {}

GateXComponent::GateXComponent(GateXAlgorithm& algorithm)
    : DisplayComponent(algorithm,
                       {.viewPrefix = "GateX", .views = {"Editor", "Compact"}, .kind = "gate"},
                       {"history"}),
      lookAhead_(list().find("lookahead"))
{}

Delays GateXComponent::delays(double sampleRate) const noexcept
{
    const auto frames = static_cast<std::uint32_t>(
        lookAheadFrames(sampleRate, lookAheadTime(getValue(lookAhead_))));
    return {.latency = frames, .tail = frames};
}

}  // namespace quillworks
