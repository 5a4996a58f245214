// SPDX-License-Identifier: ISC
// Moving sums of power in 64-bit integers: windows of any length that neither drift nor overflow.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <numeric>
#include <utility>

#include "dsp/aligned_buffer.h"
#include "dsp/fetch_ahead.h"

namespace quillworks {

/// Squared samples in units of 1e-14, so that full scale is 1e14 and single samples down to
/// -143 dB count.
struct PowerQuanta {
    static constexpr double kPerUnit = 1e14;
    static constexpr std::int64_t kFull = std::numeric_limits<std::int64_t>::max();

    const std::int64_t* q = nullptr;
    int n = 0;
    std::int64_t bound = 0;  // not below any of q[0 .. n)

    /// Whether the sum of all, on top of `sum`, stays within 64 bits.
    bool fitsOnTopOf(std::int64_t sum) const noexcept
    {
        return n == 0 || bound <= (kFull - sum) / n;
    }
    /// Sum of all.
    double total() const noexcept
    {
        if (!fitsOnTopOf(0)) return std::accumulate(q, q + n, 0.0);
        return static_cast<double>(std::accumulate(q, q + n, std::int64_t{0}));
    }
};

/// Rounds x^2 1e14 to integers in `q`. Squares beyond the integers' range are limited before the
/// cast, which would be undefined; x must not be NaN.
template <typename T> PowerQuanta quantisePower(std::int64_t* q, const T* x, int n) noexcept
{
    constexpr double top = 9223372036854774784.0;  // the largest double below 2^63
    std::int64_t bits = 0;
    for (int i = 0; i < n; ++i) {
        const double v = double(x[i]) * double(x[i]) * PowerQuanta::kPerUnit + 0.5;
        q[i] = static_cast<std::int64_t>(v < top ? v : top);
        bits |= q[i];  // no less than the largest, and cheaper
    }
    return {q, n, bits};
}

/// The sum over the last `length` values. It saturates at 2^63 - 1: a value that does not fit is
/// cut to what fits, and the cut value is what leaves the window later.
class PowerWindow {
public:
    /// Room for windows of up to `length` samples, allocated anew only when that changes; the
    /// window is 1 sample long after it. May throw std::bad_alloc.
    void reserve(int length)
    {
        clear();
        length_ = 1;
        ring_.require(static_cast<std::size_t>(std::max(length, 1)));
    }

    /// Makes the window `length` samples long (0: as 1) and empties it. False, and nothing changed,
    /// if that is more than reserved.
    bool setLength(int length) noexcept
    {
        length = std::max(length, 1);
        if (static_cast<std::size_t>(length) > ring_.size()) return false;
        clear();
        length_ = length;
        return true;
    }
    /// Takes `ring`, all zeros, in exchange for its own room; the window is 1 sample long after it.
    void exchangeRoom(AlignedBuffer<std::int64_t>& ring) noexcept
    {
        std::swap(ring_, ring);
        sum_ = 0;
        at_ = used_ = 0;
        length_ = 1;
    }
    void clear() noexcept
    {
        std::fill_n(ring_.begin(), used_, 0);
        sum_ = 0;
        at_ = used_ = 0;
    }

    /// Asks for the memory of the next n samples: a window of seconds has none of it at hand.
    void fetchAhead(int n) const noexcept
    {
        quillworks::fetchAhead(ring_.data() + at_, std::min(n, length_ - at_));
    }
    int length() const noexcept { return length_; }
    std::int64_t sum() const noexcept { return sum_; }
    /// Mean power over the window, 1 for full scale.
    double power() const noexcept
    {
        return static_cast<double>(sum_) * (1 / PowerQuanta::kPerUnit / length_);
    }

    void add(const PowerQuanta& in) noexcept
    {
        forEachRun(in, [this](const PowerQuanta& part, std::int64_t* ring) {
            if (!part.fitsOnTopOf(sum_)) {
                addSaturating(part, ring);
                return;
            }
            std::int64_t change = 0;
            for (int i = 0; i < part.n; ++i) {
                change += part.q[i] - ring[i];
                ring[i] = part.q[i];
            }
            sum_ += change;
        });
    }

    /// Adds, and returns the largest sum after any of the samples; 0 without samples.
    std::int64_t addTracking(const PowerQuanta& in) noexcept
    {
        std::int64_t largest = 0;
        forEachRun(in, [&](const PowerQuanta& part, std::int64_t* ring) {
            if (!part.fitsOnTopOf(sum_)) {
                largest = std::max(largest, addSaturating(part, ring));
                return;
            }
            std::int64_t sum = sum_, top = largest;
            for (int i = 0; i < part.n; ++i) {
                sum += part.q[i] - ring[i];
                ring[i] = part.q[i];
                top = std::max(top, sum);
            }
            sum_ = sum;
            largest = top;
        });
        return largest;
    }

private:
    /// f(part, ring) for the pieces between which the ring wraps.
    template <class F> void forEachRun(const PowerQuanta& in, F&& f) noexcept
    {
        for (int done = 0; done < in.n;) {
            const int n = std::min(in.n - done, length_ - at_);
            f(PowerQuanta{in.q + done, n, in.bound}, ring_.data() + at_);
            done += n;
            used_ = std::max(used_, at_ + n);
            at_ = at_ + n == length_ ? 0 : at_ + n;
        }
    }
    std::int64_t addSaturating(const PowerQuanta& in, std::int64_t* ring) noexcept
    {
        std::int64_t largest = 0;
        for (int i = 0; i < in.n; ++i) {
            const std::int64_t q = std::min(in.q[i], PowerQuanta::kFull - sum_);
            sum_ += q;
            sum_ -= ring[i];
            ring[i] = q;
            largest = std::max(largest, sum_);
        }
        return largest;
    }

    AlignedBuffer<std::int64_t> ring_;
    std::int64_t sum_ = 0;
    int length_ = 1;
    int at_ = 0;
    int used_ = 0;  // what clear() has to clear: long windows are reset often and filled rarely
};

}  // namespace quillworks
