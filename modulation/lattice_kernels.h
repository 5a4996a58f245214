// SPDX-License-Identifier: ISC
// The loops of AllPassLattice, built per instruction set.
#pragma once

#include "modulation/frame_groups.h"

namespace quillworks {

/// What the lattice goes by at each frame of a sub-block; the value of side s (0 left, 1 right) at
/// frame f is element 2 f + s. May be read some elements beyond the last.
///
/// A stage turns input x and state s by an angle of sine C and cosine G: it gives out y = G x + C s
/// and remembers s' = C x - G s. What is kept is t = C s, with the C of the frame to come, which
/// saves a product: y = G x + t and t' = `feed` x - `keep` t. As the group to come is not known
/// before it begins, the last frame of each keeps to its own C, and `entering` makes up for it.
template <typename T> struct LatticeRows {
    static constexpr int kSides = 2, kValues = kSides * kSubBlock;
    static constexpr int kSize = kValues + 8;
    T g[kSize]{};  // G
    T c[kSize]{};  // C
    T feed[kSize]{}, keep[kSize]{};
    T input[kSize]{};                    // weight of the input in what enters the chain,
    T output[kSize]{};                   // and of what would leave it unfed
    T gain[kSize]{};                     // of the output
    T entering[kSides * kGroups + 8]{};  // factor of all t, where a group begins
    T last[kSides] = {1, 1};             // C of the last frame that was laid
};

/// Groups of frames to lay out.
template <typename T> struct LatticeCourse {
    const T* g;  // warped frequencies of both sides: before the first group, and where each ends
    const T* feedback;  // of each frame of the sub-block
    bool isFeedbackConstant;
    T highPass;  // share of the feedback's high-pass that a step passes at once
    int stages;
    int first, count;  // groups
};

/// Channels in slots, left and right sides by turns.
template <typename T> struct LatticeRun {
    const LatticeRows<T>* rows;
    T* state;     // of stage i and slot c: i slots + c
    T* offset;    // of the feedback's high-pass, by slot
    T* const* x;  // in place; null where a slot has no channel
    int slots;    // a multiple of 4
    int stages;   // 2, 4, 6, 8, 12, 16 or 24
    T keep;       // by which share of the way the high-pass follows
    int frames, phase;
};

template <typename T> struct LatticeKernels {
    void (*lay)(LatticeRows<T>& rows, const LatticeCourse<T>& course);
    void (*run)(const LatticeRun<T>& run);
};

/// The best ones on this processor.
template <typename T> const LatticeKernels<T>& latticeKernels();

}  // namespace quillworks
