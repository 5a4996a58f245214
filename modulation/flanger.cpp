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
constexpr int kNearest = FarrowLine<float>::kLeast + 1;
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
    lfoPhaseRow<S>(),
};
// clang-format on
constexpr LfoFields<S> kLfo{&S::lfoSync, &S::lfoBeats, &S::lfoRate, &S::wave, &S::stereo};
constexpr auto kParameters = joinedRows(
    kCombRows, lfoRows<S>(kLfo, {.rate = 0.2f, .wave = LfoWave::Sine, .stereo = 90}, Core::Lfo),
    kOtherRows);

constexpr std::int64_t kOne = TapGlide::kOne;

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

    const auto sides = channelSides(spec.layout);
    channels_ = std::vector<Channel>(sides.size());
    loops_.resize(sides.size() * kSubBlock);
    leavings_.resize(loops_.size());
    for (auto* pointers : {&outs_, &backs_, &olds_}) pointers->resize(sides.size());
    taps_.resize(sides.size());
    for (std::size_t c = 0; c < sides.size(); ++c) {
        channels_[c].phase = sides[c] == ChannelSide::Right ? Right : Left;
        channels_[c].dry.prepare(zero_, 0);
        olds_[c] = leavings_.data() + c * kSubBlock;
    }
    // What a sub-block reads behind itself and the tap's neighbours come on top.
    line_.prepare(spec.channels, static_cast<int>(0.025 * sampleRate_) + 3 * kSubBlock);

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

    layTaps();
}

template <typename T> void FlangerCore<T>::moveDelays() noexcept
{
    const double delay = delay_.next(kWholeSubBlock).to, depth = depth_.next(kWholeSubBlock).to;
    const double ahead = stereo_.next(kWholeSubBlock).to / 360;
    constexpr double kEarliest = -0.001 * kMostDepth, kLatest = 0.001 * (kMostDelay + kMostDepth);
    for (const Phase phase : {Left, Right}) {
        const double v = lfo_.read(voices_[phase], phase == Right ? ahead : 0);
        const auto r =
            MovingDelay::of(sampleRate_ * std::clamp(delay + depth * v, kEarliest, kLatest));
        delays_[phase] = {isFresh_ ? r : delays_[phase].to, r};
    }
    together_ = delays_[Left] == delays_[Right];
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
    const auto follow = [this](Course<T>& course, T to) {
        course.follow({isFresh_ ? to : course.at[kSubBlock - 1], to});
    };
    follow(dampKeep_, 1 - c.b);
    follow(dampStep_, c.b);
    follow(dampLow_, c.l);
    follow(dampDirect_, c.h);
    const auto delay = MovingDelay::of(share / (2 * g));
    dampDelay_ = {isFresh_ ? delay : dampDelay_.to, delay};
}

/// The copy turns round at the nearest tap, or runs through the place of the late dry signal.
template <typename T>
typename FlangerCore<T>::TapLaw FlangerCore<T>::heardLaw(bool throughZero) const noexcept
{
    if (throughZero) return {.offset = zero_ * kOne};
    return {.offset = kNearest * kOne, .turn = kNearest * kOne, .turns = true};
}

/// The loop is tuned to the comb, on either side of zero.
template <typename T>
typename FlangerCore<T>::TapLaw FlangerCore<T>::loopLaw(bool throughZero) noexcept
{
    const std::int64_t turn = throughZero ? 0 : kNearest * kOne;
    return {.offset = turn, .turn = turn, .turns = true, .isInLoop = true};
}

template <typename T>
void FlangerCore<T>::lay(const TapLaw& law, Phase phase, TapPath& path) const noexcept
{
    constexpr std::int64_t kLeast = kNearest * kOne;
    const MovingDelay& r = delays_[phase];
    const std::int64_t step = r.step(), first = r.from + step - law.turn, last = r.to - law.turn;
    const bool damps = law.isInLoop && damps_;
    const std::int64_t dampStep = damps ? dampDelay_.step() : 0;
    const std::int64_t damped = damps ? dampDelay_.from + dampStep : 0;

    const bool isNegative = law.turns && first < 0;
    path.first = law.offset + (isNegative ? -first : first) - damped;
    path.step = (isNegative ? -step : step) - dampStep;
    path.isEven = !law.turns || (first < 0) == (last < 0);
    if (law.isInLoop && path.isEven) {
        const std::int64_t end = path.first + (kSubBlock - 1) * path.step;
        path.isEven = (path.first < kLeast) == (end < kLeast);
        if (path.first < kLeast) path.first = kLeast, path.step = 0;
    }
    if (path.isEven) return;
    for (int i = 0; i < kSubBlock; ++i) {
        const std::int64_t delay = law.offset + std::abs(first + i * step) - damped - i * dampStep;
        path.at[static_cast<std::size_t>(i)] = law.isInLoop ? std::max(kLeast, delay) : delay;
    }
}

