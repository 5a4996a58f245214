// SPDX-License-Identifier: ISC
// The loop of ImageTaps, built per instruction set.
#pragma once

namespace quillworks {

/// One-poles side by side, each over a piece of its own: even lanes add up to the left ear, odd
/// ones to the right.
template <typename T> struct ImageRun {
    static constexpr int kMostLanes = 24;

    const T* from[kMostLanes];  // `frames` samples each
    const T *b, *l, *h;         // coefficients of kMostLanes; those of no lane are 0
    T* z;                       // states
    int lanes;                  // a multiple of 4
    int frames;                 // at most a sub-block
    T* ears[2];                 // written

    /// For the instruction set at hand.
    static void (*const run)(const ImageRun& run);
};

template <> void (*const ImageRun<float>::run)(const ImageRun<float>&);
template <> void (*const ImageRun<double>::run)(const ImageRun<double>&);

}  // namespace quillworks
