// SPDX-License-Identifier: ISC
// The expander's gain computer: an envelope that holds and never rises far above the threshold, and
// a gain that falls below it by a slope down to a floor.
#pragma once

#include "dsp/control_grid.h"

namespace quillworks {

/// The envelope's recursion. State in double in both precisions: at long release times and steep
/// slopes a float's rounding would be heard as another gain.
struct ExpanderEnvelope {
    double attack = 1, release = 1;  // share of the way covered per sample
    double threshold = 1;            // linear
    double ceiling = 1.05;           // where the envelope heads for while the level is above
    double holdFrames = 0;

    double envelope = 0;
    double hold = 0;         // frames left; counts down below 0
    double lowest, highest;  // envelope within the last run

    /// Envelopes of n >= 1 magnitudes, in place.
    void run(double* x, int n) noexcept;
};

template <typename T> class ExpanderGain {
public:
    /// A new rate keeps the hold's length in time, to a whole number of samples.
    void setSampleRate(double sampleRate) noexcept;
    void reset() noexcept;

    void setThreshold(double db) noexcept;
    void setRange(double db) noexcept;  // 0 or less
    /// v = 1 - 1/ratio, 0 or less; the gain falls by -v dB per dB.
    void setSlope(double v) noexcept;
    void setAttack(double seconds) noexcept;  // below 0: at once
    void setRelease(double seconds) noexcept;
    /// How long the envelope stays after it last touched the threshold.
    void setHold(double seconds) noexcept;

    double range() const noexcept { return range_; }
    double envelope() const noexcept { return follower_.envelope; }
    bool expands() const noexcept { return slope_ > 0; }

    /// Gains in dB for n magnitudes, 1 <= n <= kSubBlock, which are overwritten. Returns true only
    /// if they are all the same; how the signal is divided decides nothing but that.
    bool run(double* x, T* gainDb, int n) noexcept;

    /// The gain in dB as a linear factor, with the floor of all levels.
    static double linear(double db) noexcept;

private:
    double coefficient(double seconds) const noexcept;
    void findFloorLevel() noexcept;

    ExpanderEnvelope follower_;
    double threshold_ = 0, range_ = 0;  // dB
    double slope_ = 0;
    double floorLevel_ = 0;            // linear; below it the gain is the range; 0: nowhere
    double attack_ = 0, release_ = 0;  // seconds
    double sampleRate_ = 44100;
};

}  // namespace quillworks
