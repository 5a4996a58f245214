// SPDX-License-Identifier: ISC
// The loop of TapBank, built per instruction set.
#pragma once

#include <cstddef>

#include "dsp/section.h"

namespace quillworks {

inline constexpr int kBankTaps = 8;
/// Rows of lanes, a lane per tap: the filter's six, share of its own side, gains to left and right.
inline constexpr int kBankValues = 9;
/// Room for a sub-block, and for what a vector reads and writes too far.
inline constexpr std::ptrdiff_t kBankStride = kSubBlock + 8;

template <typename T> struct TapRun {
    const T* to;           // kBankValues rows of kBankTaps at the end of the sub-block
    const T* step;         // their change per frame, if anything `moves`
    T* states;             // rows: z1, z2 of the left filters, z1, z2 of the right ones
    T* peaks;              // of each tap
    const T* const* left;  // samples of each tap, and up to 7 that are not used
    const T* const* right;
    T *sumLeft, *sumRight;  // kBankStride each; added to
    unsigned taps;          // bit t: tap t runs; others may not be looked at
    int frames, phase;      // 1 .. kSubBlock - phase
    bool moves;
};

/// Adds up the taps.
void runTaps(const TapRun<float>& run);
void runTaps(const TapRun<double>& run);

}  // namespace quillworks
