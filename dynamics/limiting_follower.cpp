// SPDX-License-Identifier: ISC
#include "dynamics/limiting_follower.h"

#include <algorithm>
#include <bit>

#include "dsp/decibel.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kStepsPerDb = 16777216;  // 2^24: the running sums stay exact
constexpr double kSmallest = 1e-5;        // dB: a release ends here

/// Multiples of 1/2^24 dB, rounded up. Adding 2^52 rounds a double to a whole number and leaves it
/// in the low bits.
void roundUp(const double* db, std::int64_t* steps, int n) noexcept
{
    constexpr double whole = 4503599627370496.0;  // 2^52
    for (int i = 0; i < n; ++i) {
        const double exact = db[i] * kStepsPerDb;
        const double nearest = exact + whole;
        const double up = nearest - whole < exact ? 1.0 : 0.0;
        steps[i] = std::bit_cast<std::int64_t>(nearest + up) - std::bit_cast<std::int64_t>(whole);
    }
}

}  // namespace

void LimitingFollower::prepare(double rate, int maxSamples)
{
    rate_ = rate;
    lookAhead_ = lookAheadAt(rate);
    span_ = static_cast<int>(kSpan * rate);
    const int support = lookAhead_ + 1;
    wanted_.prepare(support, support + span_);
    due_.prepare(support, support);
    // Two lengths that give one mean of `support` samples together.
    first_.prepare(lookAhead_ / 2 + 1);
    second_.prepare(support + 1 - first_.length());
    unit_ = 1 / (kStepsPerDb * first_.length() * second_.length());
    quietEnough_ = support + span_ + support;
    const auto size = static_cast<std::size_t>(maxSamples);
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
    first_.reset();
    second_.reset();
    fast_.value = slow_.value = present_ = 0;
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
    fast_.value = slow_.value = present_;
    setTimes(attackSeconds_, releaseSeconds_);
}

/// `soon`: the most that the look-ahead holds, `recent`: that and the running span, so >= soon.
void LimitingFollower::Body::process(const double* soon, const double* recent, double* out,
                                     int n) noexcept
{
    double b = value;
    for (int i = 0; i < n; ++i) {
        if (soon[i] > b) {
            b = soon[i] + attack * (b - soon[i]);
        } else if (recent[i] < b) {
            b = recent[i] + release * (b - recent[i]);
            if (b < kSmallest) b = 0;
        }
        out[i] = b;
    }
    value = b;
}

void LimitingFollower::process(const double* wanted, const double* due, double* reduction,
                               int n) noexcept
{
    if (n <= 0) return;
    double* const soon = soon_.data();
    double* const body = body_.data();
    const double* recent = soon;
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
    due_.process(due, n, other_.data());
    if (catches_) vec::max(body, other_.data(), n);

    std::int64_t* const steps = steps_.data();
    roundUp(body, steps, n);
    std::int64_t any = 0;
    for (int i = 0; i < n; ++i) any |= steps[i];
    const bool isQuiet = any == 0 && vec::peak(wanted, n) == 0;
    quiet_ = isQuiet ? std::min(quiet_ + n, quietEnough_) : 0;
    first_.process(steps, n);
    second_.process(steps, n);
    for (int i = 0; i < n; ++i) reduction[i] = static_cast<double>(steps[i]) * unit_;
}

}  // namespace quillworks
