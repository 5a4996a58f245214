// SPDX-License-Identifier: ISC
// A delay that moves linearly over a sub-block of the control grid.
#pragma once

#include <cstdint>

#include "dsp/control_grid.h"
#include "dsp/farrow_line.h"

namespace quillworks {

/// In samples of 2^-32, with whole steps from frame to frame: a frame's delay has the same bits
/// however the sub-block is cut.
struct MovingDelay {
    std::int64_t from = 0, to = 0;  // before the first frame, and at the last one

    static std::int64_t of(double samples) noexcept
    {
        return static_cast<std::int64_t>(samples * double(TapGlide::kOne / kSubBlock)) * kSubBlock;
    }
    std::int64_t step() const noexcept { return (to - from) / kSubBlock; }
    /// At a frame of the sub-block.
    std::int64_t at(int frame) const noexcept { return from + (frame + 1) * step(); }
    /// The taps of n frames from `frame` on, once all of them are in the line.
    TapGlide taps(int frame, int n) const noexcept
    {
        return {at(frame) + (n - 1) * TapGlide::kOne, step() - TapGlide::kOne};
    }
    bool operator==(const MovingDelay&) const = default;
};

}  // namespace quillworks
