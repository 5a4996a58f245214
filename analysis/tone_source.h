// SPDX-License-Identifier: ISC
// What a tone generator plays before it goes to its channels: one of many signals at a level that
// it never passes, in sub-blocks of 32 frames and in double.
#pragma once

#include <memory>
#include <vector>

#include "analysis/noise_voice.h"
#include "analysis/oscillators.h"
#include "analysis/periodic_signals.h"
#include "analysis/swept_sine.h"
#include "analysis/timed_ramp.h"
#include "framework/handover.h"

namespace quillworks {

enum class Wave {
    Sine,
    Triangle,
    Sawtooth,
    Square,
    Pulse,
    TwoTone,
    Multitone,
    White,
    Pink,
    PeriodicPink,
    LogSweep,
    LinearSweep,
    Impulses,
};

constexpr bool isNoise(Wave w) noexcept
{
    return w == Wave::White || w == Wave::Pink;
}
constexpr bool isSweep(Wave w) noexcept
{
    return w == Wave::LogSweep || w == Wave::LinearSweep;
}
/// Whether it is read from a table that another thread makes.
constexpr bool isPeriodic(Wave w) noexcept
{
    return w == Wave::Multitone || w == Wave::PeriodicPink;
}

struct ToneSettings {
    Wave wave = Wave::Sine;
    double frequency = 1000, frequency2 = 20000;  // Hz
    double level = 0.1;                           // amplitude of a sine
    bool levelIsRms = false;                      // that sine's, else its peak is meant
    double width = 0.25;                          // of the pulse, of a cycle
    double seconds = 10, pause = 1;               // of sweeps
    bool repeats = true;
    bool snaps = false;
    bool isIndependent = false;  // noise differs between channels
    bool runs = true;
};

/// Hz that it sounds at: below what the rate has room for, and with `snaps` on the nearest odd line
/// of a transform of periodicLength() samples.
double usableFrequency(Wave wave, double frequency, double sampleRate, bool snaps) noexcept;

/// The two parts of a Two-tone in this order of frequencies: 4 to 1 (SMPTE RP 120), or alike where
/// the difference is listened to: the higher one less than an octave above the lower.
struct TwoToneParts {
    double first, second;
};
TwoToneParts twoToneParts(double frequency, double frequency2) noexcept;

/// Peak between the samples that a wave can have whatever its frequency, and its RMS.
struct WaveLevels {
    double peak, rms;
};
WaveLevels waveLevels(Wave wave, double width, TwoToneParts parts,
                      const PeriodicSignals* signals) noexcept;

/// The factor for a level, and what became of the level for the sake of 0 dB.
struct ToneGain {
    double gain, bound;  // linear; the bound is that of the peak
    double lowered;      // dB
};
ToneGain toneGain(const WaveLevels& levels, double level, double rmsShare) noexcept;

class ToneSource {
public:
    using Tables = Handover<std::shared_ptr<const PeriodicSignals>>;

    /// Allocates. [main thread]
    void prepare(double sampleRate, int channels);
    void setTables(Tables* tables) noexcept { tables_ = tables; }
    void reset() noexcept;
    /// In force from the next sub-block on.
    void set(const ToneSettings& settings) noexcept;
    /// Begins what has a beginning anew.
    void start() noexcept { isStarted_ = true; }

    /// Works out the next sub-block.
    void next() noexcept;
    /// Whether there is anything but silence in it.
    bool isSounding() const noexcept { return isSounding_; }
    /// Whether what depends on time since the start begins with it.
    bool hasBegun() const noexcept { return hasBegun_; }
    /// Its samples.
    const double* of(int channel) const noexcept
    {
        return rows_.data() + (isIndependent_ ? channel * kSubBlock : 0);
    }

    // For meters; NaN where there is nothing to show.
    double frequency() const noexcept;
    /// Linear, 0 while it does not run.
    double bound() const noexcept { return wanted_.runs ? bound_ : 0; }
    double lowered() const noexcept { return lowered_; }
    double progress() const noexcept;  // of a sweep

private:
    void layTargets() noexcept;
    void beginWave() noexcept;
    void followTables() noexcept;
    void play(Ramp<double> increment, Ramp<double> increment2, Ramp<double> width,
              Ramp<double> part) noexcept;
    void playPeriodic(double* out) noexcept;
    void applyGain(Ramp<double> gain) noexcept;
    WaveLevels levels() const noexcept;

    double rate_ = 48000;
    ToneSettings wanted_;
    Wave wave_ = Wave::Sine;      // that is played
    bool isIndependent_ = false;  // likewise
    bool isFresh_ = true;         // since reset
    bool isDirty_ = true, isStarted_ = false, beginsAnew_ = false, ran_ = false;
    bool isSounding_ = false, hasBegun_ = false;
    double gain_ = 0, bound_ = 0, lowered_ = 0;

    TimedRamp gate_, level_, rmsShare_, width_, part_;
    FrequencyGlide frequency_, frequency2_;
    SineOscillator sine_, sine2_;
    BandlimitedOscillator edges_;
    ImpulseTrain impulses_;
    SweepCycle sweeps_;
    std::vector<NoiseVoice> voices_;
    std::vector<double> rows_;  // of all channels
    Tables* tables_ = nullptr;
    const PeriodicSignals* signals_ = nullptr;  // of this rate, from the tables
    std::size_t place_ = 0;                     // in their period
};

}  // namespace quillworks
