// SPDX-License-Identifier: ISC
#include "modulation/flanger.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "dsp/neutral.h"
#include "dsp/sanitise.h"
#include "dsp/section.h"
#include "framework/note_sync.h"
#include "modulation/channel_sides.h"

namespace quillworks {
namespace {

using Core = FlangerCore<float>;
using S = FlangerSettings;
using namespace conversion;

constexpr float kMostDelay = 15, kMostDepth = 5;  // ms
/// Delays of a tap in a loop are at least this, in samples.
constexpr int kNearest = TapReader<float>::kLeast + 1;
/// Where the feedback is limited: what a resonance of one tone may swell to, far above all else.
constexpr float kLoudestFeedback = 8;
constexpr float kDampOff = 20000;  // Hz
constexpr double kShare = 1e-6;    // of a range, where a glide ends

/// Delay of the dry signal on the way through zero: nothing is ahead of it by more than the depth.
int zeroDelay(double sampleRate)
{
    return static_cast<int>(kMostDepth * 0.001 * sampleRate + 0.5) + kNearest;
}

/// A delay as milliseconds, and where the first peak of its comb lies.
std::string combText(float ms)
{
    char text[64];
    const double hertz = 1000 / std::abs(double(ms));
    if (!(hertz < 20000)) {
        std::snprintf(text, sizeof text, "%.3f ms", double(ms));
        return text;
    }
    constexpr const char* kNames[] = {"C",  "C#", "D",  "D#", "E",  "F",
                                      "F#", "G",  "G#", "A",  "A#", "B"};
    const double key = 69 + 12 * std::log2(hertz / 440);
    const int nearest = static_cast<int>(std::lround(key));
    std::snprintf(text, sizeof text, "%.3f ms, %.4g Hz, %s%d %+.0f cent", double(ms), hertz,
                  kNames[nearest % 12], nearest / 12 - 1, 100 * (key - nearest));
    return text;
}

constexpr const char* kComb = "Comb";
constexpr const char* kLoop = "Feedback";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr std::array kCombRows{
    // key                  tag          title           kind          min     max         def  unit                  field            dirty         forward
    Parameter<S>{"delay",    "Dely"_tag, "Delay",        Kind::Float,  0,      kMostDelay, 2,   "Media.Milliseconds", &S::delay,       Core::Time,   milliseconds,
        {.group = kComb, .help = "Delay of the copy, around which it moves.", .curve = &curve::middleAt<3750>}},
    Parameter<S>{"depth",    "Dpth"_tag, "Depth",        Kind::Float,  0,      kMostDepth, 1.6f, "Media.Milliseconds", &S::depth,      Core::Time,   milliseconds,
        {.group = kComb, .help = "How far the delay moves to either side."}},
    Parameter<S>{"thruzero", "Zero"_tag, "Through Zero", Kind::Toggle, 0,      1,          0,   "",                   &S::throughZero, Core::Way,    asIs,
        {.group = kComb, .help = "Lets the copy overtake the sound itself, as two tape machines do; adds latency.", .shortTitle = "Zero"}},
    Parameter<S>{"feedback", "Fdbk"_tag, "Feedback",     Kind::Float,  -97,    97,         35,  "%",                  &S::feedback,    Core::Feedback, percent,
        {.group = kLoop, .help = "How much of the copy returns to the comb; below 0 upside down.", .flags = VNK::isBipolar}},
    Parameter<S>{"damp",     "Damp"_tag, "Damp",         Kind::Float,  1000,   kDampOff,   12000, "Hz",               &S::damp,        Core::Damping, asIs,
        {.group = kLoop, .help = "Where each turn of the feedback loses its treble; the ring stays in tune.", .curve = &curve::logarithmic, .maxText = "Off"}},
    Parameter<S>{"invert",   "Invt"_tag, "Invert",       Kind::Toggle, 0,      1,          0,   "",                   &S::invert,      Core::Way,    asIs,
        {.group = kComb, .help = "Turns the copy upside down: peaks become notches."}},
};
constexpr std::array kOtherRows{
    Parameter<S>{"mix",        "Mix "_tag, "Mix",         Kind::Float,   0,  100, 50, "%",                  &S::mix, Core::Mix, percent,
        {.group = kOutput, .help = "From the input to the moving copy alone; the comb is deepest at 50 %."}},
    Parameter<S>{"bypass",     "Bypa"_tag, "Bypass",      Kind::Bypass},
    Parameter<S>{"delayleft",  "Dly0"_tag, "Delay Left",  Kind::Reading, -5, 20,  0,  "Media.Milliseconds", nullptr, 0,         asIs,
        {.toText = combText}},
    Parameter<S>{"delayright", "Dly1"_tag, "Delay Right", Kind::Reading, -5, 20,  0,  "Media.Milliseconds", nullptr, 0,         asIs,
        {.toText = combText}},
};
// clang-format on
constexpr LfoFields<S> kLfo{&S::lfoSync, &S::lfoBeats, &S::lfoRate, &S::wave, &S::stereo};
constexpr auto kParameters = joinedRows(
    kCombRows, lfoRows<S>(kLfo, {.rate = 0.2f, .wave = LfoWave::Sine, .stereo = 90}, Core::Lfo),
    kOtherRows);

/// Multiples of 2^-27, whose ramps over a sub-block are exact.
double snapped(double x)
{
    return std::floor(x * 0x1p27 + 0.5) * 0x1p-27;
}

/// How many samples before the newest one of a run each frame of it lies, and how many behind the
/// last one before the run.
struct FrameCounts {
    std::array<double, kSubBlock> before{}, behind{};
    constexpr FrameCounts()
    {
        for (std::size_t i = 0; i < kSubBlock; ++i) {
            before[i] = double(kSubBlock - 1 - i);
            behind[i] = double(i + 1);
        }
    }
};
constexpr FrameCounts kCounts;

bool isDampOff(float damp, double sampleRate)
{
    return isNeutral(damp, kDampOff) || double(damp) >= kHighestCutOff * sampleRate;
}

}  // namespace

template <typename T> void FlangerCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    zero_ = zeroDelay(sampleRate_);
    const double quick = 2 * glideSubBlocks(sampleRate_), slow = 16 * glideSubBlocks(sampleRate_);

