// SPDX-License-Identifier: ISC
// Windowed-sinc interpolation: tables by cut-off.
#pragma once
#include <vector>

namespace quillworks {

/// Rows of 32 taps for 128 positions between two samples, for 13 cut-off frequencies (Smith and
/// Gossett, "A flexible sampling-rate conversion method", 1984). Kaiser window, beta 8; every row
/// sums to 1. A reader of changing speed takes the cut-off that keeps aliases out; `readBetween`
/// reads with them.
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

}  // namespace quillworks
