// SPDX-License-Identifier: ISC
// Ring of samples for one or two channels, read in whole runs or at points between samples.
#pragma once
#include <vector>

#include "delay/sinc_rows.h"

namespace quillworks {

/// Distances count back from the newest sample, which has distance 0. What lies before the last
/// `clear`, or further back than has been written since, reads as 0: clearing is immediate however
/// long the line.
class RingLine {
public:
    static constexpr int kLongestRun = 160;  // samples per call

    /// [main thread]
    void prepare(int channels, int capacity);
    void clear() noexcept { valid_ = 0; }

    /// Appends n samples per channel, limited to +-8; a not-a-number is stored as 0. So no loop
    /// through a line ever holds a value that is not finite.
    void write(const float* const* in, int n) noexcept;
    /// n samples from `distance` on, toward the newest; distance >= n - 1.
    void copy(float* const* out, int distance, int n) const noexcept;
    /// One sample per distance, each at least 15 and at most the capacity less 17.
    void read(float* const* out, const double* distances, int n, const float* rows) const noexcept;

private:
    static constexpr int kGuard = SincRows::kTaps;  // repeats the start, so that taps never wrap

    void readOne(float* const* out, int i, int age, SincPoint point,
                 const float* rows) const noexcept;

    std::vector<float> line_[2];
    int channels_ = 0;
    int capacity_ = 0;
    int next_ = 0;   // where the next sample goes
    int valid_ = 0;  // samples written since the last clear, at most the capacity
};

}  // namespace quillworks
