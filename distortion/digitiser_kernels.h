// SPDX-License-Identifier: ISC
// Reading at the edges of a clock and drawing band-limited steps there, built per instruction set.
#pragma once

namespace quillworks {

inline constexpr int kEdgeTaps = 32;             // of the interpolator
inline constexpr int kStepTaps = kEdgeTaps + 1;  // of a step's increments
inline constexpr int kRowStride = 40;            // of laid rows: on the boundaries of vectors

struct DigitiserKernels {
    /// rows[i] = the row at table + place[i] rows of `taps` values (32 or 33), interpolated
    /// linearly between its neighbours.
    void (*layRows)(const double* table, int taps, const double* place, int count, double* rows);
    /// out[i] = sum of rows[i][k] x[frame[i] - 31 + k].
    void (*read)(const double* x, const int* frame, const double* rows, int count, double* out);
    /// sums[frame[i] + 1 + k] += step[i] rows[i][k].
    void (*draw)(double* sums, const int* frame, const double* rows, const double* step, int count);
};

extern const DigitiserKernels digitiserKernels;

}  // namespace quillworks
