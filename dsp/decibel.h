// SPDX-License-Identifier: ISC
// Decibels with the guard that all levels share, and follower coefficients.
#pragma once

#include <algorithm>
#include <cmath>

namespace quillworks {

/// Linear levels below this read kSilenceDb: never minus infinity, never not-a-number.
inline constexpr double kSilence = 6.309573444802e-8;
inline constexpr double kSilenceDb = -144;

/// 20 log10(x), -144 for x below the guard and for not-a-number.
template <typename T> T gainToDb(T x) noexcept
{
    return x >= T(kSilence) ? T(20) * std::log10(x) : T(kSilenceDb);
}

/// 10^(dB / 20).
template <typename T> T dbToGain(T db) noexcept
{
    return std::pow(T(10), db * T(0.05));
}

/// Coefficient c of a follower s = x + c (s - x) with time constant `seconds`: exp(-2 pi / (rate
/// t)), limited to 0 .. 1; 0 (no smoothing) for times that are not above 0.
inline double followerCoefficient(double sampleRate, double seconds) noexcept
{
    if (!(seconds > 0)) return 0;
    return std::clamp(std::exp(-2 * 3.14159265358979323846 / (sampleRate * seconds)), 0.0, 1.0);
}

/// Factor that halves a distance in `updates` steps; 0 for none.
inline double halfLifeFactor(double updates) noexcept
{
    return updates > 0 ? std::exp2(-1 / updates) : 0;
}

}  // namespace quillworks
