// SPDX-License-Identifier: ISC
// The compressor's gain computer: level to reduction by threshold, knee and slope, a release that
// can wait for what is still in the look-ahead delay, reduction to gain.
#pragma once

#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/delay_line.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {

/// Static curve, one set for all channels. Decibels throughout.
template <typename T> struct CompressionCurve {
    T threshold = 0;
    T slope = 0;  // 1 - 1/ratio
    T knee = 0;   // half-width
    T kneeSlope = 0, kneeOffset = 0;

    static CompressionCurve of(double thresholdDb, double slope, double kneeDb) noexcept
    {
        const double root = std::sqrt(kneeDb);
        return {T(thresholdDb), T(slope), T(kneeDb), T(kneeDb > 0 ? 0.5 / root : 0), T(0.5 * root)};
    }

    /// Levels in dB to reductions in dB, 0 or more. Within the knee (L + K)^2 / (4 K), L the level
    /// above the threshold, which meets 0 at -K and L at K.
    void reduce(T* x, int n) const noexcept
    {
        const CompressionCurve c = *this;  // of which the compiler knows that x is no part
        for (int i = 0; i < n; ++i) {
            const T over = x[i] - c.threshold;
            const T root = over * c.kneeSlope + c.kneeOffset;
            const T rising = root > 0 ? root : T(0);
            const T bent = rising * rising;
            x[i] = (over > c.knee ? over : bent) * c.slope;
        }
    }
};

/// One channel's state.
template <typename T> class GainComputer {
public:
    /// `holdFrames`: how far back the reduction lies that the release heads for while holding.
    void prepare(int holdFrames)
    {
        history_.prepare(holdFrames);
        reset();
    }
    void reset() noexcept
    {
        history_.reset();
        quiet_ = history_.delay() + kSubBlock;
        reduction_ = 0;
        isLatched_ = false;
    }
    void setHold(bool holds) noexcept
    {
        holds_ = holds;
        isLatched_ = false;
    }

    /// Present reduction in dB, 0 or more.
    double reduction() const noexcept { return reduction_; }
    /// The largest since it was last taken.
    double takeLargest() noexcept { return std::exchange(largest_, reduction_); }

    /// Levels (mean squares) to linear gains with make-up; `release` is the coefficient per sample.
    /// Returns whether all gains are the same. n <= kSubBlock.
    bool run(T* gain, const T* level, const CompressionCurve<T>& curve, double release, T makeUpDb,
             int n) noexcept
    {
        static constexpr T kFloor = T(1e-8);  // power added to the level: -80 dB
        T* const x = gain;
        if (curve.slope > 0) {
            vec::decibelsFromPower(x, level, kFloor, n);
            curve.reduce(x, n);
        } else {
            vec::clear(x, n);
        }
        const T* const delayed = history_.push(x, n);
        quiet_ = vec::peak(x, n) > 0 ? 0 : std::min(quiet_ + n, history_.delay() + kSubBlock);
        const bool isQuiet = quiet_ >= history_.delay() + n;
        if (reduction_ > 0 || !isQuiet) {
            envelope(x, delayed, release, n);
            if (isQuiet && reduction_ < kNothing) reduction_ = 0, isLatched_ = false;
            vec::complement(x, makeUpDb, n);
            vec::gainFromDecibels(x, x, n);
            return false;
        }
        vec::set(x, T(makeUpDb == 0 ? 1 : std::pow(T(10), makeUpDb * T(0.05))), n);
        return true;
    }

private:
    /// Reductions to those with release, in place. The state is kept in double: at long release
    /// times a step is smaller than a float's rounding.
    void envelope(T* x, const T* delayed, double release, int n) noexcept
    {
        // What the release heads for, weighted: off the chain from sample to sample.
        double goal[kSubBlock];
        const double share = 1 - release;
        const T* const towards = holds_ ? delayed : x;
        for (int i = 0; i < n; ++i) goal[i] = share * double(towards[i]);

        double r = reduction_;
        bool latched = isLatched_;
        for (int i = 0; i < n; ++i) {
            const double g = x[i];
            if (g > r) {
                r = g;
                latched = holds_;
            } else if (latched) {
                latched = r < double(delayed[i]);
            } else {
                r = release * r + goal[i];
            }
            x[i] = T(r);
        }
        largest_ = std::max(largest_, double(vec::peak(x, n)));
        reduction_ = r;
        isLatched_ = latched;
    }

    static constexpr double kNothing = 1e-13;  // dB, below which a release is over

    DelayLine<T> history_;
    int quiet_ = 0;  // frames since the curve last asked for a reduction, as far as the delay knows
    bool holds_ = false, isLatched_ = false;
    double reduction_ = 0;
    double largest_ = 0;
};

}  // namespace quillworks
