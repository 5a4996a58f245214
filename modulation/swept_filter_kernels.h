// SPDX-License-Identifier: ISC
// The loops of SweptFilter, built per instruction set.
#pragma once

#include "dsp/control_grid.h"
#include "modulation/frame_groups.h"

namespace quillworks {

/// What moves with the control grid: at the end of the sub-block, and per frame.
enum SweptFilterValue {
    kDamping1,  // 1/Q of the first section
    kDamping2,
    kDrive,   // twice the share of the damping that grows with the level
    kInput1,  // weights of the section's input,
    kBand1,   // of its damped band,
    kLow1,    // and of its low-pass
    kInput2,
    kBand2,
    kLow2,
    kSweptFilterValues
};

/// Warped frequencies to lay out, one row for each phase of the inner rate: the value of side s at
/// frame f is element 2 f + s.
template <typename T> struct SweptFilterCourse {
    const T* g;  // of both sides: before the first group, and where each ends
    T* rows[2];
    int factor;        // 1 or 2 phases
    int first, count;  // groups
};

/// Channels in slots, left and right sides by turns.
template <typename T> struct SweptFilterRun {
    const T* rows[2];
    const T *to, *step;  // kSweptFilterValues
    bool moves;          // any step but 0
    T* states;           // kStates rows of `slots`
    T* const* x[2];      // the channels of each phase, in place; null where a slot has none
    int slots;           // a multiple of 4
    int factor, frames, phase;

    static constexpr int kStates = 6;
};

template <typename T> struct SweptFilterKernels {
    void (*lay)(const SweptFilterCourse<T>& course);
    void (*run)(const SweptFilterRun<T>& run);
};

/// The best ones on this processor.
template <typename T> const SweptFilterKernels<T>& sweptFilterKernels();

}  // namespace quillworks
