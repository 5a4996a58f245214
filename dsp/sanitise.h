// SPDX-License-Identifier: ISC
// Keeps samples that no filter recovers from out of recursions.
#pragma once

#include <algorithm>
#include <cmath>

namespace quillworks {

inline constexpr double kLargestSample = 1e6;  // +120 dBFS

/// Samples that are not finite become 0, magnitudes above 1e6 are limited to it.
template <typename T> void sanitise(T* x, int n) noexcept
{
    int bad = 0;  // counted without a branch: the usual block costs a compare per vector
    for (int i = 0; i < n; ++i) bad += !(std::abs(x[i]) <= T(kLargestSample));
    if (bad == 0) return;
    for (int i = 0; i < n; ++i)
        x[i] = std::isfinite(x[i]) ? std::clamp(x[i], T(-kLargestSample), T(kLargestSample)) : T(0);
}

}  // namespace quillworks
