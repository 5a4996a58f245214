// SPDX-License-Identifier: ISC
// One still section over a pair of channels, eight frames at a time.
#pragma once

#include "dsp/section.h"

namespace quillworks {

/// The section as a block state space (Barnes, Shinnaka, "Block-shift invariance and block
/// implementation of discrete-time filters", 1980): eight samples of the output and the state
/// behind them are sums over the state before and over eight samples of the input. What waits for
/// the sample before is then a step of eight frames, so it is as fast as its sums and not as slow
/// as its recursion. In all rows the channels of the pair take turns.
template <typename T> struct SectionBlock {
    static constexpr int kFrames = 8;

    alignas(64) T toOutput[kFrames][2 * kFrames]{};  // by frame of the input; 0 before it
    alignas(64) T fromState[2][2 * kFrames]{};       // z1, z2 to the output
    alignas(64) T toState[kFrames][4]{};             // by frame of the input, to z1, z1, z2, z2
    alignas(64) T change[2][4]{};                    // of the state by z1 and z2

    /// The coefficients of one side, 0 or 1.
    void set(int side, const SectionCoefficients<T>& c) noexcept;
};

/// A slice of a pair. Divided anywhere it gives the same bits: blocks lie on the control grid, and
/// what is there of one is kept until the rest comes.
template <typename T> struct SectionBlockRun {
    const SectionBlock<T>* section;
    T *z1, *z2;     // of both channels, before the open block
    T* open;        // input of the open block, 2 kFrames
    T* channel[2];  // in place; the second may be null
    int frames;     // 1 .. kSubBlock - phase
    int phase;
};

void runSectionBlocks(const SectionBlockRun<float>& run);
void runSectionBlocks(const SectionBlockRun<double>& run);

}  // namespace quillworks
