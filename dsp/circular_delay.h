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

    /// Takes n samples on, and calls f(i, delayed, count) for one piece of the n delayed ones after
    /// the other, those from the i-th on: without a copy, from where they lie here or in x, which f
    /// therefore leaves alone.
    template <class F> void run(const T* x, int n, F&& f) noexcept
    {
        T* const ring = samples_.data();
        isSilent_ = false;
        int done = 0;
        const auto piece = [&](const T* delayed, int count) {
            if (count > 0) f(done, delayed, count);
            done += count;
        };
        if (n >= delay_) {
            piece(ring + at_, delay_ - at_);
            piece(ring, at_);
            piece(x, n - delay_);
            std::copy_n(x + n - delay_, delay_, ring);
            at_ = 0;
            return;
        }
        while (done < n) {
            const int count = std::min(n - done, delay_ - at_);
            T* const oldest = ring + at_;
            const T* const comes = x + done;
            piece(oldest, count);
            std::copy_n(comes, count, oldest);
            at_ = at_ + count == delay_ ? 0 : at_ + count;
        }
    }

private:
    AlignedBuffer<T> samples_;
    int delay_ = 0, at_ = 0;  // where the oldest lies
    bool isSilent_ = false;   // nothing has come since all of them were zeros
};

}  // namespace quillworks
