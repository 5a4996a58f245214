// SPDX-License-Identifier: ISC
// The limiter's way in and out: samples of the host, and doubles relative to the ceiling.
#pragma once

#include <type_traits>

#include "dsp/sanitise.h"

namespace quillworks {

/// The two loops over the samples of a channel.
template <typename T> struct WayThrough {
    /// In: u = x * gain. What is no number becomes 0, magnitudes are limited to 1000: unlike
    /// sanitise(), which takes what is beyond 1e6 for a fault, since a limiter forgets within
    /// milliseconds and must not let go of an overload. `levels` becomes |u|, or, unless it
    /// `begins`, the larger of that and what it was. Returns the largest |u|.
    double (*takeIn)(const T* x, const double* gain, double* u, double* levels, bool begins, int n);
    /// Out: x = v * gain * scale, limited to +-limit after rounding. `gain` may be null for 1.
    void (*putOut)(const double* v, const double* gain, const double* scale, const T* limit, T* x,
                   int n);
};

extern const WayThrough<float>* const floatWays;
extern const WayThrough<double>* const doubleWays;

/// With an input gain, a scale and a limit for each sample, or, if `isSteady`, the first of each
/// for all.
template <typename T> const WayThrough<T>& wayThrough(bool isSteady) noexcept
{
    if constexpr (std::is_same_v<T, float>)
        return floatWays[isSteady];
    else
        return doubleWays[isSteady];
}

}  // namespace quillworks
