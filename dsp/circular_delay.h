// SPDX-License-Identifier: ISC
// A delay that keeps the samples under way and no others.
#pragma once

#include <algorithm>
#include <cstddef>

#include "dsp/aligned_buffer.h"

namespace quillworks {

/// For lines that hundreds of instances have: a block of any length touches no more memory than
/// the delay is long, where a straight buffer is written from end to end.
template <typename T> class CircularDelay {
public:
    /// Delays up to `longest` samples; the delay is that until it is set. Allocates.
    void prepare(int longest)
    {
        const auto size = static_cast<std::size_t>(longest);
        isSilent_ = size != samples_.size();  // it comes with zeros
        samples_.require(size);
        setDelay(longest);
    }
    /// As after zeros.
    void reset() noexcept
    {
        if (!isSilent_) samples_.fill(T{});
        isSilent_ = true;
        at_ = 0;
    }
    /// Up to the longest prepared. Begins with zeros.
    void setDelay(int samples) noexcept
    {
        delay_ = samples;
        reset();
    }

    /// out[i] becomes x[i - delay], the samples before x those of the last call; `out` is no part
    /// of x.
    void run(const T* x, T* out, int n) noexcept
    {
        T* const ring = samples_.data();
        isSilent_ = false;
        if (n >= delay_) {
            out = std::copy_n(ring + at_, delay_ - at_, out);
            out = std::copy_n(ring, at_, out);
            std::copy_n(x, n - delay_, out);
            std::copy_n(x + n - delay_, delay_, ring);
            at_ = 0;
            return;
        }
        for (int done = 0; done < n;) {
            const int piece = std::min(n - done, delay_ - at_);
            std::copy_n(ring + at_, piece, out + done);
            std::copy_n(x + done, piece, ring + at_);
            at_ = at_ + piece == delay_ ? 0 : at_ + piece;
            done += piece;
        }
    }

private:
    AlignedBuffer<T> samples_;
    int delay_ = 0, at_ = 0;  // where the oldest lies
    bool isSilent_ = false;   // nothing has come since all of them were zeros
};

}  // namespace quillworks
