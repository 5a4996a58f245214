// SPDX-License-Identifier: ISC
// What Multiband Dynamics measures: tags and ranges, for its table and its core.
#pragma once

#include <limits>

#include "framework/parameter.h"

namespace quillworks {

inline constexpr Tag kBandChange = 1500, kBandLevel = 1600, kLearned = 2000;  // band 0
inline constexpr float kMostChange = 48;                                      // dB either way
inline constexpr float kLowestLevel = -144, kHighestLevel = 20;               // dB
inline constexpr float kLowestLearned = -60;
inline constexpr float kNothingLearned = std::numeric_limits<float>::quiet_NaN();

}  // namespace quillworks
