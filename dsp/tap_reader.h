// SPDX-License-Identifier: ISC
// Reads long lines between their samples.
#pragma once

#include "dsp/long_line.h"

namespace quillworks {

/// Rows of an interpolating table, one behind the other, phases + 1 of them and one more that is
/// read and counts for nothing.
template <typename T> struct TapRows {
    const T* rows;
    int phases;
};

/// out[c][i] = what channel `channel` + c of the line held at distances[i], between its samples:
/// the sum of `taps` neighbours, weighted by a row interpolated linearly. Distances are more than
/// taps/2 - 1 and at most the capacity less taps/2 + 1; taps before the last clear are 0. One or
/// two channels. A sample does not depend on the others that are asked for with it.
/// Made for <float, 32>.
template <typename T, int taps>
void readBetween(const LongLine<T>& line, int channel, int channels, TapRows<T> rows,
                 const double* distances, int n, T* const* out) noexcept;

}  // namespace quillworks