template <typename T> std::int64_t FlangerCore<T>::TapPath::least() const noexcept
{
    if (!isEven) return *std::min_element(at.begin(), at.end());
    return std::min(first, first + (kSubBlock - 1) * step);
}

template <typename T> void FlangerCore<T>::layTaps() noexcept
{
    const bool present = throughZero_.present(), leaving = throughZero_.leaving();
    const bool isFading = throughZero_.isFading(), hasLoop = !feedbacks_.is(0);
    isLoopHeard_ = hasLoop && !damps_ && !present && !isFading;
    std::int64_t least = (kSubBlock + kNearest) * kOne;
    for (const Phase phase : {Left, Right}) {
        if (together_ && phase == Right) break;
        for (std::size_t i = 0; i < (isFading ? 2 : 1); ++i) {
            auto& way = ways_[phase][i];
            lay(heardLaw(i ? leaving : present), phase, way.heard);
            if (!hasLoop) continue;
            lay(loopLaw(i ? leaving : present), phase, way.loop);
            least = std::min(least, way.loop.least());
        }
    }
    // What can be read before it is written, in groups of the reader.
    run_ = static_cast<int>(least >> 32) - FarrowLine<T>::kLeast;
    if (run_ > 8) run_ -= run_ % 8;
}

/// A tap of all channels at n frames of the sub-block from `at` on; the newest sample of the line
/// lies `later` behind the first of the frames.
template <typename T>
void FlangerCore<T>::read(TapPath TapPaths::*tap, std::size_t way, int at, std::int64_t later,
                          int n, T* const* out) noexcept
{
    std::size_t count = 0;
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        const TapPath& path = waysOf(channels_[c].phase)[way].*tap;
        const int line = static_cast<int>(c);
        if (path.isEven) {
            taps_[count++] = {
                line, {path.first + at * path.step + later, path.step - kOne}, out[c]};
            continue;
        }
        for (int i = 0; i < n; ++i) {
            const std::int64_t delay = path.at[static_cast<std::size_t>(at + i)];
            const typename FarrowLine<T>::Tap one{line, {delay + later - i * kOne, 0}, out[c] + i};
            line_.read({&one, 1}, 1);
        }
    }
    line_.read({taps_.data(), count}, n);
}

template <typename T>
void FlangerCore<T>::processSlice(const AudioBlock<T>& part, int offset) noexcept
{
    const int n = part.frames;
    throughZero_.next(part);
    dryWet_.next(part);
    if (part.begins()) begin(offset);
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        outs_[c] = part[static_cast<int>(c)];
        sanitise(outs_[c], n, kLoudestSignal);
        channels_[c].dry.push(outs_[c], n);
    }
    if (feedbacks_.is(0)) {
        for (std::size_t i = 0; i < channels_.size(); ++i)
            vec::copy(line_.incoming(static_cast<int>(i)), channels_[i].dry.tap(0, n), n);
        line_.advance(n);
    } else {
        for (int done = 0; done < n; done += run_) feedBack(part, done, std::min(run_, n - done));
    }
    if (!isLoopHeard_ && !dryWet_.isDry()) hear(part);
    output(part);
    throughZero_.advance(n);
    lastFrame_ = part.phase + n - 1;
}

