// SPDX-License-Identifier: ISC
#include "reverb/early_reflections.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/decibel.h"
#include "dsp/fractional_delay.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kTapFade = 0.05;             // s
constexpr double kWallGlide = 0.03;           // s
constexpr double kOctaveTolerance = 0.00144;  // 0.1 %
constexpr double kDecibelTolerance = 1e-4;
/// What a wall takes from the highs at most and adds at most, in dB.
constexpr double kMostDull = -40, kMostBright = 12;
constexpr double kHalf = 0.70710678118654752;  // of the power: the middle in each of two sources
constexpr double kPairSpan = 0.17;             // m between the pair's microphones
constexpr double kPairLead = 0.00025;          // s: above half the way between them
constexpr double kPairAngle = 55 * std::numbers::pi / 180;
/// Below this rate a sample is too much between the microphones of the pair.
constexpr double kFineBelow = 32000;  // Hz
constexpr double kOverhead = 30 * std::numbers::pi / 180;
constexpr double kLeastPower = 1e-6;  // of a speaker, else it is left out

}  // namespace

template <typename T>
void EarlyReflections<T>::prepare(double sampleRate, std::span<const SpeakerPlace> places)
{
    sampleRate_ = sampleRate;
    channels_ = static_cast<int>(places.size());
    sources_ = channels_ == 1 ? 1 : kReflectionSources;
    isPair_ = channels_ == 2 && places[0].azimuth * places[1].azimuth < 0;
    isSwapped_ = isPair_ && places[0].azimuth > 0;
    isFine_ = isPair_ && sampleRate < kFineBelow;
    std::vector<UnitVector> directions;
    heightElevation_ = 0;
    for (int c = 0; c < channels_; ++c) {
        const auto& place = places[static_cast<std::size_t>(c)];
        directions.push_back(place.direction());
        heightElevation_ = std::max(heightElevation_, place.elevation);
        auto& share = shares_[static_cast<std::size_t>(c)];
        const bool isMiddle = place.azimuth == 0 || std::abs(place.azimuth) == 180;
        if (isMiddle)
            share = {T(kHalf), T(kHalf)};
        else
            share = {T(place.azimuth < 0), T(place.azimuth > 0)};
    }
    panner_.prepare(directions);
    capacity_ = BoxRoom::kMostReflections * sources_ * (isFine_ ? 4 : 1);
    for (TapSet& set : sets_) set.taps.require(static_cast<std::size_t>(capacity_ * channels_));
    fade_.prepare(sampleRate, kTapFade);
    wallOctave_.prepare(sampleRate, kWallGlide);
    wallOctave_.setTolerance(kOctaveTolerance);
    wallDecibels_.prepare(sampleRate, kWallGlide);
    wallDecibels_.setTolerance(kDecibelTolerance);
    latest_ = static_cast<int>(kLatest * sampleRate);
    const std::vector<int> longest(static_cast<std::size_t>(kReflectionOrders * kReflectionSources),
                                   latest_);
    rings_.prepare(longest);
}

template <typename T> void EarlyReflections<T>::target(const EarlyRoom& room) noexcept
{
    wanted_ = room;
    const BoxRoom box(room.shape, room.size);
    const double ratio = box.reflectance(room.highDecay) / box.reflectance(room.decay);
    wallDecibels_.target(
        std::clamp(20 * std::log10(std::max(ratio, 1e-9)), kMostDull, kMostBright));
    wallOctave_.target(std::log2(room.highFrequency));
}

template <typename T> void EarlyReflections<T>::reset() noexcept
{
    present_ = building_ = Geometry(wanted_);
    coming().counts = {};
    for (int source = 0; source < sources_; ++source) addSource(source);
    sortTaps();
    current_ = 1 - current_;
    built_ = -1;
    fade_.finish();
    wallOctave_.snap();
    wallDecibels_.snap();
    wallsTo_ = walls();
    wallsMove_ = false;
    states_ = {};
    rings_.clear();
    heard_ = 0;
}