    channels_ = std::vector<Channel>(static_cast<std::size_t>(spec.channels));
    const auto sides = channelSides(spec.layout);
    std::size_t next = 0;
    for (const bool right : {false, true})
        for (std::size_t c = 0; c < sides.size(); ++c) {
            if ((sides[c] == ChannelSide::Right) != right) continue;
            channels_[next].index = static_cast<int>(c);
            channels_[next++].phase = right ? Right : Left;
        }
    for (auto& channel : channels_) channel.dry.prepare(zero_, 0);
    // What a sub-block reads behind itself and the tap's neighbours come on top.
    line_.prepare(spec.channels, static_cast<int>(0.025 * sampleRate_) + 3 * kSubBlock);
    reader_.prepare();

    lfo_.prepare(sampleRate_);
    for (auto& voice : voices_) voice.prepare(sampleRate_);
    const auto glide = [](auto& value, double halfLife, double range) {
        value.prepareHalfLife(halfLife);
        value.setTolerance(range * kShare);
    };
    glide(delay_, slow, kMostDelay * 0.001);
    glide(depth_, slow, kMostDepth * 0.001);
    glide(stereo_, quick, 180);
    glide(feedback_, quick, 2);
    glide(sign_, quick, 2);
    glide(octave_, quick, std::log2(20));
    glide(damped_, quick, 1);
    throughZero_.prepare(sampleRate_, 0.010);
    dryWet_.prepareHalfLife(quick);
}

template <typename T> void FlangerCore<T>::reset() noexcept
{
    lfo_.reset();
    for (auto& voice : voices_) voice.reset();
    for (auto* value : {&delay_, &depth_, &stereo_, &octave_, &damped_}) value->snap();
    for (auto* value : {&feedback_, &sign_}) value->snap();
    throughZero_.snap();
    dryWet_.reset();
    line_.clear();
    for (auto& channel : channels_) {
        channel.dry.reset();
        channel.low = 0;
    }
    isFresh_ = true;
}

