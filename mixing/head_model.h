// SPDX-License-Identifier: ISC
// What a head does to a sound from a direction: lateness, colour and loudness at each ear.
#pragma once

#include <array>

#include "dsp/hull_panner.h"
#include "dsp/section.h"

namespace quillworks {

inline constexpr double kSpeedOfSound = 343;  // m/s

/// A structural model after Brown and Duda ("A structural model for binaural sound synthesis",
/// 1998): the delay of a rigid sphere and four filters per ear, whose gains follow the direction.
/// They are fitted to measurements of a dummy head (Gardner and Martin, "HRTF measurements of a
/// KEMAR", 1994) with what reaches the ears from the front taken out: that passes as it is.
///
/// Directions are unit vectors, x to the front, y to the left, z up.
namespace head {

inline constexpr int kFilters = 4;

/// The direction as an ear has it: y toward the ear. 0 is the left one.
inline UnitVector toEar(const UnitVector& direction, int ear) noexcept
{
    return {direction[0], ear == 0 ? direction[1] : -direction[1], direction[2]};
}

/// Lateness of the left ear re the right one in seconds, below 0 where the left is nearer; head
/// radius in m (Woodworth and Schlosberg 1954).
double lateness(const UnitVector& direction, double radius) noexcept;

/// Gains of an ear's filters in dB, all 0 at the front. `direction` is toEar()'s.
std::array<double, kFilters> colour(const UnitVector& direction) noexcept;

/// Gain in dB that makes all directions as loud as the front.
double levelling(const UnitVector& direction) noexcept;

/// Filter i at a gain in dB: 0 and 3 are first-order high shelves, 1 and 2 peaks. The first is most
/// of the head's shadow.
constexpr bool isShelf(int i) noexcept
{
    return i == 0 || i == kFilters - 1;
}
template <typename T> OnePoleCoefficients<T> shelf(int i, double gain, double sampleRate) noexcept;
template <typename T> SectionCoefficients<T> peak(int i, double gain, double sampleRate) noexcept;

}  // namespace head
}  // namespace quillworks
