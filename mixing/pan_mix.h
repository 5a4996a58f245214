// SPDX-License-Identifier: ISC
// One output of a panner: one or two inputs by gains that stand or move, and its peak.
#pragma once

namespace quillworks {

/// A gain that moves linearly: `to` at the last frame of a sub-block of the control grid, `step`
/// less in each frame before.
template <typename T> struct PanGain {
    T to = 0, step = 0;
};

/// out = left * l + right * r, or left * l alone without a right input; the first of the n frames
/// lies `framesToLast` before the last of the sub-block. Returns the largest magnitude of `out`;
/// what is not a number counts for nothing. out may not be an input. Bits do not depend on the
/// division of the signal into calls. Made for float and double. [any thread]
template <typename T>
T mixPanned(T* out, const T* left, const T* right, PanGain<T> l, PanGain<T> r, int framesToLast,
            int n) noexcept;

}  // namespace quillworks
