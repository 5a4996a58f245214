// SPDX-License-Identifier: ISC
// A room of six walls.
#pragma once

#include <array>
#include <cstdint>

namespace quillworks::irgen {

inline constexpr int kOctaves = 10;  // 31.25 Hz to 16 kHz

struct Room {
    std::array<double, 3> size;        // metres: length, width, height
    double distance;                   // metres from the microphones to the sources
    std::array<double, kOctaves> t60;  // seconds
    std::uint32_t seed;
};

}  // namespace quillworks::irgen
