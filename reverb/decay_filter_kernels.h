// SPDX-License-Identifier: ISC
// The loop of DecayFilter, built per instruction set.
#pragma once

#include "dsp/control_grid.h"
#include "reverb/decay_design.h"

namespace quillworks {

/// Rows of lanes: the gain, and for each section as in DecaySections kappa, a1 and a2.
inline constexpr int kDecayValues = 1 + 3 * DecaySections::kMost;
/// Room for a sub-block, and for what a vector reads and writes too far.
inline constexpr int kDecayRow = kSubBlock + 16;

template <typename T> struct DecayRun {
    const T* const* in;  // kDecayRow per lane may be read; what lies behind the frames is not used
    T* const* out;       // and may be written; may be `in`
    T* lanes;            // room of kDecayRow frames of `count` lanes
    const T* to;         // kDecayValues rows of `count` at the end of the sub-block
    const T* step;       // their change per frame, if anything `moves`
    T* states;           // two rows per section
    int count;           // of lanes, a multiple of 8
    int peaks;           // even; -1: no shelves either
    int frames, phase;   // 1 .. kSubBlock - phase
    bool moves;
};

void runDecayFilters(const DecayRun<float>& run);
void runDecayFilters(const DecayRun<double>& run);

}  // namespace quillworks
