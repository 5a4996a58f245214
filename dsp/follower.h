// SPDX-License-Identifier: ISC
// One-pole envelopes of magnitudes with separate times to rise and to fall.
#pragma once

#include <algorithm>
#include <cassert>
#include <cmath>

#include "dsp/decibel.h"

namespace quillworks {

/// Coefficients and envelope of both kinds. In double whatever the audio's precision is: with a
/// fall time of seconds a step is smaller than a float's rounding, and a recursion costs the same
/// in both.
struct Follower {
    double rise = 0, fall = 0;  // share of the distance left after a sample
    double envelope = 0;

    /// Times in seconds; the envelope covers all but exp(-2 pi) of a step in that time.
    void setTimes(double sampleRate, double riseTime, double fallTime) noexcept
    {
        rise = followerCoefficient(sampleRate, riseTime);
        fall = followerCoefficient(sampleRate, fallTime);
    }
    void reset() noexcept { envelope = 0; }
};

/// Rises at least as fast as it falls: keeps to the peaks.
struct PeakFollower : Follower {
    /// Envelope after a magnitude x >= 0.
    double next(double x) noexcept
    {
        assert(rise <= fall);
        // Of the two one-poles the one that applies gives the larger value, rising or falling:
        // no branch on the signal, and a chain of three operations from sample to sample.
        envelope = std::max(rise * envelope + (1 - rise) * x, fall * envelope + (1 - fall) * x);
        return envelope;
    }
};

/// Rises no faster than it falls: keeps to the floor of a signal.
struct FloorFollower : Follower {
    double next(double x) noexcept
    {
        assert(rise >= fall);
        envelope = std::min(rise * envelope + (1 - rise) * x, fall * envelope + (1 - fall) * x);
        return envelope;
    }
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
