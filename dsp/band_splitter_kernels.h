// SPDX-License-Identifier: ISC
// The loops of BandSplitter, built per instruction set.
#pragma once

#include <cstddef>

#include "dsp/section.h"

namespace quillworks {

/// One slice of one pair of channels. Rows of lanes: split s of side c is element 2 s + c. All may
/// be read 8 elements beyond the last.
template <typename T> struct SplitRun {
    const T* to[3];    // r, b1, b2 of the splits' sections at the end of the sub-block
    const T* step[3];  // their change per frame, if anything `moves`
    T* z[4];           // states of the first section, then of the second
    int count;         // splits, 1 .. 4
    int frames;        // 1 .. kSubBlock - phase
    int phase;
    bool moves;
    const T* channel[2];  // the second may be null
    T* band;              // row of band 0, side 0; 8 samples before and behind may be written
    std::ptrdiff_t stride;
};

/// All-passes behind the bands: number j, of split j + 1, takes what number j - 1 gave and band j.
template <typename T> struct JoinRun {
    const T* to[3];
    const T* step[3];
    T* z[2];
    int count;  // all-passes, 1 .. 3
    int frames, phase;
    bool moves;
    const T* band;
    std::ptrdiff_t stride;
    T* channel[2];  // gets what the last one gives; the second may be null
};

template <typename T> struct BandKernels {
    void (*split)(const SplitRun<T>& run);
    void (*join)(const JoinRun<T>& run);
};

/// The best kernels of a bit set of DSP::VectorLib::Permitted; null if the processor has none of
/// them.
template <typename T> const BandKernels<T>* bandKernels(int permitted);

}  // namespace quillworks
