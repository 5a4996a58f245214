// SPDX-License-Identifier: ISC
// Peak follower: a one-pole envelope of magnitudes with separate times to rise and to fall.
#pragma once

#include <algorithm>
#include <cassert>

#include "dsp/decibel.h"

namespace quillworks {

/// State and coefficients in double whatever the audio's precision is: with a fall time of seconds
/// a step is smaller than a float's rounding. A recursion costs the same in both.
class PeakFollower {
public:
    /// Times in seconds; the envelope covers all but exp(-2 pi) of a step in that time. The rise
    /// must be at least as fast as the fall.
    void setTimes(double sampleRate, double rise, double fall) noexcept
    {
        rise_ = followerCoefficient(sampleRate, rise);
        fall_ = followerCoefficient(sampleRate, fall);
        assert(rise_ <= fall_);
    }
    void reset() noexcept { envelope_ = 0; }
    double envelope() const noexcept { return envelope_; }

    /// Envelope after a magnitude x >= 0.
    double next(double x) noexcept
    {
        // Of the two one-poles the one that applies gives the larger value, rising or falling:
        // no branch on the signal, and a chain of three operations from sample to sample.
        envelope_ =
            std::max(rise_ * envelope_ + (1 - rise_) * x, fall_ * envelope_ + (1 - fall_) * x);
        return envelope_;
    }

private:
    double rise_ = 0, fall_ = 0;
    double envelope_ = 0;
};

/// A follower that rises more slowly than it falls: it keeps to the floor of a signal.
class FloorFollower {
public:
    /// Times in seconds; the rise must be no faster than the fall.
    void setTimes(double sampleRate, double rise, double fall) noexcept
    {
        rise_ = followerCoefficient(sampleRate, rise);
        fall_ = followerCoefficient(sampleRate, fall);
        assert(rise_ >= fall_);
    }
    void reset() noexcept { envelope_ = 0; }
    double next(double x) noexcept
    {
        envelope_ =
            std::min(rise_ * envelope_ + (1 - rise_) * x, fall_ * envelope_ + (1 - fall_) * x);
        return envelope_;
    }

private:
    double rise_ = 0, fall_ = 0;
    double envelope_ = 0;
};

/// The two envelopes of a level display, in linear units: both rise within a sample, one falls in
/// 1 s and one in 3 s.
struct LevelMeterPair {
    PeakFollower fast, slow;

    void prepare(double sampleRate) noexcept
    {
        fast.setTimes(sampleRate, 1 / sampleRate, 1);
        slow.setTimes(sampleRate, 1 / sampleRate, 3);
    }
    void reset() noexcept
    {
        fast.reset();
        slow.reset();
    }
    template <typename T> void run(const T* x, int n) noexcept
    {
        PeakFollower a = fast, b = slow;
        for (int i = 0; i < n; ++i) {
            const double magnitude = std::abs(double(x[i]));
            a.next(magnitude);
            b.next(magnitude);
        }
        fast = a;
        slow = b;
    }
};

}  // namespace quillworks
