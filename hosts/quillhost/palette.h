// SPDX-License-Identifier: ISC
// Few colours for a picture of many.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace quillhost {

struct Palette {
    static constexpr std::size_t kMost = 256;

    std::vector<std::uint32_t> colours;  // 0xRRGGBB
    /// Of each colour of the picture, the place of the one that stands for it.
    std::unordered_map<std::uint32_t, std::uint8_t> places;
};

/// At most kMost colours, of which one is within `tolerance` of each pixel's red, green and blue;
/// the commonest colours stay as they are. Pixels are 0xRRGGBB, what is above is not looked at.
/// Nothing where that is not found.
std::optional<Palette> paletteOf(std::span<const std::uint32_t> pixels, int tolerance);

}  // namespace quillhost
