// SPDX-License-Identifier: ISC
// True peak: the largest magnitude of a signal interpolated to four times its rate.
#pragma once
#include <algorithm>
#include <array>
#include <cstddef>

namespace quillworks {

/// Two of the four 12-tap phases; the other two are their reversals.
struct TruePeakFilter {
    static constexpr int kTaps = 12;
    std::array<float, kTaps> first, second;

    /// At 48, 96 and 192 kHz the interpolator of ITU-R BS.1770-4 Annex 2, always four times; at
    /// other rates one whose phases lie nearer the samples.
    static const TruePeakFilter& at(double sampleRate) noexcept;
};

/// One channel's interpolator. It remembers what it needs of the past and nothing more: the samples
/// lie in a row that its owner has for the time of a piece.
class TruePeak {
    static constexpr int kHistory = 16;  // of which 11 are used; a whole vector
    static constexpr int kSlack = 16;    // the last vector reads beyond the end

public:
    /// Room for `frames` samples with the past in front of them, and what vectors read behind.
    template <int frames> struct Row {
        Row() noexcept { std::fill_n(samples + kHistory + frames, kSlack, 0.0f); }
        float* input() noexcept { return samples + kHistory; }

        alignas(64) float samples[kHistory + frames + kSlack];
    };

    void prepare(double sampleRate);
    void reset() noexcept { history_.fill(0); }

    /// The largest magnitude of the interpolated signal over the n finite samples at row.input().
    template <int frames> float advance(Row<frames>& row, int n) noexcept
    {
        return advance(row.samples, n);
    }

private:
    float advance(float* samples, int n) noexcept;

    const TruePeakFilter* filter_ = nullptr;
    std::array<float, kHistory> history_{};
};

/// The largest magnitude of the four phases over x[0 .. n). Reads 11 samples before x and up to 15
/// beyond its end, which do not count.
extern float (*const interpolatedPeak)(const TruePeakFilter& filter, const float* x, int n);

}  // namespace quillworks
