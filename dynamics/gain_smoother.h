// SPDX-License-Identifier: ISC
// From gains in decibels to linear factors without steps.
#pragma once

#include <cmath>
#include <numbers>

#include "dsp/control_grid.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {

/// A one-pole on the linear factor, which takes its first gain as it comes. The same factors bit by
/// bit however the signal is divided: the pole is left, and the gain taken exactly, only where a
/// sub-block begins, and it is entered again at the first sample with another gain.
template <typename T> class GainSmoother {
public:
    static constexpr double kCorner = 2000;  // Hz: faster changes of gain would be heard as clicks

    void prepare(double sampleRate) noexcept
    {
        pole_ = std::exp(-2 * std::numbers::pi * kCorner / sampleRate);
    }
    void reset() noexcept { isFresh_ = true; }

    /// Gains in dB to smoothed factors, in place. `isConstant`: all gains are the same. Returns
    /// true only if all factors are.
    bool run(T* gain, bool isConstant, GridSlice slice) noexcept
    {
        const int n = slice.frames;
        const T last = gain[isConstant ? 0 : n - 1];
        if (isConstant && rests_ && !isFresh_ && last == goalInDb_) {
            vec::set(gain, T(goal_), n);
            return true;
        }
        goalInDb_ = last;
        vec::gainFromDecibels(gain, gain, isConstant ? 1 : n);
        if (isConstant) vec::set(gain + 1, gain[0], n - 1);
        if (isFresh_) {
            factor_ = goal_ = double(gain[0]);
            isFresh_ = false;
            rests_ = true;
        } else if (slice.begins() && std::abs(factor_ - goal_) <= goal_ * 1e-9) {
            factor_ = goal_;
            rests_ = true;
        }
        int i = 0;
        if (rests_) {
            while (i < n && double(gain[i]) == goal_) ++i;
            if (i == n) return true;
            rests_ = false;
        }
        goal_ = double(gain[n - 1]);
        const double pole = pole_, share = 1 - pole;
        double f = factor_;
        for (; i < n; ++i) {
            f = pole * f + share * double(gain[i]);
            gain[i] = T(f);
        }
        factor_ = f;
        return false;
    }

private:
    double pole_ = 0;
    double factor_ = 1, goal_ = 1;  // of the last sample: smoothed, and as computed
    T goalInDb_ = 0;
    bool isFresh_ = true;  // no gain since reset
    bool rests_ = false;   // at the goal
};

}  // namespace quillworks
