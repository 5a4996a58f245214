// SPDX-License-Identifier: ISC
// What a detector hears: the effect's own channels or the external side-chain bus.
#pragma once

#include <cmath>

#include "dsp/sanitise.h"
#include "framework/audio_block.h"

namespace quillworks {

/// x = the channel, in double.
template <typename T> void takeChannel(double* x, const T* channel, int n) noexcept
{
    for (int i = 0; i < n; ++i) x[i] = channel[i];
}

/// x = mean of the block's channels.
template <typename T> void takeMean(double* x, const AudioBlock<T>& block) noexcept
{
    const int n = block.frames;
    if (block.channels == 2) {
        const T* const left = block[0];
        const T* const right = block[1];
        for (int i = 0; i < n; ++i) x[i] = (double(left[i]) + double(right[i])) * 0.5;
        return;
    }
    takeChannel(x, block[0], n);
    for (int c = 1; c < block.channels; ++c) {
        const T* const channel = block[c];
        for (int i = 0; i < n; ++i) x[i] += channel[i];
    }
    const double share = 1.0 / block.channels;
    for (int i = 0; i < n; ++i) x[i] *= share;
}

/// x = channel c of the external bus, sanitised.
template <typename T> void takeBusChannel(double* x, const AudioBlock<T>& block, int c) noexcept
{
    takeChannel(x, block.side(c), block.frames);
    sanitise(x, block.frames);
}

/// x = mean of the external bus's channels, sanitised.
template <typename T> void takeBusMean(double* x, const AudioBlock<T>& block) noexcept
{
    const int n = block.frames;
    takeBusChannel(x, block, 0);
    for (int c = 1; c < block.sideChainChannels; ++c) {
        double other[kSubBlock];
        takeBusChannel(other, block, c);
        for (int i = 0; i < n; ++i) x[i] += other[i];
    }
    const double share = 1.0 / block.sideChainChannels;
    for (int i = 0; i < n; ++i) x[i] *= share;
}

}  // namespace quillworks
