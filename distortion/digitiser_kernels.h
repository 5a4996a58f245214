// SPDX-License-Identifier: ISC
// Reading at the edges of a clock and drawing band-limited steps there, built per instruction set.
#pragma once

namespace quillworks {

inline constexpr int kEdgeTaps = 32;             // of the interpolator
inline constexpr int kStepTaps = kEdgeTaps + 1;  // of a step's increments
/// Laid rows begin on the boundaries of vectors, with zeros before and behind them.
inline constexpr int kRowMargin = 16, kRowStride = 64;
/// Frames that steps are drawn into: whole groups.
inline constexpr int kDrawnFrames = 80;

struct DigitiserKernels {
    /// Row i, at rows + i kRowStride + kRowMargin, is that at table + place[i] rows of `taps`
    /// values (32 or 33), interpolated linearly between its neighbours. The margins stay.
    void (*layRows)(const double* table, int taps, const double* place, int count, double* rows);
    /// out[i] = sum of row i [k] x[frame[i] - 31 + k].
    void (*read)(const double* x, const int* frame, const double* rows, int count, double* out);
    /// sums[frame[i] + 1 + k] += step[i] row i [k], up to kDrawnFrames; frames in rising order.
    void (*draw)(double* sums, const int* frame, const double* rows, const double* step, int count);
};

extern const DigitiserKernels digitiserKernels;

}  // namespace quillworks
