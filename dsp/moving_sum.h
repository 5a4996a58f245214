// SPDX-License-Identifier: ISC
// Sum of the latest samples of an integer signal: exact, so it never drifts.
#pragma once

#include <cstdint>

#include "dsp/recent_samples.h"

namespace quillworks {

class MovingSum {
public:
    /// Padding behind the room that append() gives: it may be filled in whole vectors.
    static constexpr int kPadding = 7;

    /// Sums over `length` >= 1 samples, up to `longest` at once. Allocates.
    void prepare(int length, int longest)
    {
        length_ = length;
        past_.prepare(length, longest, kPadding);
        reset();
    }
    void reset() noexcept
    {
        past_.reset();
        sum_ = 0;
    }
    int length() const noexcept { return length_; }

    /// Room for the next `n` samples, to be filled by the caller.
    std::int64_t* append(int n) noexcept { return past_.append(n); }
    /// For each of the `n` samples of the latest append(), the sum of it and the length - 1 before.
    void sums(std::int64_t* out, int n) noexcept;

private:
    RecentSamples<std::int64_t> past_;
    int length_ = 1;
    std::int64_t sum_ = 0;
};

}  // namespace quillworks
