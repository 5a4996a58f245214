// SPDX-License-Identifier: ISC
// The late part of a small room: four lines that feed each other.
#pragma once

#include <array>

#include "dsp/long_line.h"
#include "dsp/section.h"

namespace quillworks {

/// Feedback delay network (Jot and Chaigne 1991) of four lines with a Hadamard matrix; falls by 60
/// dB in 0.35 s, sooner in the treble. Its two outputs have nothing in common.
template <typename T> class LateRoom {
public:
    /// Allocates.
    void prepare(double sampleRate);
    void reset() noexcept;
    /// n <= 32 samples; writes both ears.
    void process(const T* in, T* left, T* right, int n) noexcept;

private:
    static constexpr std::size_t kLines = 4;

    LongLine<T> lines_;
    std::array<int, kLines> delay_{};     // samples, ascending
    OnePoleCoefficients<T> low_[kLines];  // with the gain of the line
    std::array<T, kLines> z_{};
};

}  // namespace quillworks
