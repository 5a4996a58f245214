// SPDX-License-Identifier: ISC
// Which channels of a surround layout trade places when left and right are swapped.
#pragma once

#include <array>
#include <utility>

#include "vnk/speaker_arrangement.h"

namespace quillworks {

struct ChannelPairs {
    static constexpr int kMost = 8;
    std::array<std::pair<int, int>, kMost> pairs{};
    int count = 0;

    /// Each left speaker with the right one of its kind, in channel order; speakers in the middle
    /// are in no pair. Layouts without places pair neighbours: (0, 1), (2, 3), ...
    static ChannelPairs of(const VNK::SpeakerArrangement& layout) noexcept
    {
        using enum VNK::Speaker;
        constexpr std::pair<VNK::Speaker, VNK::Speaker> kinds[] = {
            {L, R}, {Ls, Rs}, {Lrs, Rrs}, {Lw, Rw}, {Ltf, Rtf}, {Ltm, Rtm}, {Ltr, Rtr}, {Lc, Rc}};
        ChannelPairs result;
        const auto add = [&](int left, int right) {
            if (result.count < kMost && left >= 0 && right >= 0)
                result.pairs[static_cast<std::size_t>(result.count++)] = {left, right};
        };
        if (layout.bits() == 0) {
            for (int c = 0; c + 1 < layout.channels; c += 2) add(c, c + 1);
            return result;
        }
        for (int c = 0; c < layout.channels; ++c)
            for (const auto& [left, right] : kinds)
                if (layout.speakers[c] == left) add(c, layout.find(right));
        return result;
    }
};

}  // namespace quillworks