template <typename T> void FlangerCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Time) {
        delay_.target(double(s.delay));
        depth_.target(double(s.depth));
    }
    if (dirty & Way) {
        throughZero_.target(s.throughZero != 0);
        sign_.target(s.invert != 0 ? T(-1) : T(1));
    }
    if (dirty & Feedback) feedback_.target(T(s.feedback));
    if (dirty & Damping) {
        const bool isOff = isDampOff(s.damp, sampleRate_);
        damped_.target(isOff ? 0 : 1);
        if (!isOff) octave_.target(std::log2(double(s.damp)));
    }
    if (dirty & Lfo) {
        lfo_.set({.isSynced = s.lfoSync != 0,
                  .noteValue = double(s.lfoBeats),
                  .hertz = double(s.lfoRate),
                  .wave = static_cast<LfoWave>(static_cast<int>(s.wave))});
        stereo_.target(double(s.stereo));
    }
    if (dirty & Mix) dryWet_.target(T(s.mix));
}

template <typename T> void FlangerCore<T>::process(const AudioBlock<T>& block) noexcept
{
    lfo_.begin(*block.transport, block.frames);
    forEachSubBlock(
        block, [&](const AudioBlock<T>& part) { processSlice(part, part.offset - block.offset); });
}

/// A sub-block begins `offset` frames after the block.
template <typename T> void FlangerCore<T>::begin(int offset) noexcept
{
    lfo_.next(offset);
    moveDelays();
    moveFeedback();
    moveDamping();
    isFresh_ = false;

    isLoopHeard_ =
        !feedbacks_.is(0) && !damps_ && !throughZero_.present() && !throughZero_.isFading();
    double least = kSubBlock + kNearest;
    for (const Phase phase : {Left, Right}) {
        if (together_ && phase == Right) break;
        auto& [present, leaving] = taps_[phase];
        layTaps(phase, throughZero_.present(), present);
        least = std::min(least, present.least);
        if (!throughZero_.isFading()) continue;
        layTaps(phase, throughZero_.leaving(), leaving);
        least = std::min(least, leaving.least);
    }
    run_ = static_cast<int>(least) - TapReader<T>::kLeast;
    if (run_ > 8) run_ -= run_ % 8;  // what the reader takes at once
}

template <typename T> void FlangerCore<T>::moveDelays() noexcept
{
    const double delay = delay_.next(kWholeSubBlock).to, depth = depth_.next(kWholeSubBlock).to;
    const double ahead = stereo_.next(kWholeSubBlock).to / 360;
    constexpr double kEarliest = -0.001 * kMostDepth, kLatest = 0.001 * (kMostDelay + kMostDepth);
    for (const Phase phase : {Left, Right}) {
        const double v = lfo_.read(voices_[phase], phase == Right ? ahead : 0);
        const double r = snapped(sampleRate_ * std::clamp(delay + depth * v, kEarliest, kLatest));
        delays_[phase] = {isFresh_ ? r : delays_[phase].to, r};
    }
    together_ = delays_[Left].from == delays_[Right].from && delays_[Left].to == delays_[Right].to;
}

template <typename T> void FlangerCore<T>::moveFeedback() noexcept
{
    if (!isFresh_ && !feedback_.isGliding() && !sign_.isGliding()) return;
    const Ramp<T> k = feedback_.next(kWholeSubBlock), sign = sign_.next(kWholeSubBlock);
    // White noise leaves the loop as loud as it came.
    const auto gain = [](T feedback, T s) { return s * std::sqrt(1 - feedback * feedback); };
    feedbacks_.follow(k);
    wetGains_.follow({gain(k.from, sign.from), gain(k.to, sign.to)});
}

template <typename T> void FlangerCore<T>::moveDamping() noexcept
{
    damps_ = damped_.target() != 0 || damped_.current() != 0;
    if (!isFresh_ && !damped_.isGliding() && !octave_.isGliding()) return;
    if (damped_.current() == 0) {  // it comes in at its frequency
        octave_.snap();
        for (auto& channel : channels_) channel.low = 0;
    }
    octave_.next(kWholeSubBlock);
    damped_.next(kWholeSubBlock);
    const double g = warpedFrequency(std::exp2(octave_.current()), sampleRate_);
    const double share = damped_.current();
    const auto c = OnePoleCoefficients<T>::of(g, 1, 1 - share);
    const auto follow = [this](auto& course, auto to) {
        course.follow({isFresh_ ? to : course.at[kSubBlock - 1], to});
    };
    follow(dampStep_, c.b);
    follow(dampLow_, c.l);
    follow(dampDirect_, c.h);
    follow(dampDelay_, snapped(share / (2 * g)));
}

