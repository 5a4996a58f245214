// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/level_detector.cpp"
#include "dsp/simd.h"
//
#include <cmath>

#include "dsp/control_grid.h"
#include "dynamics/level_detector.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using State = LevelDetector::State;
using D = hn::CappedTag<double, 2>;  // one number, the same in all lanes
using V = hn::Vec<D>;

HWY_INLINE V set(double x)
{
    return hn::Set(D(), x);
}

/// A PeakFollower, or with `isFloor` a FloorFollower.
template <bool isFloor> struct Follower {
    V rise, fall, riseShare, fallShare, envelope;

    template <class F>
    HWY_INLINE explicit Follower(const F& f)
        : rise(set(f.rise)),
          fall(set(f.fall)),
          riseShare(set(1 - f.rise)),
          fallShare(set(1 - f.fall)),
          envelope(set(f.envelope))
    {}
    HWY_INLINE V next(V x)
    {
        const V rising = hn::MulAdd(rise, envelope, hn::Mul(riseShare, x));
        const V falling = hn::MulAdd(fall, envelope, hn::Mul(fallShare, x));
        envelope = isFloor ? hn::Min(rising, falling) : hn::Max(rising, falling);
        return envelope;
    }
};

/// Mean square: a leaky sum of the deviations above the envelope less those below pushes it up by
/// the attack step or down by the release coefficient.
///
/// With U and D the sums of deviations up and down only their difference d counts, and it obeys
/// d' = leak (d + (1 - leak)(x^2 - E)); then E' = max(0, E + k d'), k the attack step for d' > 0,
/// the release coefficient otherwise. With w = leak d + share x^2, share = leak (1 - leak), this is
/// d' = w - share E and E + k d' = (1 - k share) E + k w. Of the two k the one that applies gives
/// the larger value if it is the larger of the two, else the smaller: no branch on the signal. And
/// w' = leak w + share x^2 - leak share E, with the E before the last: a short chain per sample.
template <bool attackIsLarger> struct MeanSquare {
    V attack, release, attackLess, releaseLess, envelope, before, drive;

    HWY_INLINE explicit MeanSquare(const State& s)
        : attack(set(s.attack)),
          release(set(s.release)),
          attackLess(set(s.attackLess)),
          releaseLess(set(s.releaseLess)),
          envelope(set(s.envelope)),
          before(set(s.before)),
          drive(set(s.drive))
    {}
    HWY_INLINE V next(V x)
    {
        constexpr double share = LevelDetector::kShare, leak = LevelDetector::kLeak;
        drive = hn::MulAdd(set(leak), drive, hn::Mul(set(share), hn::Mul(x, x)));
        drive = hn::NegMulAdd(set(leak * share), before, drive);
        const V rising = hn::MulAdd(attackLess, envelope, hn::Mul(attack, drive));
        const V falling = hn::MulAdd(releaseLess, envelope, hn::Mul(release, drive));
        before = envelope;
        envelope = hn::Max(attackIsLarger ? hn::Max(rising, falling) : hn::Min(rising, falling),
                           hn::Zero(D()));
        return envelope;
    }
    HWY_INLINE void save(State& s) const
    {
        s.envelope = hn::GetLane(envelope);
        s.before = hn::GetLane(before);
        s.drive = hn::GetLane(drive);
    }
};

struct AutoSpeed {
    Follower<true> follower;

    HWY_INLINE explicit AutoSpeed(const State& s) : follower(s.slow) {}
    HWY_INLINE V next(V x) { return follower.next(hn::Abs(x)); }
    HWY_INLINE void save(State& s) const { s.slow.envelope = hn::GetLane(follower.envelope); }
};

