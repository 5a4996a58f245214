// SPDX-License-Identifier: ISC
// Saturation of an oversampled signal with what would alias taken out.
#pragma once

#include "dsp/saturation.h"

namespace quillworks {

/// First-order antiderivative antialiasing (Parker, Zavalishin and Le Bivic 2016; Bilbao, Esqueda,
/// Parker and Valimaki 2017): instead of f at each sample, the mean of f over the way from the
/// sample before, (F(a) - F(b)) / (a - b). It delays by half a sample of the rate it runs at, and
/// keeps nothing: the signal brings its last sample.
template <typename T> struct AntiderivativeShape {
    /// Whole vectors are read and written: up to this many samples behind the last.
    static constexpr int kPadding = 7;

    /// A constant to shape around, sample by sample of the lower rate: f(x + value) - output, with
    /// output = f(value). Both with kPadding, or null for none.
    struct Bias {
        const T* value = nullptr;
        const T* output = nullptr;
    };

    /// x and y in phases (see Oversampler), 1 to 8 of n samples each, in different places; index -1
    /// of the last phase of x is the sample before. Magnitudes up to 1e6.
    static void process(Saturation curve, const T* const* x, int phases, const Bias& bias,
                        T* const* y, int n) noexcept;
};

extern template struct AntiderivativeShape<float>;
extern template struct AntiderivativeShape<double>;

}  // namespace quillworks
