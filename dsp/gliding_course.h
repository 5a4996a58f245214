// SPDX-License-Identifier: ISC
// A control value that glides in one unit and acts in another, frame by frame.
#pragma once

#include <cmath>

#include "dsp/course.h"

namespace quillworks {

/// Decibels that act as a gain, octaves that act as a frequency: the value glides in the unit that
/// is even to the ear, and what it acts as runs linearly within each sub-block.
template <typename T> class GlidingCourse : public Course<T> {
public:
    /// Covers half the remaining way every `subBlocks`; within `tolerance` the target is taken.
    void prepare(double subBlocks, double tolerance) noexcept
    {
        value_.prepareHalfLife(subBlocks);
        value_.setTolerance(tolerance);
    }
    void target(double value) noexcept { value_.target(value); }
    /// Takes the target at once, from the next sub-block on.
    void snap() noexcept
    {
        value_.snap();
        isLaid_ = false;
    }
    /// Once per slice. `map` turns the value into what it acts as.
    template <class Map> void follow(GridSlice slice, Map&& map) noexcept
    {
        if (!slice.begins() || (isLaid_ && !value_.isGliding())) return;
        const auto ramp = value_.next(kWholeSubBlock);
        Course<T>::follow({T(map(ramp.from)), T(map(ramp.to))});
        isLaid_ = true;
    }

private:
    Smoothed<double> value_;
    bool isLaid_ = false;
};

}  // namespace quillworks