template <typename T>
void FlangerCore<T>::layTaps(Phase phase, bool throughZero, Taps& taps) const noexcept
{
    const auto [from, to] = delays_[phase];
    const auto [low, high] = std::minmax(from, to);
    double* const heard = taps.heard.data();
    double* const loop = taps.loop.data();
    vec::ramp(heard, from, to, kSubBlock);
    if (throughZero) {
        // The loop is tuned to the comb, on either side of zero.
        vec::absCopy(loop, heard, kSubBlock);
        vec::addConst(heard, zero_, kSubBlock);
        taps.least = low > 0 ? low : std::max(0.0, -high);
    } else {
        if (low < kNearest) {
            vec::addConst(heard, -kNearest, kSubBlock);
            vec::abs(heard, kSubBlock);
            vec::addConst(heard, kNearest, kSubBlock);
        }
        taps.least = kNearest + (low > kNearest ? low - kNearest : std::max(0.0, kNearest - high));
        if (isLoopHeard_) return;
        vec::copy(loop, heard, kSubBlock);
    }
    // The damping delays the loop too.
    if (damps_) vec::subInplace(loop, dampDelay_.at, kSubBlock);
    vec::clampMin(loop, kNearest, kSubBlock);
    const double later = std::max(dampDelay_.at[0], dampDelay_.at[kSubBlock - 1]);
    taps.least = std::max<double>(kNearest, taps.least - (damps_ ? later : 0));
}

/// Whether this channel and the next one are read at the same places.
template <typename T> bool FlangerCore<T>::sharesTaps(std::size_t first) const noexcept
{
    return first + 1 < channels_.size() &&
           (together_ || channels_[first].phase == channels_[first + 1].phase);
}

template <typename T>
void FlangerCore<T>::processSlice(const AudioBlock<T>& part, int offset) noexcept
{
    const int n = part.frames;
    throughZero_.next(part);
    dryWet_.next(part);
    if (part.begins()) begin(offset);
    for (auto& channel : channels_) {
        T* const x = part[channel.index];
        sanitise(x, n, kLoudestSignal);
        channel.dry.push(x, n);
    }
    if (feedbacks_.is(0)) {
        for (std::size_t i = 0; i < channels_.size(); ++i)
            line_.put(static_cast<int>(i), channels_[i].dry.tap(0, n), n);
        line_.advance(n);
    } else {
        for (int done = 0; done < n; done += run_) feedBack(part, done, std::min(run_, n - done));
    }
    if (!isLoopHeard_ && !dryWet_.isDry()) hear(part);
    for (auto& channel : channels_) {
        T* const wet = part[channel.index];
        T faded[kSubBlock];
        wetGains_.scale(wet, part);
        dryWet_.mix(wet, dryOf(channel, n, faded), part);
    }
    const auto last = static_cast<std::size_t>(part.phase + n - 1);
    for (const Phase phase : {Left, Right}) {
        const double samples = waysOf(phase)[0].heard[last] - delayOfDry(throughZero_.present());
        heard_[phase] = static_cast<float>(1000 * samples / sampleRate_);
    }
    throughZero_.advance(n);
}

/// n frames of the slice from `done` on pass the loop; with isLoopHeard_ its tap is the output.
template <typename T>
void FlangerCore<T>::feedBack(const AudioBlock<T>& part, int done, int n) noexcept
{
    const int at = part.phase + done;
    Crossfade fade = throughZero_.fade();
    fade.advance(done);
    for (std::size_t first = 0; first < channels_.size();) {
        const int count = sharesTaps(first) ? 2 : 1;
        const Ways& ways = waysOf(channels_[first].phase);
        T buffers[2][kSubBlock];
        T* h[2] = {buffers[0], buffers[1]};
        if (isLoopHeard_)
            for (int c = 0; c < count; ++c)
                h[c] = part[channels_[first + static_cast<std::size_t>(c)].index] + done;
        const auto read = [&](const std::array<double, kSubBlock>& delays, T* const* out) {
            double distances[kSubBlock];
            vec::subCopy(distances, delays.data() + at, kCounts.behind.data(), n);
            reader_.read(line_, static_cast<int>(first), count, distances, n, out);
        };
        read(isLoopHeard_ ? ways[0].heard : ways[0].loop, h);
        if (fade.isRunning()) {
            T leaving[2][kSubBlock];
            T* const old[2] = {leaving[0], leaving[1]};
            read(ways[1].loop, old);
            for (int c = 0; c < count; ++c) fade.mix(h[c], old[c], n);
        }
        for (int c = 0; c < count; ++c, ++first) {
            Channel& channel = channels_[first];
            if (damps_) damp(h[c], at, n, channel.low);
            const T* const x = channel.dry.tap(0, part.frames) + done;
            const T* const k = feedbacks_.at + at;
            constexpr T kMost = T(kLoudestFeedback);
            T w[kSubBlock];
            for (int i = 0; i < n; ++i) w[i] = x[i] + std::clamp(k[i] * h[c][i], -kMost, kMost);
            line_.put(static_cast<int>(first), w, n);
        }
    }
    line_.advance(n);
}

