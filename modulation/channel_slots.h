// SPDX-License-Identifier: ISC
// Channels as the filters of a stereo modulation take them: left and right sides by turns.
#pragma once

#include <cstddef>
#include <vector>

#include "framework/audio_block.h"
#include "framework/speakers.h"

namespace quillworks {

/// Slot 2 p holds the left channel of pair p, slot 2 p + 1 the right one. A channel in the middle
/// is a left one without a right. Filled up to a multiple of 4.
template <typename T> class ChannelSlots {
public:
    void prepare(const VNK::SpeakerArrangement& layout)
    {
        const auto pairs = ChannelPairs::of(layout);
        std::vector<bool> isPaired(static_cast<std::size_t>(layout.channels));
        channel_.clear();
        for (int p = 0; p < pairs.count; ++p) {
            const auto [left, right] = pairs.pairs[static_cast<std::size_t>(p)];
            for (const int c : {left, right}) {
                channel_.push_back(c);
                isPaired[static_cast<std::size_t>(c)] = true;
            }
        }
        for (int c = 0; c < layout.channels; ++c)
            if (!isPaired[static_cast<std::size_t>(c)]) channel_.insert(channel_.end(), {c, -1});
        used_ = static_cast<int>(channel_.size());
        channel_.resize((channel_.size() + 3) / 4 * 4, -1);
        slots_.resize(channel_.size());
    }
    int count() const noexcept { return static_cast<int>(channel_.size()); }
    /// Those of pairs that hold a channel: an even number, the first ones.
    int used() const noexcept { return used_; }

    /// The channels in their slots, null where there is none. Valid until the next call.
    T* const* of(T* const* channels) noexcept
    {
        for (std::size_t i = 0; i < channel_.size(); ++i)
            slots_[i] = channel_[i] < 0 ? nullptr : channels[channel_[i]];
        return slots_.data();
    }

private:
    std::vector<int> channel_;
    int used_ = 0;
    std::vector<T*> slots_;
};

}  // namespace quillworks
