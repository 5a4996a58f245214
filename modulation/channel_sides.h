// SPDX-License-Identifier: ISC
// The side that each channel of a layout is on, for modulation that differs left and right.
#pragma once

#include <cstddef>
#include <vector>

#include "framework/speakers.h"

namespace quillworks {

enum class ChannelSide { Middle, Left, Right };

/// Those of a pair (ChannelPairs) are left and right, all others in the middle. Allocates.
inline std::vector<ChannelSide> channelSides(const VNK::SpeakerArrangement& layout)
{
    std::vector<ChannelSide> sides(static_cast<std::size_t>(layout.channels), ChannelSide::Middle);
    const auto pairs = ChannelPairs::of(layout);
    for (int p = 0; p < pairs.count; ++p) {
        const auto [left, right] = pairs.pairs[static_cast<std::size_t>(p)];
        sides[static_cast<std::size_t>(left)] = ChannelSide::Left;
        sides[static_cast<std::size_t>(right)] = ChannelSide::Right;
    }
    return sides;
}

}  // namespace quillworks
