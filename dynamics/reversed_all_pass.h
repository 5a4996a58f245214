// SPDX-License-Identifier: ISC
// The all-passes of a crossover's splits, reversed in time, so that splitter and join behind them
// add up to a pure delay.
#pragma once

#include "dsp/aligned_buffer.h"
#include "dsp/section_chain.h"

namespace quillworks {

/// Blockwise time reversal with a finite tail (Powell and Chau 1991): a block of hop() frames is
/// reversed, followed by as much silence as the all-passes need to ring out, filtered from rest,
/// reversed again, and added to what the blocks before left. An all-pass times its reverse is 1,
/// and a Linkwitz-Riley low-pass over its all-pass has no phase: each band of the splitter behind
/// is zero-phase. What is left of a tail that is cut off after 40 ms: -138 dB with the lowest split
/// at 100 Hz, -80 dB at 60 Hz, -52 dB at 40 Hz.
///
/// All the work of a block is done where it is complete.
template <typename T> class ReversedAllPass {
public:
    /// Frames between blocks, a multiple of the control grid: 10 ms.
    static int hopFrames(double sampleRate) noexcept;
    /// Frames of a tail: 40 ms.
    static int tailFrames(double sampleRate) noexcept;
    static int latency(double sampleRate) noexcept
    {
        return hopFrames(sampleRate) + tailFrames(sampleRate);
    }

    /// Up to so many splits. Allocates.
    void prepare(double sampleRate, int channels, int splits);
    /// Silence; blocks are counted from here.
    void reset() noexcept;

    /// Channels in place, delayed by latency(). `frequency(split)` in Hz is asked for where a block
    /// begins to be filtered, for the first `splits`.
    template <class F>
    void process(T* const* x, GridSlice slice, int splits, F&& frequency) noexcept
    {
        exchange(x, slice.frames);
        if (position_ < hop_) return;
        for (int s = 0; s < splits; ++s)
            chain_.set(s, SectionCoefficients<T>::allPass(frequency(s), kButterworthQ, rate_));
        filter(splits);
    }

private:
    T* input(int channel) noexcept { return samples_.data() + 3 * channel * (hop_ + tail_); }
    /// What is complete of the output, and what later blocks add to.
    T* output(int channel) noexcept { return input(channel) + hop_ + tail_; }
    T* scratch(int channel) noexcept { return output(channel) + hop_ + tail_; }
    void exchange(T* const* x, int n) noexcept;
    void filter(int splits) noexcept;

    double rate_ = 44100;
    int channels_ = 0;
    int hop_ = kSubBlock, tail_ = 0;  // frames
    int position_ = 0;                // frames of the block so far
    SectionChain<T> chain_;
    AlignedBuffer<T> samples_;
};

}  // namespace quillworks