/// One channel of the loop, in place, from frame `phase` of the sub-block on.
template <typename T> void FlangerCore<T>::damp(T* x, int phase, int n, T& low) const noexcept
{
    const T* const step = dampStep_.at + phase;
    const T* const l = dampLow_.at + phase;
    const T* const direct = dampDirect_.at + phase;
    T z = low;
    for (int i = 0; i < n; ++i) {
        const T y = l[i] * z + direct[i] * x[i];
        z += step[i] * (x[i] - z);
        x[i] = y;
    }
    low = z;
}

/// The taps that are heard, all of the slice being in the line.
template <typename T> void FlangerCore<T>::hear(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    for (std::size_t first = 0; first < channels_.size();) {
        const int count = sharesTaps(first) ? 2 : 1;
        const Ways& ways = waysOf(channels_[first].phase);
        T* const out[2] = {part[channels_[first].index],
                           part[channels_[first + static_cast<std::size_t>(count) - 1].index]};
        const auto read = [&](const Taps& taps, T* const* to) {
            double distances[kSubBlock];
            vec::addCopy(distances, taps.heard.data() + part.phase,
                         kCounts.before.data() + kSubBlock - n, n);
            reader_.read(line_, static_cast<int>(first), count, distances, n, to);
        };
        read(ways[0], out);
        if (throughZero_.isFading()) {
            T leaving[2][kSubBlock];
            T* const old[2] = {leaving[0], leaving[1]};
            read(ways[1], old);
            for (int c = 0; c < count; ++c) throughZero_.fade().mix(out[c], old[c], n);
        }
        first += static_cast<std::size_t>(count);
    }
}

/// The dry signal of a slice; in `faded` while its delay changes.
template <typename T>
const T* FlangerCore<T>::dryOf(Channel& channel, int n, T* faded) const noexcept
{
    const T* const dry = channel.dry.tap(delayOfDry(throughZero_.present()), n);
    if (!throughZero_.isFading()) return dry;
    vec::copy(faded, dry, n);
    throughZero_.fade().mix(faded, channel.dry.tap(delayOfDry(throughZero_.leaving()), n), n);
    return faded;
}

template <typename T> void FlangerCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publish("Dly0"_tag, heard_[Left]);
    meters.publish("Dly1"_tag, heard_[Right]);
}

template class FlangerCore<float>;
template class FlangerCore<double>;

FlangerAlgorithm::FlangerAlgorithm() : PrecisionAlgorithm(kParameters) {}

FlangerComponent::FlangerComponent(FlangerAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "Flanger"})
{}

void FlangerComponent::changed(const AlgorithmParameter& parameter, float before,
                               Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kLfoSync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
}

Delays FlangerComponent::delays(double sampleRate) const noexcept
{
    const bool throughZero = isOn("thruzero");
    const double perMs = 0.001 * sampleRate, delay = value("delay"), depth = value("depth");
    const double low = perMs * (delay - depth), high = perMs * (delay + depth);
    const double longest =
        throughZero ? std::max({std::abs(low), high, double(kNearest)})
                    : kNearest + std::max(std::abs(low - kNearest), std::abs(high - kNearest));
    // Turns of the loop until 60 dB are gone.
    const double feedback = std::max(0.001, 0.01 * std::abs(double(value("feedback"))));
    const double turns = 1 + std::ceil(60 / (-20 * std::log10(feedback)));
    const int latency = throughZero ? zeroDelay(sampleRate) : 0;
    return {static_cast<std::uint32_t>(latency),
            static_cast<std::uint32_t>(longest * turns) + static_cast<std::uint32_t>(latency)};
}

}  // namespace quillworks
