// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/expander_gain.cpp"
#include "dsp/simd.h"
//
#include "dynamics/expander_gain.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// In every lane the same: vectors serve for their branch-free choices, since which way the
/// envelope goes changes with every half wave.
void followExpander(ExpanderEnvelope& state, double* x, int n)
{
    const hn::CappedTag<double, 2> d;
    const auto zero = hn::Zero(d), one = hn::Set(d, 1.0);
    const auto attack = hn::Set(d, state.attack), attackLess = hn::Set(d, 1 - state.attack);
    const auto release = hn::Set(d, state.release), releaseLess = hn::Set(d, 1 - state.release);
    const auto threshold = hn::Set(d, state.threshold), ceiling = hn::Set(d, state.ceiling);
    const auto holdFrames = hn::Set(d, state.holdFrames);
    auto envelope = hn::Set(d, state.envelope), hold = hn::Set(d, state.hold);
    auto lowest = hn::Set(d, 1e300), highest = zero;
    for (int i = 0; i < n; ++i) {
        const auto level = hn::Set(d, x[i]);
        const auto isAbove = hn::Gt(level, threshold);
        const auto aim = hn::IfThenElse(isAbove, ceiling, level);
        const auto rises = hn::Gt(level, envelope);
        const auto holds = hn::Gt(hold, zero);
        const auto risen = hn::MulAdd(attackLess, envelope, hn::Mul(attack, aim));
        const auto fallen = hn::IfThenElse(
            holds, envelope, hn::MulAdd(releaseLess, envelope, hn::Mul(release, level)));
        envelope = hn::IfThenElse(rises, risen, fallen);
        // A rising level above the threshold starts the hold; else it runs down, below 0 unseen.
        hold =
            hn::IfThenElse(hn::And(rises, isAbove), holdFrames, hn::Max(hn::Sub(hold, one), zero));
        lowest = hn::Min(lowest, envelope);
        highest = hn::Max(highest, envelope);
        x[i] = hn::GetLane(envelope);
    }
    state.envelope = hn::GetLane(envelope);
    state.hold = hn::GetLane(hold);
    state.lowest = hn::GetLane(lowest);
    state.highest = hn::GetLane(highest);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>
#include <cmath>
#include <type_traits>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {

HWY_EXPORT(followExpander);
void (*const chosenFollower)(ExpanderEnvelope&, double*, int) = SIMD_CHOOSE(followExpander);

void ExpanderEnvelope::run(double* x, int n) noexcept
{
    chosenFollower(*this, x, n);
}

template <typename T> void ExpanderGain<T>::setSampleRate(double sampleRate) noexcept
{
    if (sampleRate != sampleRate_)
        follower_.holdFrames = std::trunc(follower_.holdFrames * sampleRate / sampleRate_);
    sampleRate_ = sampleRate;
    setAttack(attack_);
    setRelease(release_);
}

template <typename T> void ExpanderGain<T>::reset() noexcept
{
    follower_.envelope = 0;
    follower_.hold = 0;
}

template <typename T> double ExpanderGain<T>::linear(double db) noexcept
{
    return db >= kSilenceDb ? dbToGain(db) : kSilence;
}

template <typename T> void ExpanderGain<T>::setThreshold(double db) noexcept
{
    threshold_ = db;
    follower_.threshold = linear(db);
    follower_.ceiling = 1.05 * follower_.threshold;
    findFloorLevel();
}

template <typename T> void ExpanderGain<T>::setRange(double db) noexcept
{
    range_ = db;
    findFloorLevel();
}

template <typename T> void ExpanderGain<T>::setSlope(double v) noexcept
{
    slope_ = -v;
    findFloorLevel();
}

template <typename T> void ExpanderGain<T>::findFloorLevel() noexcept
{
    // A gentle slope reaches the range at no level at all: none reads below kSilenceDb.
    const double db = slope_ > 0 ? threshold_ + range_ / slope_ : kSilenceDb;
    floorLevel_ = db > kSilenceDb ? dbToGain(db) : 0;
}

/// Share of the way per sample: about 68 % of it in the time given. The float form rounds as it
/// always has; both agree to seven digits.
template <typename T> double ExpanderGain<T>::coefficient(double seconds) const noexcept
{
    if (seconds < 0) return 1;
    if constexpr (std::is_same_v<T, double>)
        return std::clamp(1.144254407138273 / (seconds * sampleRate_), 0.0, 1.0);
    const float scaled = static_cast<float>(seconds) * 19270.19f;
    return std::clamp(double(1 / static_cast<float>(sampleRate_ / 22050 * double(scaled))), 0.0,
                      1.0);
}

template <typename T> void ExpanderGain<T>::setAttack(double seconds) noexcept
{
    attack_ = seconds;
    follower_.attack = coefficient(seconds);
}

template <typename T> void ExpanderGain<T>::setRelease(double seconds) noexcept
{
    release_ = seconds;
    follower_.release = coefficient(seconds);
}

template <typename T> void ExpanderGain<T>::setHold(double seconds) noexcept
{
    follower_.holdFrames = std::trunc(seconds * sampleRate_);
}

template <typename T> bool ExpanderGain<T>::run(double* x, T* gainDb, int n) noexcept
{
    if (!expands()) {
        vec::clear(gainDb, n);
        return true;
    }
    follower_.run(x, n);
    // The logarithm is left out where the gain is certain: all above the threshold or all beyond
    // the range, by a margin for its rounding.
    constexpr double kSure = 1.0001;
    if (follower_.lowest > follower_.threshold * kSure) {
        vec::clear(gainDb, n);
        return true;
    }
    if (follower_.highest * kSure < floorLevel_) {
        vec::set(gainDb, T(range_), n);
        return true;
    }
    for (int i = 0; i < n; ++i) gainDb[i] = T(x[i] > kSilence ? x[i] : kSilence);
    vec::log10(gainDb, gainDb, n);
    // Below the threshold slope dB per dB, down to the range; above it 0.
    const T slope = T(slope_), offset = T(-threshold_ * slope_), range = T(range_);
    for (int i = 0; i < n; ++i) {
        const T gain = gainDb[i] * (20 * slope) + offset;
        const T floored = gain > range ? gain : range;
        gainDb[i] = floored < 0 ? floored : T(0);
    }
    return false;
}

template class ExpanderGain<float>;
template class ExpanderGain<double>;

}  // namespace quillworks
#endif
