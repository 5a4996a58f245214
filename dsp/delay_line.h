// SPDX-License-Identifier: ISC
// Whole-sample delay, block by block.
#pragma once

#include <algorithm>
#include <cstddef>

#include "dsp/aligned_buffer.h"
#include "dsp/control_grid.h"

namespace quillworks {

/// The delayed samples are read where they lie, without a copy and without a border: what lies at
/// the ring's start is kept behind its end as well. The delay may be anything up to the longest
/// prepared, and change at any time: what has been written stays, the reading place jumps, and who
/// must not hear that fades from tap(before) to tap(after).
template <typename T> class DelayLine {
public:
    /// A fixed delay in samples, 0 or more. Allocates.
    void prepare(int delay) { prepare(delay, delay); }
    /// With room for delays up to `longest`. Allocates.
    void prepare(int longest, int delay)
    {
        longest_ = longest;
        // No longer than needed: the lines of hundreds of instances share the caches.
        length_ = (longest + kMirrored + kVector - 1) / kVector * kVector;
        const auto size = static_cast<std::size_t>(length_ + kMirrored);
        isSilent_ = size != ring_.size();  // it comes with zeros
        ring_.require(size);
        reset();
        setDelay(delay);
    }
    void reset() noexcept
    {
        if (!isSilent_) ring_.fill(T{});
        isSilent_ = true;
        at_ = 0;
    }
    /// 0 .. longest(), limited to that.
    void setDelay(int delay) noexcept { delay_ = std::clamp(delay, 0, longest_); }
    int delay() const noexcept { return delay_; }
    /// The past of `other`, prepared alike. Does not allocate.
    void takeOver(const DelayLine& other) noexcept
    {
        std::copy(other.ring_.begin(), other.ring_.end(), ring_.begin());
        at_ = other.at_;
        isSilent_ = other.isSilent_;
    }
    int longest() const noexcept { return longest_; }

    /// Writes n <= kSubBlock samples; returns the n samples that lie `delay` before them, valid
    /// until the next call. The one before those, at index -1, may be read too.
    const T* push(const T* x, int n) noexcept
    {
        isSilent_ = false;
        const int straight = std::min(n, length_ - at_);
        write(x, straight);
        if (at_ == length_) at_ = 0;
        if (straight < n) write(x + straight, n - straight);
        return tap(delay_, n);
    }
    /// After push(x, n): the same with another delay, 0 .. longest().
    const T* tap(int delay, int n) const noexcept
    {
        const int before = at_ - n - delay - 1;  // may be read, too
        return ring_.data() + (before < 0 ? before + length_ : before) + 1;
    }

private:
    static constexpr int kMirrored = kSubBlock + 1;  // samples that are read at once
    static constexpr int kVector = 16;               // samples

    void write(const T* x, int n) noexcept
    {
        T* const ring = ring_.data();
        std::copy_n(x, n, ring + at_);
        if (at_ < kMirrored) std::copy_n(x, std::min(n, kMirrored - at_), ring + length_ + at_);
        at_ += n;
    }

    AlignedBuffer<T> ring_;
    int length_ = 0, at_ = 0;
    int delay_ = 0, longest_ = 0;
    bool isSilent_ = false;  // nothing has been pushed since all of it was zeros
};

}  // namespace quillworks
