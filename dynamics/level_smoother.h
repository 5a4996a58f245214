// SPDX-License-Identifier: ISC
// From the detector signal to the level that the gain computer judges.
#pragma once

#include <algorithm>
#include <cmath>

#include "dsp/follower.h"

namespace quillworks {

/// Mean square with attack and release: a leaky sum of the deviations above the envelope less those
/// below pushes it up by the attack step or down by the release coefficient. In double: a step is
/// smaller than a float's rounding at the longer times.
///
/// With U and D the sums of deviations up and down, only their difference d counts, and it obeys
/// d' = leak (d + (1 - leak)(x^2 - E)); then E' = max(0, E + d' k), k the attack step for d' > 0,
/// the release coefficient otherwise.
class LevelSmoother {
public:
    /// Times in seconds.
    void setTimes(double sampleRate, double attack, double release) noexcept
    {
        attack_ = 1 / (sampleRate * attack);
        release_ = 1 - followerCoefficient(sampleRate, release);
        attackIsLarger_ = attack_ >= release_;
        attackLess_ = 1 - attack_ * kShare;
        releaseLess_ = 1 - release_ * kShare;
    }
    void reset() noexcept { envelope_ = before_ = w_ = 0; }

    /// Mean square after the sample x.
    double next(double x) noexcept
    {
        // With w = leak d + share x^2 the deviation is d' = w - share E, and E + d' k equals
        // (1 - share k) E + k w. Of the two k the one that applies gives the larger value if it is
        // the larger of the two, else the smaller: no branch on the signal. And w is found from
        // the envelope before the last, so that the chain from sample to sample is four operations.
        w_ = (kLeak * w_ + kShare * (x * x)) - kLeak * kShare * before_;
        const double rising = attackLess_ * envelope_ + attack_ * w_;
        const double falling = releaseLess_ * envelope_ + release_ * w_;
        before_ = envelope_;
        envelope_ =
            std::max(attackIsLarger_ ? std::max(rising, falling) : std::min(rising, falling), 0.0);
        return envelope_;
    }

private:
    static constexpr double kLeak = 0.97190696;           // per sample at every rate
    static constexpr double kShare = kLeak * 0.02809304;  // leak (1 - leak)

    double attack_ = 0, release_ = 0;
    double attackLess_ = 1, releaseLess_ = 1;
    bool attackIsLarger_ = true;
    double envelope_ = 0, before_ = 0;  // now and a sample ago
    double w_ = 0;
};

/// Level for "auto speed": rises over 3 s and falls within 0.1 s, so that it keeps to the quieter
/// parts. Its output is an amplitude where LevelSmoother's is a mean square, and is judged by the
/// same logarithm of power: the threshold then acts on half the decibels.
class AutoSpeedSmoother {
public:
    void prepare(double sampleRate) noexcept { follower_.setTimes(sampleRate, 3.0, 0.1); }
    void reset() noexcept { follower_.reset(); }
    double next(double x) noexcept { return follower_.next(std::abs(x)); }

private:
    FloorFollower follower_;
};

}  // namespace quillworks