template <bool isAdaptive, class Smoother>
HWY_INLINE void follow(State& s, const double* key, double* level, int n)
{
    Follower<false> input(s.input), lowBand(s.lowBand), highBand(s.highBand);
    Smoother smoother(s);
    V low = set(s.low);
    const V feedback = set(s.feedback);
    double forward[kSubBlock];
    if (isAdaptive && n > 0) {
        forward[0] = s.feedForward * (key[0] + s.key);
        for (int i = 1; i < n; ++i) forward[i] = s.feedForward * (key[i] + key[i - 1]);
        s.key = key[n - 1];
    }
    for (int i = 0; i < n; ++i) {
        V x = set(key[i]);
        input.next(hn::Abs(x));
        if constexpr (isAdaptive) {
            low = hn::MulAdd(feedback, low, set(forward[i]));
            x = hn::Add(lowBand.next(hn::Abs(low)), highBand.next(hn::Abs(hn::Sub(x, low))));
        }
        level[i] = hn::GetLane(smoother.next(x));
    }
    s.input.envelope = hn::GetLane(input.envelope);
    if (isAdaptive) {
        s.low = hn::GetLane(low);
        s.lowBand.envelope = hn::GetLane(lowBand.envelope);
        s.highBand.envelope = hn::GetLane(highBand.envelope);
    }
    smoother.save(s);
}

template <bool isAdaptive>
HWY_INLINE void followBy(State& s, const double* key, double* level, int n,
                         LevelDetector::Speed speed)
{
    if (speed == LevelDetector::Speed::Auto)
        follow<isAdaptive, AutoSpeed>(s, key, level, n);
    else if (s.attack >= s.release)
        follow<isAdaptive, MeanSquare<true>>(s, key, level, n);
    else
        follow<isAdaptive, MeanSquare<false>>(s, key, level, n);
}

void runDetector(State& s, const double* key, double* level, int n, bool isAdaptive,
                 LevelDetector::Speed speed)
{
    if (isAdaptive)
        followBy<true>(s, key, level, n, speed);
    else
        followBy<false>(s, key, level, n, speed);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>
#include <numbers>

namespace quillworks {

HWY_EXPORT(runDetector);
static const auto chosenDetector = SIMD_CHOOSE(runDetector);

void LevelDetector::prepare(double sampleRate) noexcept
{
    constexpr double kSplit = 500;  // Hz
    s_.input.setTimes(sampleRate, 100 / sampleRate, std::max(1.0, 100 / sampleRate));
    const double k = std::tan(std::numbers::pi * std::min(kSplit, 0.49 * sampleRate) / sampleRate);
    s_.feedForward = k / (1 + k);
    s_.feedback = (1 - k) / (1 + k);
    s_.lowBand.setTimes(sampleRate, 0.004, 0.2);
    s_.highBand.setTimes(sampleRate, 0.0004, 0.02);
    s_.slow.setTimes(sampleRate, 3.0, 0.1);
}

void LevelDetector::setTimes(double sampleRate, double attack, double release) noexcept
{
    s_.attack = 1 / (sampleRate * attack);
    s_.release = 1 - followerCoefficient(sampleRate, release);
    s_.attackLess = 1 - s_.attack * kShare;
    s_.releaseLess = 1 - s_.release * kShare;
}

void LevelDetector::reset() noexcept
{
    clearBands();
    s_.input.reset();
    s_.slow.reset();
    s_.envelope = s_.before = s_.drive = 0;
}

void LevelDetector::clearBands() noexcept
{
    s_.key = s_.low = 0;
    s_.lowBand.reset();
    s_.highBand.reset();
}

void LevelDetector::start(Speed speed) noexcept
{
    if (speed == Speed::Auto) {
        s_.slow.envelope = std::sqrt(s_.envelope);
    } else {
        s_.envelope = s_.before = s_.slow.envelope * s_.slow.envelope;
        s_.drive = kShare * s_.before;  // on its way neither up nor down
    }
}

void LevelDetector::run(const double* key, double* level, int n, bool isAdaptive,
                        Speed speed) noexcept
{
    chosenDetector(s_, key, level, n, isAdaptive, speed);
}

void LevelDetector::runBoth(const double* key, double* timed, double* automatic, int n,
                            bool isAdaptive) noexcept
{
    // The second run hears the bands as the first did, so that only the smoothers go on twice.
    LevelDetector other = *this;
    other.run(key, automatic, n, isAdaptive, Speed::Auto);
    s_.slow = other.s_.slow;
    run(key, timed, n, isAdaptive, Speed::Timed);
}

}  // namespace quillworks
#endif
