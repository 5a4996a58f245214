// SPDX-License-Identifier: ISC
// Levels as colours.
#pragma once

#include <array>

#include "picture.h"

namespace quillhost {

/// 256 colours from black over blue, violet and orange to cream whose lightness (CIE L*) rises
/// evenly from 5 to 95, so that equal steps of level look alike and print in grey.
const std::array<Colour, 256>& levelColours();

}  // namespace quillhost
