// SPDX-License-Identifier: ISC
// The finer grid of filters that follow a level or a fast oscillator.
#pragma once

#include "dsp/control_grid.h"

namespace quillworks {

/// Corners move once in each group of frames and run linearly in between.
inline constexpr int kGroup = 8;  // frames
inline constexpr int kGroups = kSubBlock / kGroup;

/// The groups that begin in a slice, by their number in the sub-block: first .. end - 1.
struct GroupRange {
    int first, end;

    static constexpr GroupRange of(GridSlice slice) noexcept
    {
        return {(slice.phase + kGroup - 1) / kGroup,
                (slice.phase + slice.frames + kGroup - 1) / kGroup};
    }
    constexpr int count() const noexcept { return end - first; }
};

}  // namespace quillworks
