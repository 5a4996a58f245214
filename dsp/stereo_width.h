// SPDX-License-Identifier: ISC
// How far left and right lie apart: their difference, scaled.
#pragma once

#include "dsp/course.h"

namespace quillworks {

/// The difference of left and right times the width: 0 is the middle on both sides, 1 leaves them
/// as they are, bit by bit, and above they lie further apart. The sum stays.
template <typename T> class StereoWidth {
public:
    /// Covers half the remaining way every `subBlocks`.
    void prepareHalfLife(double subBlocks) noexcept { own_.prepareHalfLife(subBlocks); }
    void target(T width) noexcept { own_.target((1 + width) / 2); }
    /// Takes the target at once.
    void reset() noexcept
    {
        own_.snap();
        course_.set(own_.current());
    }

    /// Once per slice, before the pairs.
    void next(GridSlice slice) noexcept { course_.follow(own_, slice); }
    /// A pair's samples of the slice, in place.
    void process(T* left, T* right, GridSlice slice) const noexcept
    {
        if (course_.is(1)) return;
        const T* const own = course_.of(slice);
        for (int i = 0; i < slice.frames; ++i) {
            const T a = left[i], b = right[i], other = 1 - own[i];
            left[i] = own[i] * a + other * b;
            right[i] = own[i] * b + other * a;
        }
    }

private:
    Smoothed<T> own_;  // share of its own sound in that of a side: (1 + width)/2
    Course<T> course_;
};

}  // namespace quillworks
