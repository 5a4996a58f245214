// SPDX-License-Identifier: ISC
// The compressor's gain computer: level to reduction by threshold, knee and slope, a release that
// can wait for what is still in the look-ahead delay, reduction to gain.
#pragma once

#include <utility>

#include "dsp/delay_line.h"

namespace quillworks {

/// Static curve, one set for all channels. Decibels throughout.
struct CompressionCurve {
    double threshold = 0;
    double slope = 0;                      // 1 - 1/ratio
    double knee = 0;                       // half-width
    double kneeSlope = 0, kneeOffset = 0;  // 0.5/sqrt(knee), 0.5 sqrt(knee)

    static CompressionCurve of(double threshold, double slope, double knee) noexcept;

    /// Levels in dB to reductions in dB, 0 or more, in place. Within the knee (L + K)^2/(4 K), L
    /// the level above the threshold, which meets 0 at -K and L at K.
    template <typename T> void reduce(T* x, int n) const noexcept;
};

/// Reduction with release: rises at once, falls as a follower.
struct ReductionEnvelope {
    double reduction = 0;  // dB, 0 or more
    bool holds = false;    // heads for what was asked for a while ago instead of now
    bool isLatched = false;

    /// In place; `delayed` is what x was a hold time ago. Holding, a rise sets the latch, and a
    /// latched reduction stays as long as the one a hold time ago is larger.
    void run(double* x, const double* delayed, double release, int n) noexcept;
};

/// One channel's state. In double up to the reduction: at long release times a step is smaller than
/// a float's rounding, and rounding would decide whether a level still rises.
class GainComputer {
public:
    /// `holdFrames`: how far back the reduction lies that the release heads for while holding.
    void prepare(int holdFrames);
    void reset() noexcept;
    void setHold(bool holds) noexcept;
    /// Goes on from where `other`, prepared alike, stands.
    void takeOver(const GainComputer& other) noexcept;

    /// Present reduction in dB, 0 or more.
    double reduction() const noexcept { return envelope_.reduction; }
    /// The largest since it was last taken.
    double takeLargest() noexcept { return std::exchange(largest_, envelope_.reduction); }

    /// Levels (mean squares), which are overwritten, to linear gains with make-up; `release` is the
    /// coefficient per sample. Returns true only if all gains are the same. The gains are the same
    /// bit by bit however the signal is divided.
    template <typename T>
    bool run(double* level, T* gain, const CompressionCurve& curve, double release, double makeUpDb,
             GridSlice slice) noexcept;

private:
    bool reductions(double* x, const CompressionCurve& curve, double release,
                    GridSlice slice) noexcept;

    DelayLine<double> history_;  // of reductions as the curve asks for them
    int quiet_ = 0;              // frames since it last asked for one, as far as history reaches
    ReductionEnvelope envelope_;
    double largest_ = 0;
};

}  // namespace quillworks
