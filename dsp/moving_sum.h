// SPDX-License-Identifier: ISC
// Sum of the latest samples of an integer signal: exact, so it never drifts.
#pragma once

#include <cstdint>

#include "dsp/recent_samples.h"

namespace quillworks {

class MovingSum {
public:
    /// Sums over `length` >= 1 samples. Allocates.
    void prepare(int length)
    {
        length_ = length;
        past_.prepare(length, kRun);
        reset();
    }
    void reset() noexcept
    {
        past_.reset();
        sum_ = 0;
    }
    int length() const noexcept { return length_; }

    /// Replaces each sample by the sum of it and the length - 1 before it.
    void process(std::int64_t* x, int n) noexcept;

private:
    static constexpr int kRun = 256;  // samples taken at once

    RecentSamples<std::int64_t> past_;
    int length_ = 1;
    std::int64_t sum_ = 0;
};

}  // namespace quillworks
