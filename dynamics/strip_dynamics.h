// SPDX-License-Identifier: ISC
// The channel strip's gate and compressor, which share one key and multiply their gains.
#pragma once

#include "dsp/course.h"
#include "dsp/crossfade.h"
#include "dynamics/gain_computer.h"
#include "dynamics/gate_gain.h"
#include "dynamics/peak_hold.h"

namespace quillworks {

/// One set for all channels: they are always linked. Each part is faded in and out in 10 ms and
/// does nothing while it is off. Switched on, the compressor starts without reduction; the gate
/// listens for a moment first, and comes in open if the key has reached its threshold by then, else
/// closed.
template <typename T> class StripDynamics {
public:
    static constexpr double kLongestGap = 0.0125;  // seconds: half-waves down to 40 Hz

    /// Allocates.
    void prepare(double sampleRate);
    void reset() noexcept;

    /// Decibels and seconds.
    void setGate(double threshold, double range, double release) noexcept;
    void setCompressor(const CompressionCurve& curve, double attack, double release) noexcept;
    void setSwitches(bool gate, bool compressor) noexcept;
    /// Corner in Hz of the low cut in front, above 0: nothing below keeps detectors waiting.
    void setLowCut(double frequency) noexcept;

    /// Once per call of the core.
    void beginMeters() noexcept
    {
        largestReduction_ = 0;
        lowestGate_ = 1;
    }
    /// Once per slice, before run().
    void next(GridSlice slice) noexcept;
    /// Whether there is anything to do, or to listen to.
    bool isOn() const noexcept { return isListening_ || gateRuns() || compressorRuns(); }
    /// Gains for the magnitudes of a slice. Returns true if they are all the same; then gain[0]
    /// alone is written.
    bool run(const T* magnitude, const Course<T>& makeUp, T* gain, GridSlice slice) noexcept;
    /// Once per slice, behind run().
    void advance(int n) noexcept;

    double largestReduction() const noexcept { return double(largestReduction_); }  // dB, 0 or more
    double lowestGate() const noexcept { return double(lowestGate_); }              // linear

private:
    bool gateRuns() const noexcept { return gateOn_.present() || gateOn_.isFading(); }
    bool compressorRuns() const noexcept
    {
        return compressorOn_.present() || compressorOn_.isFading();
    }
    void setTimes() noexcept;
    bool runGate(const double* key, double peak, T* gain, int n) noexcept;
    bool runCompressor(const double* key, double peak, const Course<T>& makeUp, T* gain,
                       GridSlice slice) noexcept;

    double sampleRate_ = 44100;
    double lowCut_ = 20;  // Hz

    GateGain<T> gate_;
    double gateRelease_ = 0.15;  // seconds
    double opensAt_ = 1;         // linear
    bool wantsGate_ = false;
    Switch<bool> gateOn_;
    bool isListening_ = false, isReached_ = false;
    int listensFor_ = 0;  // sub-blocks

    CompressionCurve curve_;
    double startsAt_ = 1;                    // key below which nothing is asked for, linear
    double attack_ = 0.01, release_ = 0.12;  // seconds
    PeakHold detector_;
    Switch<bool> compressorOn_;

    T largestReduction_ = 0;
    T lowestGate_ = 1;
};

}  // namespace quillworks
