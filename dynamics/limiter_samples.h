// SPDX-License-Identifier: ISC
// The limiter's way in and out: samples of the host, and doubles relative to the ceiling.
#pragma once

#include <algorithm>

namespace quillworks {

inline constexpr double kLargestInput = 1000;  // +60 dB of full scale

/// What is no number becomes 0, magnitudes are limited to 1000.
template <typename T> void clean(T* x, int n) noexcept
{
    for (int i = 0; i < n; ++i)
        x[i] = x[i] == x[i] ? std::clamp(x[i], T(-kLargestInput), T(kLargestInput)) : T(0);
}

/// In: u = x * gain, of x as clean() leaves it. `levels` becomes |u|, or, unless it `begins`, the
/// larger of that and what it was. Returns the largest |u|.
template <typename T>
double takeIn(const T* x, const double* gain, double* u, double* levels, bool begins,
              int n) noexcept;

/// Out: x = v * gain * scale, limited to +-ceiling, which rounding does not pass either. `gain` may
/// be null for 1.
template <typename T>
void putOut(const double* v, const double* gain, const double* scale, const double* ceiling, T* x,
            int n) noexcept;

}  // namespace quillworks