/// A sub-block begins.
template <typename T> void EarlyReflections<T>::begin() noexcept
{
    const bool glides = wallOctave_.isGliding() || wallDecibels_.isGliding();
    if (glides) {
        const auto from = wallsTo_;
        wallOctave_.next(kWholeSubBlock);
        wallDecibels_.next(kWholeSubBlock);
        wallsTo_ = walls();
        constexpr T share = T(1) / kSubBlock;
        wallsStep_.keep = (wallsTo_.keep - from.keep) * share;
        wallsStep_.feed = (wallsTo_.feed - from.feed) * share;
        wallsStep_.through = (wallsTo_.through - from.through) * share;
    }
    wallsMove_ = glides;

    if (built_ < 0) {
        if (fade_.isRunning() || Geometry(wanted_) == present_) return;
        building_ = Geometry(wanted_);
        coming().counts = {};
        built_ = 0;
    }
    if (built_ < sources_) return addSource(built_++);
    sortTaps();
    current_ = 1 - current_;
    present_ = building_;
    built_ = -1;
    fade_.start();
}

template <typename T> WallCoefficients<T> EarlyReflections<T>::walls() const noexcept
{
    return WallCoefficients<T>(OnePoleCoefficients<double>::highShelf(
        std::exp2(wallOctave_.current()), dbToGain(wallDecibels_.current()), sampleRate_));
}

/// To the coming taps.
template <typename T> void EarlyReflections<T>::addSource(int source) noexcept
{
    const BoxRoom box(building_.shape, building_.size);
    panningHint_ = 0;
    BoxRoom::Reflections found;
    const int side = sources_ == 1 ? 0 : source == 0 ? 1 : -1;
    const int n =
        box.reflections(side, building_.distance, box.reflectance(building_.decay), found);
    for (int i = 0; i < n; ++i) {
        const Reflection& reflection = found[static_cast<std::size_t>(i)];
        if (reflection.delay + 2 * kPairLead > kLatest) continue;
        const int ring = ringOf(reflection.order, source);
        if (isPair_)
            hearAsPair(ring, reflection);
        else if (channels_ == 1)
            addTap(0, ring, reflection.delay, reflection.gain);
        else
            pan(ring, reflection);
    }
}

template <typename T>
void EarlyReflections<T>::hearAsPair(int ring, const Reflection& reflection) noexcept
{
    for (int channel = 0; channel < 2; ++channel) {
        const double left = (channel == 0) != isSwapped_ ? 1 : -1;
        const double gain = 0.5 + 0.5 * std::cos(reflection.azimuth - left * kPairAngle);
        const double nearer = left * kPairSpan / 2 * std::sin(reflection.azimuth) / kSoundSpeed;
        addTap(channel, ring, reflection.delay + kPairLead - nearer, reflection.gain * gain);
    }
}

/// Each reflection lies in the ring of the ear or in that of the height, between two speakers.
template <typename T> void EarlyReflections<T>::pan(int ring, const Reflection& reflection) noexcept
{
    constexpr double degrees = 180 / std::numbers::pi;
    const double elevation = reflection.elevation > kOverhead ? heightElevation_ : 0;
    const SpeakerPlace place{-reflection.azimuth * degrees, elevation, false};
    double powers[HullPanner::kMostSpeakers];
    panner_.powers(place.direction(), powers, panningHint_);
    for (int c = 0; c < channels_; ++c)
        if (powers[c] > kLeastPower)
            addTap(c, ring, reflection.delay, reflection.gain * std::sqrt(powers[c]));
}

template <typename T>
void EarlyReflections<T>::addTap(int channel, int ring, double delay, double gain) noexcept
{
    TapSet& set = coming();
    int& count = set.counts[static_cast<std::size_t>(channel)];
    Tap* const taps = tapsOf(set, channel);
    const auto begin = static_cast<std::int32_t>(rings_.next(ring) - rings_.next(0));
    const auto add = [&](int samples, double g) {
        taps[count++] = {samples, begin - samples, static_cast<T>(g)};
    };
    const double samples = delay * sampleRate_;
    if (!isFine_) return add(static_cast<int>(samples + 0.5), gain);
    const LagrangeWeights<double> weights(samples);
    for (int i = 0; i < 4; ++i) add(weights.first + i, gain * weights.tap[i]);
}

