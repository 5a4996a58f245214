// SPDX-License-Identifier: ISC
// The responses that come with the effects, computed and not recorded.
#pragma once

#include <span>
#include <vector>

#include "vnk/sound_file.h"

namespace quillworks::irgen {

inline constexpr double kRate = 48000;  // Hz

/// Left to left, left to right, right to left, right to right.
using Paths = std::vector<std::vector<double>>;
inline constexpr std::size_t kPaths = 4;

struct Recipe {
    const char* name;
    Paths (*make)();
};

/// In the order of a browser; names are stored in songs and presets.
std::span<const Recipe> recipes();

/// Levelled to a peak of -1 dB and with the silence at its end left out.
VNK::Sound<double> made(const Recipe& recipe);

// By kind; see there.
struct Room;
Paths room(const Room& room);
Paths plate();
Paths springs();
Paths speaker();

}  // namespace quillworks::irgen