/// n frames of the slice from `done` on pass the loop; with isLoopHeard_ its tap is the output.
template <typename T>
void FlangerCore<T>::feedBack(const AudioBlock<T>& part, int done, int n) noexcept
{
    const int at = part.phase + done;
    const std::size_t channels = channels_.size();
    for (std::size_t c = 0; c < channels; ++c)
        backs_[c] = isLoopHeard_ ? outs_[c] + done : loops_.data() + c * kSubBlock;
    read(&TapPaths::loop, 0, at, -kOne, n, backs_.data());
    Crossfade fade = throughZero_.fade();
    fade.advance(done);
    if (fade.isRunning()) {
        read(&TapPaths::loop, 1, at, -kOne, n, olds_.data());
        for (std::size_t c = 0; c < channels; ++c) fade.mix(backs_[c], olds_[c], n);
    }
    for (std::size_t c = 0; damps_ && c < channels; c += 2) {
        if (c + 1 < channels)
            damp<2>(&backs_[c], &channels_[c], at, n);
        else
            damp<1>(&backs_[c], &channels_[c], at, n);
    }
    const T* const k = feedbacks_.at + at;
    for (std::size_t c = 0; c < channels; ++c) {
        const T* const x = channels_[c].dry.tap(0, part.frames) + done;
        const T* const back = backs_[c];
        T* const w = line_.incoming(static_cast<int>(c));
        constexpr T kMost = T(kLoudestFeedback);
        for (int i = 0; i < n; ++i) {
            T more = k[i] * back[i];
            more = more < kMost ? more : kMost;
            more = more > -kMost ? more : -kMost;
            w[i] = x[i] + more;
        }
    }
    line_.advance(n);
}

/// Channels of the loop side by side, in place, from frame `phase` of the sub-block on.
template <typename T>
template <std::size_t count>
void FlangerCore<T>::damp(T* const* x, Channel* channels, int phase, int n) const noexcept
{
    // z' = z + b (x - z), as two products: each sample waits for the last one's sum alone.
    const T* const keep = dampKeep_.at + phase;
    const T* const step = dampStep_.at + phase;
    const T* const l = dampLow_.at + phase;
    const T* const direct = dampDirect_.at + phase;
    std::array<T*, count> to;
    std::array<T, count> z;
    for (std::size_t c = 0; c < count; ++c) to[c] = x[c], z[c] = channels[c].low;
    for (int i = 0; i < n; ++i)
        for (std::size_t c = 0; c < count; ++c) {
            const T in = to[c][i];
            to[c][i] = l[i] * z[c] + direct[i] * in;
            z[c] = keep[i] * z[c] + step[i] * in;
        }
    for (std::size_t c = 0; c < count; ++c) channels[c].low = z[c];
}

/// The taps that are heard, all of the slice being in the line.
template <typename T> void FlangerCore<T>::hear(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    const std::int64_t later = (n - 1) * kOne;
    read(&TapPaths::heard, 0, part.phase, later, n, outs_.data());
    if (!throughZero_.isFading()) return;
    read(&TapPaths::heard, 1, part.phase, later, n, olds_.data());
    for (std::size_t c = 0; c < channels_.size(); ++c)
        throughZero_.fade().mix(outs_[c], olds_[c], n);
}

/// From the taps in the block to what leaves.
template <typename T> void FlangerCore<T>::output(const AudioBlock<T>& part) noexcept
{
    const T* const gains = wetGains_.of(part);
    const T* const shares = dryWet_.wetGains(part);
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        T* const wet = outs_[c];
        T faded[kSubBlock];
        if (dryWet_.isWet()) {
            wetGains_.scale(wet, part);
            continue;
        }
        const T* const dry = dryOf(channels_[c], part.frames, faded);
        if (dryWet_.isDry())
            vec::copy(wet, dry, part.frames);
        else
            for (int i = 0; i < part.frames; ++i)
                wet[i] = dry[i] + (wet[i] * gains[i] - dry[i]) * shares[i];
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

/// Where the tap that is heard has come in the open sub-block, against the dry signal; in ms.
template <typename T> float FlangerCore<T>::heard(Phase phase) const noexcept
{
    const TapPath& path = waysOf(phase)[0].heard;
    const auto delay = path.isEven ? path.first + lastFrame_ * path.step
                                   : path.at[static_cast<std::size_t>(lastFrame_)];
    const double samples = double(delay) / double(kOne) - delayOfDry(throughZero_.present());
    return static_cast<float>(1000 * samples / sampleRate_);
}

template <typename T> void FlangerCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publish("Dly0"_tag, heard(Left));
    meters.publish("Dly1"_tag, heard(Right));
    publishLfoPhase(meters, lfo_.place());
}

template class FlangerCore<float>;
template class FlangerCore<double>;

FlangerAlgorithm::FlangerAlgorithm() : PrecisionAlgorithm(kParameters) {}

FlangerComponent::FlangerComponent(FlangerAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "Flanger", .kind = "flanger"})
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
