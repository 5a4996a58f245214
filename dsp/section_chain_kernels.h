// SPDX-License-Identifier: ISC
// The loop of SectionChain, built per instruction set.
#pragma once

#include <cstddef>

#include "dsp/section.h"

namespace quillworks {

/// Sections in series over one slice of one pair of channels. Rows of lanes: section s of the
/// pair's channel c is element 2 s + c. All rows may be read 16 elements beyond the last.
template <typename T> struct SectionRun {
    const T* to[6];    // r, b1, b2, c1, c2, d at the end of the sub-block
    const T* step[6];  // their change per frame, if anything `moves`
    T *z1, *z2;
    T* channel[2];  // in place; the second may be null
    int count;      // sections
    int frames;     // 1 .. kSubBlock - phase
    int phase;
    bool moves;
};

/// One section over one slice of several pairs of channels.
template <typename T> struct SectionAbreast {
    const T* to[6];    // as in SectionRun; two lanes
    const T* step[6];  //
    T *z1, *z2;        // of the first pair; those of the next lie `pairStride` further on
    std::ptrdiff_t pairStride;
    T* const* channel;  // in place; the second of a pair may be null
    int channels;       // the last may be half of a pair
    int frames, phase;
    bool moves;
};

template <typename T> struct SectionKernel {
    void (*run)(const SectionRun<T>& run);
    int mostSections;  // in one run
    void (*runAbreast)(const SectionAbreast<T>& run);
};

/// The best kernel of a bit set of DSP::VectorLib::Permitted; null if the processor has none of
/// them.
template <typename T> const SectionKernel<T>* sectionKernel(int permitted);

}  // namespace quillworks
