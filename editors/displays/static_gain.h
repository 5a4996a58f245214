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

/// Both sides of a band: above one threshold and below another, together at most `range` dB of
/// change either way.
struct BandLaw {
    double threshold = 0, ratio = 1, knee = 0;  // below 1 the ratio raises what is above
    double lowThreshold = -60, lowRatio = 1;    // below 1: raises what is below
    double range = 18, amount = 1, gain = 0;
};
inline double banded(double level, const BandLaw& law) noexcept
{
    const double over = level - law.threshold, half = std::max(law.knee, 1e-3) / 2;
    const double knee = over <= -half  ? 0
                        : over >= half ? over
                                       : (over + half) * (over + half) / (4 * half);
    const double above = -(1 - 1 / std::max(law.ratio, 1e-3)) * knee;
    const double below = (1 - law.lowRatio) * std::max(0.0, law.lowThreshold - level);
    const double change = std::clamp(law.amount * (above + below), -law.range, law.range);
    return level + change + law.gain;
}

}  // namespace quillworks::editors
