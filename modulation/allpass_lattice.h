// SPDX-License-Identifier: ISC
// All-pass stages in a feedback loop that has no delay, as a phaser's.
#pragma once

#include "dsp/aligned_buffer.h"
#include "dsp/course.h"
#include "modulation/lattice_kernels.h"
#include "modulation/stereo_lfo.h"

namespace quillworks {

/// First-order all-passes (wc - s)/(wc + s) in series, each the normalised lattice of Gray and
/// Markel (1975): a step is a rotation of input and state, so it keeps energy however the corner
/// moves. The output is fed back without a delay (Zavalishin 2012), which leaves the resonances
/// where the analogue ones are, through a first-order high-pass at 1 Hz that keeps offsets from
/// building up. |k| < 1, a chain of gain 1 and a high-pass of at most 1 make a loop of less than 1
/// at every moment: it cannot blow up.
///
/// The output o = A x/(1 - k A), A being the chain, is weighted with sqrt((1 - k^2) (1 - k m)/(1 +
/// k m)), m the mean of A over the spectrum (G^stages): since (1 - k^2) |o|^2 is the real part of
/// (1 + k A)/(1 - k A), white noise then keeps its power exactly at any frequency and feedback.
///
/// Channels sit in slots, left and right sides by turns, as many as a multiple of 4.
template <typename T> class AllPassLattice {
public:
    /// Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, int slots);
    /// Silence.
    void reset() noexcept;
    /// 2, 4, 6, 8, 12, 16 or 24; before the first group of a sub-block, with a reset().
    void setStages(int stages) noexcept { stages_ = stages; }

    /// Where groups of frames begin: `count` from the group `first` of the sub-block on. Warped
    /// frequencies g > 0 of both sides, before the first group and where each ends, between which
    /// they run linearly; and the feedback, within -1 .. 1.
    void lay(int first, int count, const double (*g)[kSides], const Course<T>& feedback) noexcept;
    /// In place; null where a slot has no channel.
    void process(T* const* x, GridSlice slice) noexcept;

private:
    static constexpr int kMostStages = 24;

    int slots_ = 0, stages_ = 2;
    T highPass_ = 1;
    LatticeRows<T> rows_;
    AlignedBuffer<T> states_;  // of the stages, and of the high-passes
};

}  // namespace quillworks
