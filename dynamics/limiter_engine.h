// SPDX-License-Identifier: ISC
// The limiter behind its sample type: doubles, relative to the ceiling.
#pragma once

#include <vector>

#include "dsp/clip_shapes.h"
#include "dsp/control_grid.h"
#include "dsp/recent_samples.h"
#include "dsp/smoothed.h"
#include "dynamics/limiting_curve.h"
#include "dynamics/limiting_follower.h"
#include "dynamics/true_peak_level.h"

namespace quillworks {

/// Latency in samples at a rate.
int limiterLatency(double sampleRate, bool truePeak) noexcept;

/// One gain for all channels. Per piece of a sub-block: begin(), input() filled for each channel,
/// findGain(), shape() for each channel.
class LimiterEngine {
public:
    static constexpr double kLoudest = 1000;  // magnitude that samples are limited to

    /// Allocates.
    void prepare(double sampleRate, int channels);
    void reset() noexcept;

    void setGains(double inputGain, double ceilingDb) noexcept;
    void setCurve(double thresholdDb, double ratio) noexcept;
    void setTimes(double attackSeconds, double releaseSeconds) noexcept;
    void setHold(bool holds) noexcept;
    void setProgrammeRelease(bool on) noexcept;
    /// Peaks that the attack lets through are clipped softly. Not together with true peak.
    void setWall(bool on) noexcept;
    /// A change starts the follower of the other rate afresh. Does not allocate.
    void setTruePeak(bool on) noexcept;

    void begin(GridSlice slice) noexcept;
    /// Factors of the slice's samples: input to the normalised signal, and back. The ceiling is
    /// the linear working ceiling that the output may not pass.
    const double* inputGain() const noexcept { return inputGain_ + phase_; }
    const double* outputGain() const noexcept { return outputGain_ + phase_; }
    const double* ceiling() const noexcept { return ceiling_ + phase_; }
    /// Where the slice's normalised samples of a channel go.
    double* input(int channel) noexcept;
    void findGain() noexcept;
    /// Takes the delayed samples of a channel into `out`, limited but for rounding.
    void shape(int channel, double* out) const noexcept;
    /// Nothing to be done to the slice beyond delaying it.
    bool isTransparent() const noexcept { return !isLimiting_ && !clips_; }

    /// Largest reduction in dB since the last call.
    double takeReduction() noexcept;

private:
    struct Wall {  // clips what is above `low`
        double low = 1;
        ClipCurve<double> curve;
    };
    static constexpr int kMost = TruePeakLevel::kPhases * kSubBlock;

    LimitingFollower& follower() noexcept { return truePeak_ ? fastFollower_ : plainFollower_; }
    void fillGains() noexcept;
    void curveChanged() noexcept;
    void clipStageChanged() noexcept;
    bool findLevels() noexcept;
    bool findTruePeakLevels() noexcept;
    int channels() const noexcept { return static_cast<int>(past_.size()); }

    double rate_ = 44100;
    int latency_ = 0;
    bool truePeak_ = false, wall_ = false;
    Smoothed<double> inputGainGlide_, ceilingGlide_;
    LimitingCurve curve_;
    LimitingFollower plainFollower_, fastFollower_;  // at the signal's rate, at four times that
    TruePeakLevel truePeakLevel_;
    std::vector<RecentSamples<double>> past_;
    int sinceLoud_ = 0;  // samples since one was near the threshold, true peak only
    bool clips_ = false;
    Wall clipStage_;

    int phase_ = 0, frames_ = 0;  // of the slice
    bool isLimiting_ = false;     // gain_ is not 1 throughout
    double reduction_ = 0;        // dB, largest since takeReduction()
    alignas(64) double inputGain_[kSubBlock], outputGain_[kSubBlock], ceiling_[kSubBlock];
    alignas(64) double gain_[kSubBlock];
    alignas(64) double levels_[kMost + TruePeakLevel::kPadding];
    alignas(64) double wanted_[kMost + TruePeakLevel::kPadding];
    alignas(64) double due_[kMost + TruePeakLevel::kPadding];
    alignas(64) double serial_[2][kMost];
    alignas(64) double smooth_[kMost];
};

}  // namespace quillworks
