// SPDX-License-Identifier: ISC
// Whole-sample delay, block by block.
#pragma once

#include <algorithm>

#include "dsp/control_grid.h"
#include "dsp/recent_samples.h"

namespace quillworks {

/// The delayed samples are read where they lie, without a copy and without a border. The delay may
/// be anything up to the longest prepared, and change at any time: what has been written stays, the
/// reading place jumps, and who must not hear that fades from tap(before) to tap(after).
template <typename T> class DelayLine {
public:
    /// A fixed delay in samples, 0 or more. Allocates.
    void prepare(int delay) { prepare(delay, delay); }
    /// With room for delays up to `longest`. Allocates.
    void prepare(int longest, int delay)
    {
        longest_ = longest;
        past_.prepare(longest + 1, kSubBlock);  // one more: index -1 is read too
        setDelay(delay);
    }
    void reset() noexcept { past_.reset(); }
    /// 0 .. longest(), limited to that.
    void setDelay(int delay) noexcept { delay_ = std::clamp(delay, 0, longest_); }
    int delay() const noexcept { return delay_; }
    /// The past of `other`, prepared alike. Does not allocate.
    void takeOver(const DelayLine& other) noexcept { past_.takeOver(other.past_); }
    int longest() const noexcept { return longest_; }

    /// Writes n <= kSubBlock samples; returns the n samples that lie `delay` before them, valid
    /// until the next call. The one before those, at index -1, may be read too.
    const T* push(const T* x, int n) noexcept
    {
        std::copy(x, x + n, past_.append(n));
        return tap(delay_, n);
    }
    /// After push(x, n): the same with another delay, 0 .. longest().
    const T* tap(int delay, int n) const noexcept { return past_.end() - n - delay; }

private:
    RecentSamples<T> past_;
    int delay_ = 0, longest_ = 0;
};

}  // namespace quillworks
