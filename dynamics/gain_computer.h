// SPDX-License-Identifier: ISC
// The compressor's gain computer: level to reduction by threshold, knee and slope, a release that
// can wait for what is still in the look-ahead delay, reduction to gain.
#pragma once

#include <utility>

#include "dsp/delay_line.h"

namespace quillworks {

/// Static curve, one set for all channels. Decibels throughout.
template <typename T> struct CompressionCurve {
    T threshold = 0;
    T slope = 0;                      // 1 - 1/ratio
    T knee = 0;                       // half-width
    T kneeSlope = 0, kneeOffset = 0;  // 0.5/sqrt(knee), 0.5 sqrt(knee)

    static CompressionCurve of(double threshold, double slope, double knee) noexcept;

    /// Levels in dB to reductions in dB, 0 or more, in place. Within the knee (L + K)^2/(4 K), L
    /// the level above the threshold, which meets 0 at -K and L at K.
    void reduce(T* x, int n) const noexcept;
};

/// Reduction with release: rises at once, falls as a follower. State in double: at long release
/// times a step is smaller than a float's rounding.
struct ReductionEnvelope {
    double reduction = 0;  // dB, 0 or more
    bool holds = false;    // heads for what was asked for a while ago instead of now
    bool isLatched = false;

    /// In place; `delayed` is what x was a hold time ago. Holding, a rise sets the latch, and a
    /// latched reduction stays as long as the one a hold time ago is larger.
    template <typename T> void run(T* x, const T* delayed, double release, int n) noexcept;
};

/// One channel's state.
template <typename T> class GainComputer {
public:
    /// `holdFrames`: how far back the reduction lies that the release heads for while holding.
    void prepare(int holdFrames)
    {
        history_.prepare(holdFrames);
        reset();
    }
    void reset() noexcept
    {
        history_.reset();
        quiet_ = history_.delay() + kSubBlock;
        envelope_.reduction = 0;
        envelope_.isLatched = false;
    }
    void setHold(bool holds) noexcept
    {
        envelope_.holds = holds;
        envelope_.isLatched = false;
    }

    /// Present reduction in dB, 0 or more.
    double reduction() const noexcept { return envelope_.reduction; }
    /// The largest since it was last taken.
    double takeLargest() noexcept { return std::exchange(largest_, envelope_.reduction); }

    /// Levels (mean squares) to linear gains with make-up, which may be the same array; `release`
    /// is the coefficient per sample. Returns whether all gains are the same. 1 <= n <= kSubBlock.
    bool run(T* gain, const T* level, const CompressionCurve<T>& curve, double release, T makeUpDb,
             int n) noexcept;

private:
    DelayLine<T> history_;  // of reductions as the curve asks for them
    int quiet_ = 0;         // frames since it last asked for one, as far as the history reaches
    ReductionEnvelope envelope_;
    double largest_ = 0;
};

}  // namespace quillworks
