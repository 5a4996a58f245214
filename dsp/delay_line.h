// SPDX-License-Identifier: ISC
// Whole-sample delay, block by block.
#pragma once

#include <algorithm>

#include "dsp/control_grid.h"
#include "dsp/recent_samples.h"

namespace quillworks {

/// The delayed samples are read where they lie, without a copy and without a border.
template <typename T> class DelayLine {
public:
    /// Delay in samples, 0 or more. Allocates.
    void prepare(int delay)
    {
        delay_ = delay;
        past_.prepare(delay + 1, kSubBlock);  // one more: index -1 is read too
    }
    void reset() noexcept { past_.reset(); }
    int delay() const noexcept { return delay_; }
    /// The past of `other`, prepared alike. Does not allocate.
    void takeOver(const DelayLine& other) noexcept { past_.takeOver(other.past_); }

    /// Writes n <= kSubBlock samples; returns the n samples that lie `delay` before them, valid
    /// until the next call. The one before those, at index -1, may be read too.
    const T* push(const T* x, int n) noexcept
    {
        std::copy(x, x + n, past_.append(n));
        return past_.end() - n - delay_;
    }

private:
    RecentSamples<T> past_;
    int delay_ = 0;
};

}  // namespace quillworks
