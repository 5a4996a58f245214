// SPDX-License-Identifier: ISC
// Room for a sub-block of each channel, and lists of channels. Both are kept by their owners: lists
// on the stack would be filled anew for each sub-block, which takes longer than a filter.
#pragma once

#include <array>

#include "delay/permutation.h"
#include "dsp/aligned_buffer.h"

namespace quillworks {

/// A pointer per channel.
template <typename T> using ChannelList = std::array<T*, Permutation::kMostChannels>;

template <typename T> class ChannelRows {
public:
    /// Up to 16 channels. Allocates; may throw std::bad_alloc.
    void prepare(int channels)
    {
        samples_.require(static_cast<std::size_t>(channels * kSubBlock));
        for (int c = 0; c < channels; ++c)
            rows_[static_cast<std::size_t>(c)] = samples_.data() + c * kSubBlock;
    }
    T* const* data() const noexcept { return rows_.data(); }
    T* operator[](int channel) const noexcept { return rows_[static_cast<std::size_t>(channel)]; }

private:
    AlignedBuffer<T> samples_;
    ChannelList<T> rows_{};
};

}  // namespace quillworks
