// SPDX-License-Identifier: ISC
// A gain that changes where the signal changes sign, so that its steps are not heard.
#pragma once

#include "dsp/control_grid.h"
#include "dsp/vec.h"

namespace quillworks {

/// One channel's state. The gain asked for may move with every sub-block.
template <typename T> class ZeroCrossingGain {
public:
    /// Takes `gain` at once.
    void snap(T gain) noexcept
    {
        applied_ = gain;
        waited_ = 0;
        positive_ = false;
    }

    /// Multiplies x by the gain: the old one up to the first change of sign in the sub-block,
    /// `gain` from there. Without a change of sign in 8 sub-blocks the ninth starts with `gain`.
    void run(T* x, T gain, GridSlice slice) noexcept
    {
        const int n = slice.frames;
        if (applied_ == gain)
            waited_ = 0;
        else if (slice.begins() && ++waited_ > kPatience)
            take(gain);
        const bool last = x[n - 1] > 0;
        int done = 0;
        if (applied_ != gain) {
            while (done < n && (x[done] > 0) == positive_) ++done;
            scale(x, applied_, done);
            if (done < n) take(gain);
        }
        scale(x + done, applied_, n - done);
        positive_ = last;
    }

private:
    static constexpr int kPatience = 8;  // sub-blocks

    static void scale(T* x, T gain, int n) noexcept
    {
        if (gain != 1) vec::scale(x, gain, n);
    }
    void take(T gain) noexcept
    {
        applied_ = gain;
        waited_ = 0;
    }

    T applied_ = 1;
    int waited_ = 0;         // sub-blocks begun since a change was asked for
    bool positive_ = false;  // sign of the last sample; 0 counts as negative
};

}  // namespace quillworks
