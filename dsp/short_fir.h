// SPDX-License-Identifier: ISC
// A short filter with a finite response, along time.
#pragma once

namespace quillworks {

/// Adds to y[i] the sum of h[k] x[i - k] over `taps` taps, for n <= 64 frames. Reads x from
/// x - taps + 1 to x + n + 15: what lies behind the last frame does not matter. Frame by frame the
/// same bits, however many come in one call.
void addFiltered(float* y, const float* x, const float* h, int taps, int n) noexcept;
void addFiltered(double* y, const double* x, const double* h, int taps, int n) noexcept;

}  // namespace quillworks
