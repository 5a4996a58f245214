// SPDX-License-Identifier: ISC
// What a core is prepared for and what it processes.
#pragma once

#include <algorithm>

#include "dsp/control_grid.h"
#include "vnk/effect.h"

namespace quillworks {

struct ProcessSpec {
    double sampleRate = 44100;
    int maxFrames = 0;               // longest block that process() gets
    int channels = 0;                // of the block: the larger of input and output
    VNK::SpeakerArrangement layout;  // of the output
    VNK::SpeakerArrangement inputLayout;
};

/// Channels of a block, processed in place: the input on entry, the output on return.
template <typename T> struct AudioBlock : GridSlice {
    T* const* channel = nullptr;
    int channels = 0;
    int inputChannels = 0;   // of `channels`, those that hold input; the others are silent
    int outputChannels = 0;  // of `channels`, those that the host hears
    const T* const* sideChain = nullptr;
    int sideChainChannels = 0;  // 0 while the bus is not connected
    int offset = 0;             // first frame of this slice in the buffers
    const VNK::Transport* transport =
        nullptr;  // of the first frame of the host's block, never null

    T* operator[](int c) const noexcept { return channel[c] + offset; }
    const T* side(int c) const noexcept { return sideChain[c] + offset; }

    /// `n` frames from `first` on; the grid phase follows.
    AudioBlock slice(int first, int n) const noexcept
    {
        AudioBlock part = *this;
        part.offset += first;
        part.frames = n;
        part.phase = (phase + first) % kSubBlock;
        return part;
    }
};

/// Calls f(slice) for each piece of the block that lies within one sub-block of the control grid.
template <typename T, class F> void forEachSubBlock(const AudioBlock<T>& block, F&& f)
{
    for (int done = 0; done < block.frames;) {
        const int phase = (block.phase + done) % kSubBlock;
        const int n = std::min(kSubBlock - phase, block.frames - done);
        f(block.slice(done, n));
        done += n;
    }
}

}  // namespace quillworks
