// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/limiting_follower.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cstdint>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dynamics/limiting_follower.h"

#ifndef QUILLWORKS_LIMITING_FOLLOWER_CONSTANTS
#define QUILLWORKS_LIMITING_FOLLOWER_CONSTANTS
namespace quillworks {
namespace {

constexpr double kStepsPerDb = 16777216;            // 2^24: the running sums stay exact
constexpr double kWhole = 4503599627370496.0;       // 2^52: doubles from here on are whole numbers,
constexpr std::int64_t kWholeBits = 0x433LL << 52;  // in their low bits
constexpr double kSmallest = 1e-5;                  // dB: a release ends here

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

/// The larger of `a` and `b` as multiples of 1/2^24 dB, rounded up; arrays padded to whole vectors.
void roundUp(const double* a, const double* b, std::int64_t* steps, int n)
{
    const D d;
    const I i64;
    const auto whole = hn::Set(d, kWhole);
    for (int i = 0; i < n; i += kLanes) {
        const auto db = hn::Max(hn::LoadU(d, a + i), hn::LoadU(d, b + i));
        const auto exact = hn::Mul(db, hn::Set(d, kStepsPerDb));
        const auto nearest = hn::Add(exact, whole);  // rounds
        const auto below = hn::Lt(hn::Sub(nearest, whole), exact);
        const auto up = hn::Add(nearest, hn::IfThenElseZero(below, hn::Set(d, 1.0)));
        hn::StoreU(hn::Sub(hn::BitCast(i64, up), hn::Set(i64, kWholeBits)), i64, steps + i);
    }
}

/// gain[i] = -steps[i] * unit, padded likewise. The steps are below 2^52.
void toGain(const std::int64_t* steps, double unit, double* gain, int n)
{
    const D d;
    const I i64;
    for (int i = 0; i < n; i += kLanes) {
        const auto bits = hn::Add(hn::LoadU(i64, steps + i), hn::Set(i64, kWholeBits));
        const auto minus = hn::Sub(hn::Set(d, kWhole), hn::BitCast(d, bits));
        hn::StoreU(hn::Mul(minus, hn::Set(d, unit)), d, gain + i);
    }
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(roundUp);
HWY_EXPORT(toGain);
namespace {

void (*const roundUpBest)(const double*, const double*, std::int64_t*, int) = SIMD_CHOOSE(roundUp);

void (*const toGainBest)(const std::int64_t*, double, double*, int) = SIMD_CHOOSE(toGain);

constexpr int kPadding = 8;  // of the arrays that kernels take by whole vectors

}  // namespace

void LimitingFollower::prepare(double rate, int maxSamples)
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
    unit_ = 1 / (kStepsPerDb * inner_.length() * outer_.length());
    quietEnough_ = support + span_ + support;
    const auto size = static_cast<std::size_t>(maxSamples + kPadding);
    for (auto* buffer : {&soon_, &recent_, &body_, &other_}) buffer->resize(size);
    steps_.resize(size);
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
    fast_.attack = followerCoefficient(rate_, attackSeconds);
    fast_.release = followerCoefficient(rate_, programme_ ? releaseSeconds / 4 : releaseSeconds);
    slow_.attack = followerCoefficient(rate_, 0.4);
    slow_.release = followerCoefficient(rate_, releaseSeconds * 2);
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

/// `soon`: the most that the look-ahead holds, `recent`: that and the running span, so >= soon.
/// While the goal stays, only the distance shrinks: one product from sample to sample.
void LimitingFollower::Body::process(const double* soon, const double* recent, double* out,
                                     int n) noexcept
{
    double b = value, g = goal, w = way;
    for (int i = 0; i < n; ++i) {
        if (soon[i] > b) {
            if (g != soon[i]) g = soon[i], w = b - g;
            w *= attack;
            b = g + w;
        } else if (recent[i] < b) {
            if (g != recent[i]) g = recent[i], w = b - g;
            w *= release;
            b = g + w;
            if (b < kSmallest) b = g = w = 0;
        }
        out[i] = b;
    }
    value = b, goal = g, way = w;
}

void LimitingFollower::process(const double* wanted, const double* due, double* gain,
                               int n) noexcept
{
    if (n <= 0) return;
    double* const soon = soon_.data();
    double* const body = body_.data();
    const double* recent = soon;
    // While both reductions are the same, so are their maxima.
    const bool isSame = due == wanted && alike_ >= lookAhead_;
    alike_ = due == wanted ? std::min(alike_ + n, lookAhead_) : 0;
    if (!isSame && lags_) due_ = wanted_;
    lags_ = isSame;

    if (holds_) {
        wanted_.process(wanted, n, soon, recent_.data());
        recent = recent_.data();
    } else {
        wanted_.process(wanted, n, soon);
    }
    fast_.process(soon, recent, body, n);
    if (programme_) {
        slow_.process(soon, recent, other_.data(), n);
        vec::max(body, other_.data(), n);
    }
    present_ = body[n - 1];
    const double* dip = soon;
    if (!isSame) {
        due_.process(due, n, other_.data());
        dip = other_.data();
    }
    std::int64_t* const steps = steps_.data();
    roundUpBest(body, catches_ ? dip : body, steps, n);

    // The look-ahead still holds what was wanted in this call, and the body can only have fallen.
    const bool isQuiet = body[0] == 0 && vec::peak(soon, n) == 0;
    quiet_ = isQuiet ? std::min(quiet_ + n, quietEnough_) : 0;
    inner_.process(steps, n);
    outer_.process(steps, n);
    int count = n;
    if (every_ > 1) {
        count = 0;
        for (int i = first_; i < n; i += every_) steps[count++] = steps[i];
    }
    toGainBest(steps, unit_, gain, count);
}

}  // namespace quillworks
#endif
