// SPDX-License-Identifier: ISC
// Delay line of variable motor speed: a record and a play head on a moving tape.
#pragma once
#include "delay/gliding_distance.h"
#include "delay/ring_line.h"
#include "delay/sinc_rows.h"
#include "dsp/control_grid.h"
#include "dsp/smoothed.h"

namespace quillworks {

/// The tape passes `speed` tape samples per output sample, so what is on it keeps its length and a
/// change of speed bends the pitch of what is heard. The play head follows the record head at a
/// distance of `length` tape samples. Around that both heads need kHeads output samples and kPlay
/// tape samples: the total delay is kHeads + (length + kPlay) / speed. Both heads are windowed-sinc
/// interpolators with the cut-off that the speed asks for; at speed 1 the way is transparent bit by
/// bit. Measured at 48 kHz: 1 kHz at speed 1.01, THD+N -93 dB; at speeds 0.7 to 1.9 below -86 dB up
/// to 10 kHz; at speed 2 up to 20 kHz, all but the tone below -140 dB.
///
/// A loop through the tape is run in pieces: `play` a piece, work on it, `record` it, as many
/// samples at a time as `run` allows.
class TapeLine {
public:
    static constexpr int kHeads = 20;  // output samples between loop and tape
    static constexpr int kPlay = 18;   // tape samples
    static constexpr int kLatency = kHeads + kPlay;
    static constexpr double kLongest = 8;  // seconds at speed 1
    static constexpr float kSlowest = 0.125f, kFastest = 4;

    /// [main thread]
    void prepare(int channels, double sampleRate, double glideHalfLifeSamples);
    /// Empties the tape; the length takes its target.
    void reset() noexcept;
    /// Distance of the heads in tape samples, 0 or more; it is reached gliding.
    void setLength(int tapeSamples) noexcept { length_.target(tapeSamples); }

    /// A sub-block begins in which the speed, within kSlowest .. kFastest, moves along the ramp.
    void begin(Ramp<float> speed) noexcept;
    /// How many of the `n` samples from `phase` on can be played before they have been recorded: at
    /// least one.
    int run(int phase, int n) const noexcept;
    /// What the play head hears in the n samples from `phase` on.
    void play(int phase, int n, float* const* out) noexcept;
    /// Records the n samples just played.
    void record(const float* const* in, int n) noexcept;

private:
    /// Whether heads and tape samples coincide: reading is copying.
    bool isSteady() const noexcept { return isSteady_; }
    int lead(int phase) const noexcept;
    void move(int phase, int n) noexcept;

    static constexpr int kMaxNew = static_cast<int>(kFastest) * kSubBlock + 8;

    const SincRows* rows_ = nullptr;
    int channels_ = 0;
    RingLine recorded_;  // the last output samples, on their way to the tape
    RingLine tape_;
    GlidingDistance length_;
    double remainder_ = 0;  // of the tape's position, to the nearest tape sample

    // Of the sub-block.
    bool isSteady_ = true;
    float speed_[kSubBlock]{};
    double lengths_[kSubBlock]{};
    const float* recordRows_ = nullptr;
    const float* playRows_ = nullptr;

    // Of the piece played last.
    double recordAt_[kMaxNew]{};  // of the new tape samples: distance back in `recorded_`
    double playAt_[kSubBlock]{};  // distance back on the tape
    int newTape_ = 0, ahead_ = 0;
};

}  // namespace quillworks
