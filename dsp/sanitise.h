// SPDX-License-Identifier: ISC
// Keeps samples that no filter recovers from out of recursions: the one law for bad samples.
#pragma once

#include <algorithm>
#include <cmath>

namespace quillworks {

/// Magnitudes beyond are faults and not signals: +120 dB re full scale.
inline constexpr double kLargestSample = 1e6;
/// What an effect with a long memory takes in at most: +60 dB re full scale.
inline constexpr double kLoudestSignal = 1000;

/// Finite, and not beyond +-kLargestSample.
template <typename T> bool isSound(T x) noexcept
{
    return std::abs(x) <= T(kLargestSample);
}

/// Samples that are not finite become 0, magnitudes above 1e6 are limited to it.
template <typename T> void sanitise(T* x, int n) noexcept
{
    int bad = 0;  // counted without a branch: the usual block costs a compare per vector
    for (int i = 0; i < n; ++i) bad += !isSound(x[i]);
    if (bad == 0) return;
    for (int i = 0; i < n; ++i)
        x[i] = std::isfinite(x[i]) ? std::clamp(x[i], T(-kLargestSample), T(kLargestSample)) : T(0);
}

/// The same for whoever remembers what it hears for long: samples that are not finite or beyond 1e6
/// become 0, other magnitudes are limited to `limit`, at most 1e6. (Limited alone, a fault of 1e30
/// would ring on for seconds at the limit.)
template <typename T> void sanitise(T* x, int n, double limit) noexcept
{
    const T most = static_cast<T>(limit);
    int bad = 0;
    for (int i = 0; i < n; ++i) bad += !(std::abs(x[i]) <= most);
    if (bad == 0) return;
    for (int i = 0; i < n; ++i) x[i] = isSound(x[i]) ? std::clamp(x[i], -most, most) : T(0);
}

}  // namespace quillworks
