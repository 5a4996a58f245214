// SPDX-License-Identifier: ISC
#include "dynamics/reversed_all_pass.h"

#include <algorithm>

#include "dsp/vec.h"
#include "framework/audio_block.h"

namespace quillworks {

template <typename T> int ReversedAllPass<T>::hopFrames(double sampleRate) noexcept
{
    return kSubBlock * std::max(1, static_cast<int>(0.01 * sampleRate / kSubBlock + 0.5));
}

template <typename T> int ReversedAllPass<T>::tailFrames(double sampleRate) noexcept
{
    return static_cast<int>(0.04 * sampleRate + 0.5);
}

template <typename T> void ReversedAllPass<T>::prepare(double sampleRate, int channels, int splits)
{
    rate_ = sampleRate;
    channels_ = channels;
    hop_ = hopFrames(sampleRate);
    tail_ = tailFrames(sampleRate);
    chain_.prepare(splits, channels);
    samples_.require(static_cast<std::size_t>(3 * channels * (hop_ + tail_)));
    reset();
}

template <typename T> void ReversedAllPass<T>::reset() noexcept
{
    for (int c = 0; c < channels_; ++c) vec::clear(output(c), hop_ + tail_);
    position_ = 0;
}

/// The input goes into the block, what is complete comes out of it. (A slice ends where a block
/// does: both begin with the control grid.)
template <typename T> void ReversedAllPass<T>::exchange(T* const* x, int n) noexcept
{
    for (int c = 0; c < channels_; ++c) {
        vec::copy(input(c) + position_, x[c], n);
        vec::copy(x[c], output(c) + position_, n);
    }
    position_ += n;
}

template <typename T> void ReversedAllPass<T>::filter(int splits) noexcept
{
    const int length = hop_ + tail_;
    for (int c = 0; c < channels_; ++c) {
        std::reverse_copy(input(c), input(c) + hop_, scratch(c));
        vec::clear(scratch(c) + hop_, tail_);
    }
    chain_.reset();
    for (int at = 0; at < length; at += kSubBlock) {
        T* part[VNK::kMaxChannels];
        for (int c = 0; c < channels_; ++c) part[c] = scratch(c) + at;
        chain_.process(part, {std::min(kSubBlock, length - at), 0}, 0, splits);
    }
    for (int c = 0; c < channels_; ++c) {
        // What has been played goes; the next block may still add to the rest.
        T* const y = output(c);
        std::copy(y + hop_, y + length, y);
        vec::clear(y + tail_, hop_);
        const T* const filtered = scratch(c);
        for (int i = 0; i < length; ++i) y[i] += filtered[length - 1 - i];
    }
    position_ = 0;
}

template class ReversedAllPass<float>;
template class ReversedAllPass<double>;

}  // namespace quillworks
