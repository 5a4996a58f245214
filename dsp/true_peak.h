// SPDX-License-Identifier: ISC
// True peak: the largest magnitude of a signal interpolated to four times its rate.
#pragma once
#include <array>
#include <cstddef>
#include <vector>

namespace quillworks {

/// Two of the four 12-tap phases; the other two are their reversals.
struct TruePeakFilter {
    static constexpr int kTaps = 12;
    std::array<float, kTaps> first, second;

    /// At 48, 96 and 192 kHz the interpolator of ITU-R BS.1770-4 Annex 2, always four times; at
    /// other rates one whose phases lie nearer the samples.
    static const TruePeakFilter& at(double sampleRate) noexcept;
};

/// One channel's interpolator. The caller writes into its buffer, which keeps the history in front
/// of what is written.
class TruePeak {
public:
    /// For up to `maxFrames` samples at a time. May throw std::bad_alloc.
    void prepare(double sampleRate, int maxFrames);
    void reset() noexcept;

    /// Where the next samples go. They must be finite.
    float* input() noexcept { return buffer_.data() + kHistory; }
    /// The largest magnitude of the interpolated signal over the next n samples, written to
    /// input().
    float advance(int n) noexcept;

private:
    static constexpr int kHistory = 16;  // of which 11 are used; a whole vector
    static constexpr int kSlack = 16;    // the last vector reads beyond the end

    const TruePeakFilter* filter_ = nullptr;
    std::vector<float> buffer_;
};

/// The largest magnitude of the four phases over x[0 .. n). Reads 11 samples before x and up to 15
/// beyond its end, which do not count.
extern float (*const interpolatedPeak)(const TruePeakFilter& filter, const float* x, int n);

}  // namespace quillworks
