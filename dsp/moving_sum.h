// SPDX-License-Identifier: ISC
// Sum of the latest samples of an integer signal: exact, so it never drifts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillworks {

class MovingSum {
public:
    /// Sums over `length` >= 1 samples. Allocates.
    void prepare(int length)
    {
        past_.resize(static_cast<std::size_t>(length));
        reset();
    }
    void reset() noexcept
    {
        std::fill(past_.begin(), past_.end(), std::int64_t{0});
        at_ = 0;
        sum_ = 0;
    }
    int length() const noexcept { return static_cast<int>(past_.size()); }

    /// Replaces each sample by the sum of it and the length - 1 before it.
    void process(std::int64_t* x, int n) noexcept
    {
        std::int64_t sum = sum_;  // in a register
        for (int done = 0; done < n;) {
            const int run = std::min(n - done, length() - at_);
            std::int64_t* const past = past_.data() + at_;
            for (int i = 0; i < run; ++i) {
                const std::int64_t v = x[done + i];
                sum += v - past[i];
                past[i] = v;
                x[done + i] = sum;
            }
            done += run;
            at_ = at_ + run == length() ? 0 : at_ + run;
        }
        sum_ = sum;
    }

private:
    std::vector<std::int64_t> past_;
    int at_ = 0;  // of the oldest sample
    std::int64_t sum_ = 0;
};

}  // namespace quillworks
