// SPDX-License-Identifier: ISC
// Fundamental period of a stretch of sound.
#pragma once

#include <optional>
#include <vector>

#include "dsp/fft.h"

namespace quillworks {

/// The normalised square difference function (McLeod and Wyvill, "A smarter way to find pitch",
/// 2005): its first maximum above 0.8 of the highest. [not the audio thread]
class Fundamental {
public:
    /// Of windows of n samples: periods of 2 to 2n/3 samples are found. Plans a transform when it
    /// is first used. May throw std::bad_alloc.
    void prepare(int n);
    int window() const noexcept { return window_; }
    /// Period in samples, with a fraction; none in silence and noise.
    std::optional<double> period(const float* x);

private:
    int window_ = 0;
    Fft<float> fft_;
    std::vector<float> work_, spectrum_, difference_;
};

}  // namespace quillworks
