// SPDX-License-Identifier: ISC
// Turns the reductions that a limiter's curve asks for into a smooth gain envelope.
#pragma once

#include "dsp/moving_sum.h"
#include "dsp/sliding_max.h"

namespace quillworks {

/// Looks ahead, so that the reduction of a peak is complete when the peak comes out.
///
/// A body follows the wanted reduction, with attack and release; it holds while anything of about
/// its size has been wanted within the running span, so that the gain does not move within a
/// period of a low tone. What the attack leaves is taken by a dip no longer than the look-ahead.
/// The sum passes two running means that span the look-ahead together (Hamalainen 2002): each
/// value that a sample's mean consists of is at least that sample's due reduction, so the mean is.
class LimitingFollower {
public:
    static constexpr double kLookAhead = 0.0015;  // seconds
    static constexpr double kSpan = 0.025;        // seconds: half a period of 20 Hz
    /// Look-ahead in samples at a rate.
    static int lookAheadAt(double rate) noexcept
    {
        return static_cast<int>(kLookAhead * rate + 0.5);
    }

    static constexpr int kLongest = 256;  // samples of a call

    /// At the follower's own rate. Allocates.
    void prepare(double rate);
    void reset() noexcept;
    void setTimes(double attackSeconds, double releaseSeconds) noexcept;
    /// Whether the body holds for the running span. Off: it falls as soon as the look-ahead allows.
    void setHold(bool holds) noexcept;
    /// Release by programme (after McNally 1984): a fast body for peaks over a slow one for what
    /// lasts, 4 times faster and 2 times slower than the release time.
    void setProgrammeRelease(bool on) noexcept;
    /// Whether what the attack leaves is taken here. Off: it is left to a clipper.
    void setCatches(bool catches) noexcept { catches_ = catches; }

    /// Samples between a wanted reduction and the one that covers it.
    int lookAhead() const noexcept { return lookAhead_; }
    /// Nothing is held, falling or under way: as after reset().
    bool isIdle() const noexcept { return quiet_ >= quietEnough_; }

    /// Asks for the memory of the next n samples.
    void fetchAhead(int n) const noexcept { wanted_.fetchAhead(n); }

    /// Gives out only each `every`-th gain, beginning with that of sample `first` of a call; calls
    /// are then multiples of `every` long. Until called: all.
    void thinOut(int first, int every) noexcept
    {
        first_ = first;
        every_ = every;
    }

    /// From the wanted and the due reductions, in dB and >= 0, to the smooth gain, linear. `due`
    /// may be `wanted` itself. n <= kLongest. `gain` is written in whole vectors, up to 7 more
    /// values. Returns the largest reduction given out, in dB and >= 0.
    double process(const double* wanted, const double* due, double* gain, int n) noexcept;

    /// One-pole towards a goal that stays for a while: the distance to it shrinks by powers of the
    /// coefficient, which lie ready, so that whole vectors can be taken at once. Counted from where
    /// the goal changed, the steps are the same however the signal is divided.
    struct Body {
        static constexpr int kSteps = 64;  // from one rounding of the distance to the next
        struct Pace {
            double powers[kSteps + 1];
            void set(double coefficient) noexcept;
        };
        double value = 0;           // dB
        double goal = 0, away = 0;  // what it moves to, and its distance `steps` samples ago
        int steps = 0;
        Pace attack, release;

        void start(double db) noexcept { value = goal = db, away = 0, steps = 0; }
        void setPaces(double attackCoefficient, double releaseCoefficient) noexcept;
    };

private:
    double rate_ = 44100;
    int lookAhead_ = 0, span_ = 0;
    bool holds_ = true, programme_ = false, catches_ = true;
    double attackSeconds_ = 0.01, releaseSeconds_ = 0.18;
    Body fast_, slow_;    // slow_: programme release only
    double present_ = 0;  // body at the last sample, dB
    SlidingMax wanted_, due_;
    int alike_ = 0;      // samples since `due` was other than `wanted`
    bool lags_ = false;  // due_ has missed samples, all alike
    MovingSum inner_, outer_;
    int first_ = 0, every_ = 1;
    double stepsPerDb_ = 1;            // what the sums count in
    double unit_ = 1;                  // dB per step of the second sum
    int quiet_ = 0, quietEnough_ = 0;  // samples
};

}  // namespace quillworks
