// SPDX-License-Identifier: ISC
// A control value that goes to its target in a straight line of a fixed length.
#pragma once

#include <algorithm>

#include "dsp/control_grid.h"

namespace quillworks {

/// Moves over whole sub-blocks, the number of them nearest to its time and at least one.
class TimedRamp {
public:
    void prepare(double sampleRate, double seconds) noexcept
    {
        length_ = std::max(1, static_cast<int>(seconds * sampleRate / kSubBlock + 0.5));
    }
    /// The way to a new target begins where the value is now.
    void target(double value) noexcept
    {
        if (value == target_) return;
        target_ = value;
        step_ = (value - value_) / length_;
        left_ = length_;
    }
    double target() const noexcept { return target_; }
    /// Takes the target at once.
    void snap() noexcept
    {
        value_ = target_;
        left_ = 0;
    }
    /// At the end of the present sub-block.
    double current() const noexcept { return value_; }
    bool isMoving() const noexcept { return left_ > 0; }
    /// Where a sub-block begins: the course over it.
    Ramp<double> next() noexcept
    {
        const double from = value_;
        if (left_ > 0) value_ = --left_ == 0 ? target_ : value_ + step_;
        return {from, value_};
    }

private:
    int length_ = 1, left_ = 0;  // sub-blocks
    double value_ = 0, target_ = 0, step_ = 0;
};

}  // namespace quillworks
