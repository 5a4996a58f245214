// SPDX-License-Identifier: ISC
// Random numbers.
#pragma once

#include <cstdint>

namespace quillworks {

/// Value -1 .. 1 drawn by a count and a voice: chance without state, the same in every rendering.
/// Mixing function "lowbias32" (Wellons 2018).
constexpr double hashRandom(std::uint32_t n, std::uint32_t voice) noexcept
{
    std::uint32_t x = n + 0x9E3779B9u * (voice + 1);
    x ^= x >> 16;
    x *= 0x7FEB352Du;
    x ^= x >> 15;
    x *= 0x846CA68Bu;
    x ^= x >> 16;
    return static_cast<double>(static_cast<std::int32_t>(x)) * 0x1p-31;
}

}  // namespace quillworks
