// SPDX-License-Identifier: ISC
// Saturation of an oversampled signal with what would alias taken out.
#pragma once

#include "dsp/control_grid.h"
#include "dsp/saturation.h"

namespace quillworks {

/// Whole vectors are read and written: up to this many samples behind the last.
inline constexpr int kShapePadding = 7;

/// What stands around a curve f over a sub-block, frame by frame of the lower rate:
/// y = level (f(gain x + bias) - rest), rest = f(bias).
template <typename T> struct ShapeDrive {
    static constexpr int kFrames = kSubBlock + kShapePadding;
    T gain[kFrames]{}, bias[kFrames]{}, rest[kFrames]{}, level[kFrames]{};
};

/// First-order antiderivative antialiasing (Parker, Zavalishin and Le Bivic 2016; Bilbao, Esqueda,
/// Parker and Valimaki 2017): instead of f at each sample, the mean of f over the way from the
/// sample before, (F(a) - F(b)) / (a - b). It delays by half a sample of the rate it runs at, and
/// keeps nothing: the signal brings its last sample.
template <typename T> struct AntiderivativeShape {
    /// x and y in phases (see Oversampler), 1 to 8 of slice.frames samples each, in different
    /// places; index -1 of the last phase of x is the sample before. gain x + bias up to 1e6.
    static void process(Saturation curve, const ShapeDrive<T>& drive, const T* const* x, int phases,
                        T* const* y, GridSlice slice) noexcept;
    /// Sets drive.rest for drive.bias, in the very bits that process() gives: silence stays 0.
    static void findRest(Saturation curve, ShapeDrive<T>& drive) noexcept;
};

extern template struct AntiderivativeShape<float>;
extern template struct AntiderivativeShape<double>;

}  // namespace quillworks
