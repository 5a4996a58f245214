// SPDX-License-Identifier: ISC
// Pictures as PNG (ISO/IEC 15948).
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace quillhost {

/// A file of the pixels, 0xRRGGBB row by row, as small as it gets. With a tolerance above 0 it may
/// have 256 colours, each within that many 255ths of a pixel's red, green and blue; without one it
/// is exact. WorkError where there is no memory.
std::string pngOf(std::span<const std::uint32_t> pixels, int width, int height, int tolerance = 0);

}  // namespace quillhost
