// SPDX-License-Identifier: ISC
// Tables of windowed-sinc kernels between the samples: for interpolation and band-limited steps.
#pragma once

#include <compare>
#include <cstddef>
#include <memory>

#include "dsp/aligned_buffer.h"

namespace quillworks {

/// What the rows of a table hold of the kernel h, which has an area of 1 and lies around 0.
enum class SincKind {
    Taps,       // h itself: interpolates, each row sums to 1
    Increment,  // what its integral grows by from sample to sample: one tap more, each row sums to
                // 1
    Step,       // its integral less the plain step: what makes a jump of 1 band-limited
    Corner,     // the integral of that: what makes a change of slope by 1 per sample band-limited
};

struct SincDesign {
    int taps;        // even: the kernel is that many samples wide
    int phases;      // rows between two samples
    double beta;     // of the Kaiser window
    double cut = 1;  // highest frequency that passes, as a fraction of the Nyquist frequency
    SincKind kind = SincKind::Taps;

    auto operator<=>(const SincDesign&) const = default;
};

/// Rows for the phases 0, 1/phases .. 1; between rows, interpolate linearly (Smith and Gossett, "A
/// flexible sampling-rate conversion method", 1984).
///
/// Taps: the value `phase` after sample i is the sum of row[k] x[i - taps/2 + 1 + k]. At a cut of 1
/// the first row is one tap of 1: on a sample it is read bit by bit.
///
/// Others: an event that lies `phase` before sample i acts on the samples i - taps/2 + k by row[k]
/// (Brandt, "Hard sync without aliasing", 2001, with a kernel of linear phase). The plain jump or
/// corner begins with sample i, also at a phase of 1. Increments, summed up, end at 1 themselves.
template <typename T> class SincTable {
public:
    explicit SincTable(const SincDesign& design);
    /// The table that all users of a design share while there are any. [not the audio thread]
    static std::shared_ptr<const SincTable> shared(const SincDesign& design);

    const SincDesign& design() const noexcept { return design_; }
    int taps() const noexcept { return taps_; }  // per row
    /// Row of phase i / phases, i = 0 .. phases; the rows follow each other in memory. Behind the
    /// last one the same number of zeros may be read.
    const T* row(int i) const noexcept { return rows_.data() + std::ptrdiff_t{i} * taps_; }
    /// out[k] = the row of any phase 0 .. 1, taps() of them.
    void rowAt(double phase, T* out) const noexcept
    {
        const double place = phase * design_.phases;
        const int below = static_cast<int>(place);
        const T fraction = static_cast<T>(place - below);
        const T *const from = row(below), *const to = from + taps_;
        for (int k = 0; k < taps_; ++k) out[k] = from[k] + fraction * (to[k] - from[k]);
    }

private:
    SincDesign design_;
    int taps_;
    AlignedBuffer<T> rows_;
};

/// The window of a row of a phase, in double.
void sincWindow(const SincDesign& design, double phase, double* window) noexcept;
/// The row of interpolating taps under it, summing to 1.
void sincTaps(const SincDesign& design, double phase, const double* window, double* out) noexcept;

}  // namespace quillworks
