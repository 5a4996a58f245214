// SPDX-License-Identifier: ISC
// The latest samples of a signal, in one piece.
#pragma once

#include <algorithm>
#include <cstddef>

#include "dsp/aligned_buffer.h"

namespace quillworks {

/// Samples are appended to a straight buffer; now and then the tail that is still needed moves to
/// the front. So filters and delays read the past where it lies.
template <typename T> class RecentSamples {
public:
    /// Remembers `past` samples before those of the latest append(), which has up to `longest`;
    /// `padding` values behind the newest may be read and mean nothing. Allocates.
    void prepare(int past, int longest, int padding = 0)
    {
        past_ = past;
        // Pieces of whole vectors lie on their boundaries.
        start_ = (past + kVector - 1) / kVector * kVector;
        // Moves are rare, and the buffer stays small enough for the nearest cache.
        usable_ = start_ + std::max({past, 2 * longest, 512});
        const auto size = static_cast<std::size_t>(usable_ + padding);
        const bool isNew = size != samples_.size();
        samples_.require(size);
        isSilent_ = isNew;  // it comes with zeros
        reset();
    }
    /// As after zeros. A fresh buffer is not touched.
    void reset() noexcept
    {
        if (!isSilent_) std::fill_n(samples_.data() + start_ - past_, past_, T{});
        isSilent_ = true;
        end_ = start_;
    }
    /// Room for the next `n` samples, to be filled by the caller.
    T* append(int n) noexcept
    {
        if (end_ + n > usable_) {
            std::copy_n(samples_.data() + end_ - past_, past_, samples_.data() + start_ - past_);
            end_ = start_;
        }
        T* const room = samples_.data() + end_;
        end_ += n;
        isSilent_ = false;
        return room;
    }
    /// Behind the newest sample: end()[-1] is it.
    const T* end() const noexcept { return samples_.data() + end_; }

private:
    static constexpr int kVector = 16;  // samples

    AlignedBuffer<T> samples_;
    int past_ = 0, start_ = 0, usable_ = 0, end_ = 0;
    bool isSilent_ = false;  // nothing has been appended since the past was zeros
};

}  // namespace quillworks
