// SPDX-License-Identifier: ISC
// What a dynamics effect makes of a steady level. Decibels throughout.
#pragma once

#include <algorithm>

namespace quillworks::editors {

/// A compressor: above the threshold the output rises by 1/ratio. Within the knee, half a `knee` to
/// both sides of the threshold, a parabola leads from one line to the other (Giannoulis, Massberg
/// and Reiss, "Digital Dynamic Range Compressor Design", 2012).
inline double compressed(double level, double threshold, double ratio, double knee) noexcept
{
    const double slope = 1 - 1 / std::max(1.0, ratio);
    const double over = level - threshold, half = knee / 2;
    if (over <= -half) return level;
    if (over >= half) return level - slope * over;
    return level - slope * (over + half) * (over + half) / (2 * knee);
}

/// An expander: `slope` dB more are taken for every dB below the threshold, at most -`range`.
inline double expanded(double level, double threshold, double slope, double range) noexcept
{
    return level - std::min(std::max(0.0, threshold - level) * slope, -range);
}

}  // namespace quillworks::editors
