// SPDX-License-Identifier: ISC
// Pixels of one colour laid over a picture, a cache line of them at once.
#pragma once

#include <array>
#include <cstdint>

namespace quillworks::editors {

inline constexpr int kStrip = 16;  // pixels

/// A colour ready for blendStrip().
class StripColour {
public:
    /// Premultiplied 0xAARRGGBB.
    explicit StripColour(std::uint32_t pixel) noexcept;
    std::uint32_t pixel() const noexcept { return pixel_; }

private:
    friend void blendStrip(std::uint32_t*, int, const std::uint16_t*, const StripColour&) noexcept;

    alignas(64) std::array<std::uint16_t, 4 * kStrip> bytes_;
    std::uint32_t pixel_;
    std::uint16_t alpha_;  // 0 .. 256
};

/// Over `count` pixels, at most kStrip of them, of which each is covered from 0 to 256; `cover` has
/// all kStrip.
void blendStrip(std::uint32_t* pixels, int count, const std::uint16_t* cover,
                const StripColour& colour) noexcept;

}  // namespace quillworks::editors
