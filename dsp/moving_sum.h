// SPDX-License-Identifier: ISC
// Sum of the latest samples of an integer signal: exact, so it never drifts.
#pragma once

#include <cstdint>

#include "dsp/circular_delay.h"

namespace quillworks {

class MovingSum {
public:
    /// Sums over `length` >= 1 samples. Allocates.
    void prepare(int length)
    {
        length_ = length;
        past_.prepare(length);
        reset();
    }
    void reset() noexcept
    {
        past_.reset();
        sum_ = 0;
    }
    int length() const noexcept { return length_; }

    /// For each of the `n` samples the sum of it and the length - 1 before; `sums` is no part of x.
    void run(const std::int64_t* x, std::int64_t* sums, int n) noexcept;

private:
    CircularDelay<std::int64_t> past_;
    int length_ = 1;
    std::int64_t sum_ = 0;
};

}  // namespace quillworks
