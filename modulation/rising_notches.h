// SPDX-License-Identifier: ISC
// Notches that rise or fall for ever.
#pragma once

#include <array>

#include "dsp/section_chain.h"
#include "modulation/stereo_lfo.h"

namespace quillworks {

/// Notches in series, evenly spread over a range of octaves, that wander through it and fade in at
/// one end and out at the other, so that the movement has no end (Esqueda, Välimäki and Parker
/// 2015, here of state-variable filters). Notch j of S stands at the share frac((j +- c)/S) of the
/// range, c being the cycle: it takes S cycles from one end to the other and does not jump while it
/// is heard.
template <typename T> class RisingNotches {
public:
    static constexpr int kMost = 12;

    struct Course {
        double frequency;  // octaves above 1 Hz, of the middle of the range
        double range;      // octaves, at least 1
        double feedback;   // its magnitude narrows the notches
    };

    /// Slots as of AllPassLattice. Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, int slots);
    void reset() noexcept;
    /// How many, and which way they go; with a reset().
    void set(int notches, bool falls) noexcept
    {
        count_ = notches;
        falls_ = falls;
    }

    /// Where a sub-block begins: to what stands at its end. Cycles that have jumped are gone over
    /// to in 20 ms, the shorter way.
    void next(const double (&cycle)[kSides], bool hasJumped, const Course& to) noexcept;
    /// All slots in place.
    void process(T* const* x, GridSlice slice) noexcept { chain_.process(x, slice, 0, count_); }

    /// Damping of a notch.
    static double damping(double range, double feedback, int notches) noexcept;

private:
    /// Shares of the range, side by side for each notch.
    using Shares = std::array<double, kSides * kMost>;
    using Set = std::array<SectionCoefficients<T>, kSides * kMost>;

    void tune(const Shares& shares, int count, const Course& to, Set& coefficients) const noexcept;

    double sampleRate_ = 44100;
    int count_ = 1;
    bool falls_ = false, isFresh_ = true;
    SectionChain<T> chain_;
    double range_ = 0, feedback_ = 0, damping_ = 1;  // that of the first two
    std::array<double, kSides> place_{};             // cycles, with what is left of a jump
    std::array<double, kSides> offset_{};            // of the jump
    int jumpFrames_ = 1, jumpLeft_ = 0;              // sub-blocks
    Shares ends_{};                                  // of the last sub-block
};

}  // namespace quillworks
