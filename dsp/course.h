// SPDX-License-Identifier: ISC
// The course of a control value over the open sub-block, frame by frame.
#pragma once

#include "dsp/smoothed.h"
#include "dsp/vec.h"

namespace quillworks {

/// Laid out for the whole sub-block where it begins, and read at the phase of each slice: what is
/// computed from it has the same bits however the signal is divided into calls. (A ramp cut anew
/// for each slice has not: its steps are rounded for each piece.)
template <typename T> class Course {
public:
    T at[kSubBlock]{};

    /// Lays out the ramp: at[31] is `ramp.to` exactly.
    void follow(Ramp<T> ramp) noexcept
    {
        if (ramp.isConstant() && is(ramp.to)) return;
        vec::ramp(at, ramp.from, ramp.to, kSubBlock);
        ramp_ = ramp;
    }
    /// Once per slice: advances `value` and lays out its course where a sub-block begins.
    void follow(Smoothed<T>& value, GridSlice slice) noexcept
    {
        if (slice.begins()) follow(value.next(kWholeSubBlock));
    }
    /// One value throughout, until the next follow().
    void set(T value) noexcept { follow(Ramp<T>{value, value}); }

    bool isConstant() const noexcept { return ramp_.isConstant(); }
    /// Whether the value is `value` throughout the sub-block.
    bool is(T value) const noexcept { return ramp_.from == value && ramp_.to == value; }
    /// The values of a slice.
    const T* of(GridSlice slice) const noexcept { return at + slice.phase; }

    /// x = x times the values of the slice.
    void scale(T* x, GridSlice slice) const noexcept
    {
        if (!is(1)) vec::mulInplace(x, of(slice), slice.frames);
    }

private:
    Ramp<T> ramp_{0, 0};
};

}  // namespace quillworks
