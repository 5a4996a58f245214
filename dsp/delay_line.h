// SPDX-License-Identifier: ISC
// Whole-sample delay, block by block.
#pragma once

#include <algorithm>
#include <vector>

#include "dsp/control_grid.h"

namespace quillworks {

/// Samples are appended to a straight buffer, so that the delayed ones are read where they lie,
/// without a copy and without a border; now and then the tail that is still needed moves to the
/// front.
template <typename T> class DelayLine {
public:
    /// Delay in samples, 0 or more. Allocates.
    void prepare(int delay)
    {
        delay_ = delay;
        buffer_.assign(static_cast<std::size_t>(kBefore + delay + std::max(kRun, delay)), T(0));
        end_ = kBefore + delay_;
    }
    void reset() noexcept
    {
        std::fill(buffer_.begin(), buffer_.end(), T(0));
        end_ = kBefore + delay_;
    }
    int delay() const noexcept { return delay_; }

    /// Writes n <= kSubBlock samples; returns the n samples that lie `delay` before them, valid
    /// until the next call. The one before those, at index -1, may be read too.
    const T* push(const T* x, int n) noexcept
    {
        T* const start = buffer_.data();
        if (end_ + n > static_cast<int>(buffer_.size())) {
            std::copy(start + (end_ - delay_ - kBefore), start + end_, start);
            end_ = kBefore + delay_;
        }
        std::copy(x, x + n, start + end_);
        end_ += n;
        return start + (end_ - n - delay_);
    }

private:
    static constexpr int kBefore = 1;
    static constexpr int kRun = 16 * kSubBlock;  // samples between two moves

    std::vector<T> buffer_;
    int delay_ = 0, end_ = 0;
};

}  // namespace quillworks
