// SPDX-License-Identifier: ISC
// The neutral end of a parameter's range, where what it controls is left out.
#pragma once

#include <bit>
#include <cstdint>
#include <cstdlib>

namespace quillworks {

/// Whether a value stands at the neutral end. Values read back from text may miss it by some units
/// in the last place: up to 30 count as the end.
inline bool isNeutral(float x, float end) noexcept
{
    /// Place of a float among all floats, in order.
    const auto ordinal = [](float v) {
        const auto bits = std::bit_cast<std::uint32_t>(v);
        const auto magnitude = static_cast<std::int64_t>(bits & 0x7FFFFFFFu);
        return bits >> 31 ? -magnitude : magnitude;
    };
    return std::abs(ordinal(x) - ordinal(end)) <= 30;
}

}  // namespace quillworks
