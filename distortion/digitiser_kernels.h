// SPDX-License-Identifier: ISC
// Reading at the edges of a clock and drawing band-limited steps there, built per instruction set.
#pragma once

namespace quillworks {

inline constexpr int kEdgeTaps = 32;             // of the interpolator
inline constexpr int kStepTaps = kEdgeTaps + 1;  // of a step's increments
/// Laid rows begin on the boundaries of vectors, with zeros before and behind them.
inline constexpr int kRowMargin = 16, kRowStride = 64;
inline constexpr int kRowsAtOnce = 16;
/// Frames that steps are drawn into: whole groups.
inline constexpr int kDrawnFrames = 80;

/// What a slice's edges have in common for all channels.
struct DigitiserEdges {
    int count;
    const int* frame;     // rising, where each is reported
    const double* place;  // in rows of the tables, interpolated linearly between neighbours
};

struct DigitiserKernels {
    /// out[c][i] = sum of row i [k] x[c][frame[i] - 31 + k], from a table of kEdgeTaps values a
    /// row.
    void (*read)(const double* table, const DigitiserEdges& edges, const double* const* x,
                 int channels, double* const* out);
    /// sums[c][frame[i] + 1 + k] += step[c][i] row i [k], up to kDrawnFrames, from a table of
    /// kStepTaps values a row. `rows` is room for kRowsAtOnce rows of kRowStride values, 0 outside
    /// the middle.
    void (*draw)(const double* table, const DigitiserEdges& edges, const double* const* step,
                 int channels, double* const* sums, double* rows);
};

extern const DigitiserKernels digitiserKernels;

}  // namespace quillworks
