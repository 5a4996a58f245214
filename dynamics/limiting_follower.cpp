// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/limiting_follower.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dsp/vector_math-inl.h"
#include "dynamics/limiting_follower.h"

#ifndef QUILLWORKS_LIMITING_FOLLOWER_CONSTANTS
#define QUILLWORKS_LIMITING_FOLLOWER_CONSTANTS
namespace quillworks {
namespace {

constexpr double kFinestStepsPerDb = 16777216;      // 2^24
constexpr double kWhole = 4503599627370496.0;       // 2^52: doubles from here on are whole numbers,
constexpr std::int64_t kWholeBits = 0x433LL << 52;  // in their low bits
constexpr double kSmallest = 1e-5;                  // dB: a release ends here
// No reduction is larger: the input is limited to +60 dB, its gain to +18, the ceiling to -12, a
// true peak to +12 above the samples, the threshold to -12.
constexpr double kMostReduction = 128;  // dB

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<double, 8>;
using I = hn::RebindToSigned<D>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

/// The larger of `a` and `b` in steps, rounded up; arrays padded to whole vectors.
void roundUp(const double* a, const double* b, double stepsPerDb, std::int64_t* steps, int n)
{
    const D d;
    const I i64;
    const auto whole = hn::Set(d, kWhole);
    for (int i = 0; i < n; i += kLanes) {
        const auto db = hn::Max(hn::LoadU(d, a + i), hn::LoadU(d, b + i));
        const auto up = hn::Add(hn::Ceil(hn::Mul(db, hn::Set(d, stepsPerDb))), whole);
        hn::StoreU(hn::Sub(hn::BitCast(i64, up), hn::Set(i64, kWholeBits)), i64, steps + i);
    }
}

/// Moves a body by `soon`, the most that the look-ahead holds, and `recent`, that and the running
/// span, so >= soon.
void move(LimitingFollower::Body& body, const double* soon, const double* recent, double* out,
          int n)
{
    using Body = LimitingFollower::Body;
    const D d;
    double b = body.value, goal = body.goal, away = body.away;
    int steps = body.steps;
    const auto step = [&](double to, const Body::Pace& pace) HWY_ATTR {
        if (goal != to) {
            goal = to;
            away = b - to;
            steps = 0;
        }
        b = goal + away * pace.powers[++steps];
        if (steps == Body::kSteps) {
            away = b - goal;
            steps = 0;
        }
    };
    // As many whole vectors as keep falling to one goal, and as many as stay where they are.
    const auto leap = [&](int i) HWY_ATTR {
        for (; i + kLanes <= n; i += kLanes) {
            const auto floor = hn::LoadU(d, recent + i);
            if (steps + kLanes >= Body::kSteps || !hn::AllTrue(d, hn::Eq(floor, hn::Set(d, goal))))
                return i;
            const auto powers = hn::LoadU(d, body.release.powers + steps + 1);
            const auto fallen = hn::Add(floor, hn::Mul(hn::Set(d, away), powers));
            const double last = goal + away * body.release.powers[steps + kLanes];
            if (!(last > goal && last >= kSmallest)) return i;
            hn::StoreU(fallen, d, out + i);
            steps += kLanes;
            b = last;
        }
        return i;
    };
    const auto rest = [&](int i) HWY_ATTR {
        const auto level = hn::Set(d, b);
        for (; i + kLanes <= n; i += kLanes) {
            const auto stays = hn::And(hn::Le(hn::LoadU(d, soon + i), level),
                                       hn::Ge(hn::LoadU(d, recent + i), level));
            if (!hn::AllTrue(d, stays)) return i;
            hn::StoreU(level, d, out + i);
        }
        return i;
    };
    for (int i = 0; i < n;) {
        if (soon[i] > b) {
            step(soon[i], body.attack);
        } else if (recent[i] < b) {
            if (recent[i] == goal && away > 0 && steps > 0) {
                if (const int next = leap(i); next > i) {
                    i = next;
                    continue;
                }
            }
            step(recent[i], body.release);
            if (b < kSmallest) {
                b = goal = away = 0;
                steps = 0;
            }
        } else if (const int next = rest(i); next > i) {
            i = next;
            continue;
        }
        out[i++] = b;
    }
    body.value = b;
    body.goal = goal;
    body.away = away;
    body.steps = steps;
}

/// gain[i] is steps[i] * unit dB of reduction, padded likewise. The steps are below 2^52. Returns
/// the largest reduction in dB.
double toGain(const std::int64_t* steps, double unit, double* gain, int n)
{
    const D d;
    const I i64;
    constexpr auto dbPerOctave = static_cast<double>(20 * vec::HWY_NAMESPACE::kLog10Of2);
    const auto octavesPerStep = hn::Set(d, unit / dbPerOctave);
    auto least = hn::Zero(d);
    for (int i = 0; i < n; i += kLanes) {
        const auto bits = hn::Add(hn::LoadU(i64, steps + i), hn::Set(i64, kWholeBits));
        const auto minus = hn::Sub(hn::Set(d, kWhole), hn::BitCast(d, bits));
        auto octaves = hn::Mul(minus, octavesPerStep);
        if (n - i < kLanes)
            octaves = hn::IfThenElseZero(hn::FirstN(d, static_cast<std::size_t>(n - i)), octaves);
        least = hn::Min(least, octaves);
        hn::StoreU(vec::HWY_NAMESPACE::ordinaryExponential(d, octaves, 1), d, gain + i);
    }
    return -hn::GetLane(hn::MinOfLanes(d, least)) * dbPerOctave;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(roundUp);
HWY_EXPORT(toGain);
HWY_EXPORT(move);
namespace {

void (*const chosenRoundUp)(const double*, const double*, double, std::int64_t*,
                            int) = SIMD_CHOOSE(roundUp);

double (*const chosenToGain)(const std::int64_t*, double, double*, int) = SIMD_CHOOSE(toGain);

void (*const chosenMove)(LimitingFollower::Body&, const double*, const double*, double*,
                         int) = SIMD_CHOOSE(move);

constexpr int kPadding = 8;  // of the arrays that kernels take by whole vectors

/// As fine as the sum of `count` reductions, in steps, stays below 2^52 and so exact.
double stepsPerDbFor(double count)
{
    double steps = kFinestStepsPerDb;
    while (steps * kMostReduction * count >= kWhole) steps /= 2;
    return steps;
}

}  // namespace

void LimitingFollower::prepare(double rate)
{
    rate_ = rate;
    lookAhead_ = lookAheadAt(rate);
    span_ = static_cast<int>(kSpan * rate);
    const int support = lookAhead_ + 1;
    wanted_.prepare(support, support + span_);
    due_.prepare(support, support + span_);  // alike, so that one can take over from the other
    // Two lengths that give one mean of `support` samples together.
    inner_.prepare(lookAhead_ / 2 + 1);
    outer_.prepare(support + 1 - inner_.length());
    const double count = double(inner_.length()) * outer_.length();
    stepsPerDb_ = stepsPerDbFor(count);
    unit_ = 1 / (stepsPerDb_ * count);
    quietEnough_ = support + span_ + support;
    setHold(holds_);
    setTimes(attackSeconds_, releaseSeconds_);
    reset();
}

void LimitingFollower::reset() noexcept
{
    wanted_.reset();
    due_.reset();
    inner_.reset();
    outer_.reset();
    fast_.start(0);
    slow_.start(0);
    present_ = 0;
    alike_ = lookAhead_;
    lags_ = false;
    quiet_ = quietEnough_;
}

void LimitingFollower::setTimes(double attackSeconds, double releaseSeconds) noexcept
{
    attackSeconds_ = attackSeconds;
    releaseSeconds_ = releaseSeconds;
    fast_.setPaces(followerCoefficient(rate_, attackSeconds),
                   followerCoefficient(rate_, programme_ ? releaseSeconds / 4 : releaseSeconds));
    slow_.setPaces(followerCoefficient(rate_, 0.4), followerCoefficient(rate_, releaseSeconds * 2));
}

void LimitingFollower::setHold(bool holds) noexcept
{
    holds_ = holds;
    wanted_.setSecondWindow(lookAhead_ + 1 + (holds ? span_ : 0));
}

void LimitingFollower::setProgrammeRelease(bool on) noexcept
{
    if (on == programme_) return;
    programme_ = on;
    fast_.start(present_);
    slow_.start(present_);
    setTimes(attackSeconds_, releaseSeconds_);
}

void LimitingFollower::Body::Pace::set(double coefficient) noexcept
{
    powers[0] = 1;
    for (int k = 0; k < kSteps; ++k) powers[k + 1] = powers[k] * coefficient;
}

void LimitingFollower::Body::setPaces(double attackCoefficient, double releaseCoefficient) noexcept
{
    start(value);
    attack.set(attackCoefficient);
    release.set(releaseCoefficient);
}

double LimitingFollower::process(const double* wanted, const double* due, double* gain,
                                 int n) noexcept
{
    assert(n <= kLongest);
    if (n <= 0) return 0;
    // On the stack: in each instance these would be the most of what a block fetches.
    constexpr int kRow = kLongest + kPadding;
    alignas(64) double soon[kRow], held[kRow], body[kRow], other[kRow];
    alignas(64) std::int64_t steps[kRow], sums[kRow];
    const double* recent = soon;
    // While both reductions are the same, so are their maxima.
    const bool isSame = due == wanted && alike_ >= lookAhead_;
    alike_ = due == wanted ? std::min(alike_ + n, lookAhead_) : 0;
    if (!isSame && lags_) due_.takeOver(wanted_);
    lags_ = isSame;

    if (holds_) {
        wanted_.process(wanted, n, soon, held);
        recent = held;
    } else {
        wanted_.process(wanted, n, soon);
    }
    chosenMove(fast_, soon, recent, body, n);
    if (programme_) {
        chosenMove(slow_, soon, recent, other, n);
        vec::max(body, other, n);
    }
    present_ = body[n - 1];
    const double* dip = soon;
    if (!isSame) {
        due_.process(due, n, other);
        dip = other;
    }
    chosenRoundUp(body, catches_ ? dip : body, stepsPerDb_, steps, n);

    // The look-ahead still holds what was wanted in this call, and the body can only have fallen.
    const bool isQuiet = body[0] == 0 && vec::peak(soon, n) == 0;
    quiet_ = isQuiet ? std::min(quiet_ + n, quietEnough_) : 0;
    inner_.run(steps, sums, n);
    outer_.run(sums, steps, n);
    int count = n;
    if (every_ > 1) {
        count = 0;
        for (int i = first_; i < n; i += every_) steps[count++] = steps[i];
    }
    return chosenToGain(steps, unit_, gain, count);
}

}  // namespace quillworks
#endif
