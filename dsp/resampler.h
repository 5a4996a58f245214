// SPDX-License-Identifier: ISC
// Sample rate conversion of whole signals in memory, as of files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "dsp/sinc_table.h"

namespace quillworks {

/// Kaiser-windowed sinc (Smith and Gossett 1984), 96 zero crossings each side, beta 12, cut-off at
/// 0.96 of half the lower rate. From 44.1 to 48 kHz: flat within 0.0001 dB to 20 kHz, -118 dB from
/// 22.05 kHz. Ratios of numbers to 2048 use a row of taps for each of their phases, others rows
/// interpolated linearly, whose errors lie below -125 dB.
///
/// For a worker, not for the audio thread: it may take milliseconds and some megabytes to make.
class Resampler {
public:
    /// `step` input samples per output sample: the rate of the input over that of the output, above
    /// 0. Ten octaves down at most.
    explicit Resampler(double step);

    /// Samples each side of a point that have a say in it.
    int reach() const noexcept { return table_.taps() / 2; }

    /// out[i] = the signal x[0 .. frames), 0 outside, at its time (first + i) step. `first` may be
    /// negative. A sample does not depend on the others asked for, so a long signal can be cut.
    template <typename T>
    void read(const T* x, std::ptrdiff_t frames, std::int64_t first, T* out, int n) const noexcept;

private:
    explicit Resampler(double step, int denominator);

    double step_;
    std::int64_t numerator_, denominator_;  // of the step; 0, 0: it is no such ratio
    SincTable<double> table_;
};

/// The whole signal at the other rate: ceil(frames / step) samples, time 0 staying time 0.
template <typename T> std::vector<T> resample(const std::vector<T>& x, double step);

}  // namespace quillworks
