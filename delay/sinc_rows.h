// SPDX-License-Identifier: ISC
// Windowed-sinc interpolation: tables by cut-off, and the kernel that reads at points between
// samples.
#pragma once
#include <cstdint>
#include <vector>

namespace quillworks {

/// Rows of 32 taps for 128 positions between two samples, for 13 cut-off frequencies (Smith and
/// Gossett, "A flexible sampling-rate conversion method", 1984). Kaiser window, beta 8; every row
/// sums to 1. A reader of changing speed takes the cut-off that keeps aliases out.
class SincRows {
public:
    static constexpr int kTaps = 32;
    static constexpr int kBefore = 15;   // taps before the point's own sample; 16 after
    static constexpr int kPhases = 128;  // rows between two samples; between rows it is linear
    static constexpr int kCuts = 13;     // 2^(-j/4) of the Nyquist frequency, j = 0 .. 12

    /// Built at the first call and shared by all readers. [main thread]
    static const SincRows& shared();

    /// Rows of the largest cut-off not above `limit` (a fraction of the Nyquist frequency), or of
    /// the lowest there is. At a limit of 1 and above the first row is a single tap of 1: a point
    /// on a sample reads it bit by bit.
    const float* below(float limit) const noexcept;

private:
    SincRows();

    static constexpr int kRows = kPhases + 1;
    std::vector<float> taps_;
};

/// Where to read: index of the first tap in the line, and the row with its fraction.
struct SincPoint {
    std::int32_t start;
    float row;  // 0 .. kPhases
};

/// out[c][i] = the line of channel c at point i. One or two channels.
void readSinc(const float* const* lines, int channels, const float* rows, const SincPoint* points,
              int n, float* const* out) noexcept;

}  // namespace quillworks
