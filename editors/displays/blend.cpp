// SPDX-License-Identifier: ISC
#include "editors/displays/blend.h"

#include <algorithm>
#include <cstring>

namespace quillworks::editors {
namespace {

constexpr std::size_t kBytes = 4 * kStrip;

}  // namespace

StripColour::StripColour(std::uint32_t pixel) noexcept : pixel_(pixel)
{
    const auto alpha = pixel >> 24;
    alpha_ = static_cast<std::uint16_t>(alpha + (alpha >> 7));
    std::array<std::uint8_t, 4> bytes{};  // as they lie in memory
    std::memcpy(bytes.data(), &pixel, 4);
    for (std::size_t i = 0; i < kBytes; ++i) bytes_[i] = bytes[i % 4];
}

void blendStrip(std::uint32_t* pixels, int count, const std::uint16_t* cover,
                const StripColour& colour) noexcept
{
    unsigned any = 0, all = 256;
    for (int i = 0; i < kStrip; ++i) {
        any |= cover[i];
        all &= cover[i];
    }
    if (any == 0 || colour.alpha_ == 0) return;
    if (all == 256 && colour.alpha_ == 256) {
        std::fill_n(pixels, count, colour.pixel_);
        return;
    }
    // In numbers of 16 bits, which the compiler puts into vectors of any machine.
    alignas(64) std::array<std::uint16_t, kBytes> covered;
    alignas(64) std::array<std::uint8_t, kBytes> bytes;
    for (std::size_t i = 0; i < kStrip; ++i) {
        const std::uint64_t fourTimes = cover[i] * 0x0001000100010001ull;
        std::memcpy(covered.data() + 4 * i, &fourTimes, 8);
    }
    // The whole of a strip in moves whose size is known.
    const auto some = static_cast<std::size_t>(count) * 4;
    if (count == kStrip) {
        std::memcpy(bytes.data(), pixels, kBytes);
    } else {
        bytes = {};
        std::memcpy(bytes.data(), pixels, some);
    }
    for (std::size_t i = 0; i < kBytes; ++i) {
        // None of the products is more than 65535, and neither is their sum.
        const auto left = static_cast<std::uint16_t>((256 - colour.alpha_) * covered[i]);
        const auto kept = static_cast<std::uint16_t>(256 - covered[i] + (left >> 8));
        const auto own = static_cast<std::uint16_t>(colour.bytes_[i] * covered[i]);
        const auto below = static_cast<std::uint16_t>(bytes[i] * kept);
        const auto sum = static_cast<std::uint16_t>(own + below + 128);
        bytes[i] = static_cast<std::uint8_t>(sum >> 8);
    }
    if (count == kStrip)
        std::memcpy(pixels, bytes.data(), kBytes);
    else
        std::memcpy(pixels, bytes.data(), some);
}

}  // namespace quillworks::editors
