// SPDX-License-Identifier: ISC
// From a detector's key to the level that a gain computer judges: a two-band peak detector and a
// mean square with attack and release.
#pragma once

#include "dsp/follower.h"

namespace quillworks {

/// Everything is a recursion and runs in one loop, so that a processor which works ahead overlaps
/// their waiting times. State in double in both precisions of an effect: at the longer times a step
/// is smaller than a float's rounding.
class LevelDetector {
public:
    /// Which envelope judges the detector signal.
    enum class Speed {
        Timed,  // mean square by attack and release
        Auto,   // amplitude that rises over 3 s and falls within 0.1 s
    };

    void prepare(double sampleRate) noexcept;
    /// Of Speed::Timed, in seconds: the mean square moves towards a higher one by 1/(rate attack)
    /// of the deviation per sample, towards a lower one as a follower.
    void setTimes(double sampleRate, double attack, double release) noexcept;
    void reset() noexcept;
    /// The bands begin as after silence.
    void clearBands() noexcept;
    /// Starts the smoother of `speed` where the other one stands: at a mean square of the other's
    /// amplitude squared, or at an amplitude of the other's root mean square.
    void start(Speed speed) noexcept;

    /// Levels of n <= kSubBlock key samples. Adaptive: the key is split at 500 Hz and each band has
    /// a follower, the high band's ten times as fast; the sum of both takes the key's place. Auto
    /// gives an amplitude where Timed gives a mean square: judged by the same logarithm of power,
    /// the threshold acts on half the decibels there.
    void run(const double* key, double* level, int n, bool isAdaptive, Speed speed) noexcept;

    /// Both speeds on the same key, for a cross-fade.
    void runBoth(const double* key, double* timed, double* automatic, int n,
                 bool isAdaptive) noexcept;

    /// Peak envelope of the key: rises over 100 samples, falls in 1 s.
    double inputLevel() const noexcept { return s_.input.envelope; }

    /// Coefficients and state, as the loop sees them.
    struct State {
        PeakFollower input;
        double feedForward = 0, feedback = 0;  // of the low-pass, bilinear first order
        double key = 0, low = 0;               // a sample ago
        PeakFollower lowBand, highBand;
        FloorFollower slow;

        double attack = 0, release = 0;          // share of the deviation per sample
        double attackLess = 1, releaseLess = 1;  // 1 - share times kShare
        double envelope = 0, before = 0;         // mean square, and a sample ago
        double drive = 0;
    };
    static constexpr double kLeak = 0.97190696;           // per sample at every rate
    static constexpr double kShare = kLeak * 0.02809304;  // leak (1 - leak)

private:
    State s_;
};

}  // namespace quillworks
