// SPDX-License-Identifier: ISC
// Waves whose frequency glides, one sub-block of 32 frames at a time and in double: sines, and
// waves with jumps and corners that are free of aliases.
#pragma once

#include "dsp/control_grid.h"
#include "dsp/sinc_table.h"
#include "dsp/smoothed.h"

namespace quillworks {

/// x[i] cycles become the sine of them, within 1e-11; |x| below 2^50.
void sinesOfCycles(double* x, int n) noexcept;

/// A frequency on its way: glides in octaves, half of the way in 10 ms.
class FrequencyGlide {
public:
    void prepare(double sampleRate) noexcept;
    /// Hz, above 0.
    void target(double frequency) noexcept;
    double target() const noexcept { return frequency_; }
    /// Takes the target at once.
    void snap() noexcept;
    /// Hz at the end of the present sub-block.
    double current() const noexcept { return current_; }
    /// Where a sub-block begins: cycles per sample over it.
    Ramp<double> next() noexcept;

private:
    double rate_ = 48000, frequency_ = 1, current_ = 1;
    Smoothed<double> octaves_;
};

/// Each frame's phase is exact to the rounding of a sum of one number a sub-block, whatever the
/// signal's length.
class SineOscillator {
public:
    void begin() noexcept { phase_ = 0; }
    void next(Ramp<double> increment, double* out) noexcept;

private:
    void layTurns(double increment) noexcept;

    double phase_ = 0;  // cycles
    double turn_ = 0;   // increment that these are for
    double sines_[kSubBlock] = {}, cosines_[kSubBlock] = {};
};

enum class WaveShape {
    Sawtooth,  // rises from -1 to 1
    Pulse,  // +-1 about its mean, which is taken off: 2 - 2d for the width d of a cycle, else -2d
    Triangle,  // +-1
};

/// The plain wave, with each jump and corner replaced by that of a linear-phase low-pass (Brandt,
/// "Hard sync without aliasing", 2001): half a width of 64 samples, Kaiser window of beta 12, cut
/// off at 0.47 of the rate. Harmonics to 0.44 of the rate have the heights of the plain wave's.
///
/// It works 64 samples ahead of what it gives, so that there is no delay. The first sample is a
/// zero on the way up (of the pulse, its rising edge), as of a wave that has always been.
class BandlimitedOscillator {
public:
    /// Makes the tables, once for the process. [main thread]
    void prepare();
    void begin(WaveShape shape, double width, double increment) noexcept;
    /// Increments below 0.5 cycles; `width` 0 .. 1 of a cycle.
    void next(Ramp<double> increment, Ramp<double> width, double* out) noexcept;

private:
    static constexpr int kTaps = 128, kAhead = kTaps / 2;
    static constexpr int kReach = kAhead + kSubBlock + kAhead;  // of a sub-block's work
    static constexpr int kLength = kReach + 16 * kSubBlock;

    struct Tables {
        SincTable<double> step, corner;
    };
    static const Tables& tables();
    void event(const SincTable<double>& table, double height, double before, double* at) noexcept;
    template <WaveShape shape>
    void write(Ramp<double> increment, Ramp<double> width, double* head) noexcept;

    const Tables* tables_ = nullptr;
    WaveShape shape_ = WaveShape::Sawtooth;
    double phase_ = 0;     // cycles, of the sample to be written next
    bool isFirst_ = true;  // before the edge within the cycle
    int at_ = 0;           // of the next output in the line
    double line_[kLength] = {};
};

/// Single samples of 1, the k-th at round(k period) after the first; while the frequency glides, at
/// the sample nearest to where its phase completes a cycle.
class ImpulseTrain {
public:
    void begin() noexcept;
    void next(Ramp<double> increment, double* out) noexcept;

private:
    std::int64_t frame_ = 0;  // of the next output
    double origin_ = 0;       // frame from which periods count
    std::int64_t count_ = 0;  // of the next impulse
    double period_ = 0;       // in force from the origin on; 0: gliding
    double phase_ = 0;        // cycles since the last impulse, while it glides
};

}  // namespace quillworks
