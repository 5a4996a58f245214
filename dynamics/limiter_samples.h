// SPDX-License-Identifier: ISC
// The limiter's way in and out: samples of the host, and doubles relative to the ceiling.
#pragma once

namespace quillworks {

/// In: x cleaned, in place, then u = x * gain. Of x, what is no number becomes 0 and magnitudes are
/// limited to 1000. Raises levels[i] to |u[i]|; returns the largest |u|.
template <typename T>
double takeIn(T* x, const double* gain, double* u, double* levels, int n) noexcept;

/// Out: x = v * gain * scale, limited to +-ceiling, which rounding does not pass either. `gain` may
/// be null for 1.
template <typename T>
void putOut(const double* v, const double* gain, const double* scale, const double* ceiling, T* x,
            int n) noexcept;

}  // namespace quillworks