template <typename T> void EarlyReflections<T>::sortTaps() noexcept
{
    for (int c = 0; c < channels_; ++c) {
        Tap* const taps = tapsOf(coming(), c);
        std::sort(taps, taps + coming().counts[static_cast<std::size_t>(c)],
                  [](const Tap& a, const Tap& b) {
                      return a.delay != b.delay ? a.delay < b.delay : a.offset < b.offset;
                  });
    }
}

/// The sources' sounds, filtered by the walls, into the rings.
template <typename T> void EarlyReflections<T>::takeIn(const T* const* in, GridSlice slice) noexcept
{
    if (slice.begins()) begin();
    const int n = slice.frames;
    T sources[kReflectionSources][kReflectionRow];
    WallRun<T> run;
    for (int s = 0; s < kReflectionSources; ++s) {
        run.in[s] = sources[s];
        for (int k = 0; k < kReflectionOrders; ++k) run.out[s][k] = rings_.next(ringOf(k + 1, s));
    }
    if (channels_ == 1) {
        run.in[0] = run.in[1] = in[0];
    } else if (isPair_) {
        run.in[0] = in[isSwapped_ ? 1 : 0];
        run.in[1] = in[isSwapped_ ? 0 : 1];
    } else {
        for (int s = 0; s < kReflectionSources; ++s) {
            vec::clear(sources[s], n);
            for (int c = 0; c < channels_; ++c)
                if (const T share = shares_[std::size_t(c)][std::size_t(s)]; share != 0)
                    vec::addScaled(sources[s], in[c], share, n);
        }
    }
    run.states = states_.data();
    run.to = wallsTo_;
    run.step = wallsStep_;
    run.frames = n;
    run.phase = slice.phase;
    run.moves = wallsMove_;
    runWalls(run);
    rings_.committed(n);
}

template <typename T>
void EarlyReflections<T>::sum(const TapSet& set, int channel, T* out, int n) noexcept
{
    const Tap* const taps = set.taps.data() + channel * capacity_;
    const Tap* const end = taps + set.counts[static_cast<std::size_t>(channel)];
    // Taps that the first sound has reached where the sub-block begins.
    const Tap* whole = end;
    while (whole != taps && whole[-1].delay > heard_) --whole;
    const int place = rings_.place(0);
    const Tap* wrapped = whole;
    if (wrapped != taps && wrapped[-1].delay > place)
        wrapped = std::upper_bound(taps, whole, place,
                                   [](int at, const Tap& tap) { return at < tap.delay; });
    addReflections(ReflectionRun<T>{rings_.next(0), rings_.frames(0), taps,
                                    static_cast<int>(whole - taps),
                                    static_cast<int>(wrapped - taps), out, n});
    // And those that it reaches now.
    const auto stride = static_cast<int>(rings_.next(1) - rings_.next(0));
    for (; whole != end && whole->delay < heard_ + kSubBlock; ++whole) {
        T begun[GridLines<T>::kRow];
        const T* const x =
            rings_.read((whole->offset + whole->delay) / stride, whole->delay, n, begun);
        vec::addScaled(out, x, whole->gain, n);
    }
}

template <typename T>
void EarlyReflections<T>::process(const T* const* in, T* const* out, GridSlice slice) noexcept
{
    takeIn(in, slice);
    const int n = slice.frames;
    for (int c = 0; c < channels_; ++c) {
        std::fill_n(out[c], kReflectionRow, T(0));
        sum(sets_[current_], c, out[c], n);
        if (!fade_.isRunning()) continue;
        alignas(64) T old[kReflectionRow]{};
        sum(sets_[1 - current_], c, old, n);
        fade_.mix(out[c], static_cast<const T*>(old), n);
    }
    advance(slice);
}

template <typename T> void EarlyReflections<T>::listen(const T* const* in, GridSlice slice) noexcept
{
    takeIn(in, slice);
    advance(slice);
}

template <typename T> void EarlyReflections<T>::advance(GridSlice slice) noexcept
{
    fade_.advance(slice.frames);
    rings_.advance(slice.frames);
    if (slice.ends() && heard_ <= latest_) heard_ += kSubBlock;
}

template class EarlyReflections<float>;
template class EarlyReflections<double>;

}  // namespace quillworks
