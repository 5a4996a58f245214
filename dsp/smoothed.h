// SPDX-License-Identifier: ISC
// A control value that glides to its target, one step per sub-block, ramped within it.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/control_grid.h"
#include "dsp/decibel.h"

namespace quillworks {

/// The pack's unit of glides: sub-blocks in 3 ms, at least 1. Half-lives are multiples of it.
inline double glideSubBlocks(double sampleRate) noexcept
{
    return std::max(1.0, std::trunc(sampleRate * 0.003 / kSubBlock + 0.5));
}

/// Half-life in sub-blocks of a one-pole with the time constant `seconds`.
inline double halfLifeSubBlocks(double sampleRate, double seconds) noexcept
{
    return std::numbers::ln2 / (2 * std::numbers::pi) * sampleRate / kSubBlock * seconds;
}

/// In double inside: at high sample rates a float's rounding would stop the glide short of its end.
template <typename T> class Smoothed {
public:
    /// One-pole with the time constant `seconds` at the rate of the control grid.
    void prepare(double sampleRate, double seconds) noexcept
    {
        factor_ = followerCoefficient(sampleRate / kSubBlock, seconds);
    }
    /// One-pole that covers half the remaining way every `subBlocks`; 0: no smoothing.
    void prepareHalfLife(double subBlocks) noexcept { factor_ = halfLifeFactor(subBlocks); }
    /// Distance below which the target is taken exactly (default 1e-6).
    void setTolerance(double tolerance) noexcept { tolerance_ = tolerance; }

    void target(T value) noexcept { target_ = double(value); }
    T target() const noexcept { return T(target_); }
    /// Takes the target at once.
    void snap() noexcept { ramp_ = {target_, target_}; }
    /// The value reached at the end of the present sub-block.
    T current() const noexcept { return T(ramp_.to); }
    bool isGliding() const noexcept { return ramp_.to != target_ || !ramp_.isConstant(); }

    /// Advances where a sub-block begins; returns the piece of the ramp that the slice covers.
    Ramp<T> next(GridSlice slice) noexcept
    {
        if (slice.begins()) {
            double value = (ramp_.to - target_) * factor_ + target_;
            if (!(std::abs(value - target_) >= tolerance_)) value = target_;
            ramp_ = {ramp_.to, value};
        }
        return rampSlice(Ramp<T>{T(ramp_.from), T(ramp_.to)}, slice);
    }

private:
    Ramp<double> ramp_{0, 0};
    double target_ = 0;
    double factor_ = 0;
    double tolerance_ = 1e-6;
};

}  // namespace quillworks
