// SPDX-License-Identifier: ISC
// Pixels of one colour laid over a picture, a cache line of them at once. Pixels are premultiplied
// 0xAARRGGBB.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillworks::editors {

inline constexpr int kStrip = 16;  // pixels

/// Coverage of a whole pixel in steps.
inline constexpr int kCovered = 1024;

/// Over `rows` rows of a strip, `stride` pixels apart, the colour of each row. A pixel is covered
/// by the sum of the steps of its column down to its row, 0 to kCovered.
extern void (*const blendSteps)(std::uint32_t* pixels, std::ptrdiff_t stride, int rows,
                                const std::int16_t* steps, const std::uint32_t* colours);

/// What glows, of a strip: `to` is `below` with an opaque colour over it, by the upper eight bits
/// of each light.
extern void (*const blendLight)(std::uint32_t* to, const std::uint32_t* below,
                                const std::uint16_t* light, std::uint32_t colour);

/// The lights of a strip times keep / 65536, those below `faintest` nothing; whether any is left.
extern bool (*const fadeLight)(std::uint16_t* light, std::uint16_t keep, std::uint16_t faintest);

}  // namespace quillworks::editors
