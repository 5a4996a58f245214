// SPDX-License-Identifier: ISC
// The line of a loop: samples for one or two channels, read in whole runs or between the samples.
#pragma once
#include "dsp/long_line.h"

namespace quillworks {

/// A `LongLine` whose samples stay within bounds, whatever is written.
class RingLine {
public:
    /// [main thread]
    void prepare(int channels, int capacity) { line_.prepare(channels, capacity); }
    void clear() noexcept { line_.clear(); }

    /// Appends n samples per channel, limited to +-8; a not-a-number is stored as 0. So no loop
    /// through a line ever holds a value that is not finite.
    void write(const float* const* in, int n) noexcept;
    /// n samples from `distance` on, toward the newest; distance >= n - 1.
    void copy(float* const* out, int distance, int n) const noexcept;
    /// One sample per distance, each at least 15 and at most the capacity less 17; rows as those
    /// of `SincRows`.
    void read(float* const* out, const double* distances, int n, const float* rows) const noexcept;

private:
    LongLine<float> line_;
};

}  // namespace quillworks
