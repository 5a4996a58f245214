// SPDX-License-Identifier: ISC
// The limiter behind its sample type: doubles, relative to the ceiling.
#pragma once

#include <algorithm>
#include <tuple>
#include <vector>

#include "dsp/circular_delay.h"
#include "dsp/clip_shapes.h"
#include "dsp/control_grid.h"
#include "dsp/recent_samples.h"
#include "dsp/smoothed.h"
#include "dynamics/limiter_samples.h"
#include "dynamics/limiting_curve.h"
#include "dynamics/limiting_follower.h"
#include "dynamics/true_peak_level.h"

namespace quillworks {

/// Latency in samples at a rate.
int limiterLatency(double sampleRate, bool truePeak) noexcept;

/// One gain for all channels. For each slice of a block: begin(), take() for each channel,
/// findGain(), put() for each channel.
class LimiterEngine {
    static constexpr int kLongest = 256;  // frames of a slice
    static constexpr int kStride = TruePeakLevel::kMaxFrames;
    static constexpr int kRowsRoom = 2048;  // samples; slices of many channels are shorter
    static constexpr int kMost = TruePeakLevel::kPhases * kStride;  // levels of a slice

public:
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

    /// What a slice works on, in a place that the caller has for its time.
    struct Scratch {
        alignas(64) double gain[kLongest + TruePeakLevel::kPadding];
        alignas(64) double levels[kMost + TruePeakLevel::kPadding];
        alignas(64) double wanted[kMost + TruePeakLevel::kPadding];
        alignas(64) double due[kMost + TruePeakLevel::kPadding];
        alignas(64) double clipped[kLongest];
        alignas(64) double delayed[kLongest];    // of one channel
        alignas(64) double channels[kRowsRoom];  // what has come in, relative to the ceiling
    };

    /// Starts a slice at `slice.phase` of the control grid and returns its length, at most
    /// `slice.frames`: the grid is kept while anything glides, and otherwise longer slices save
    /// their overhead. The scratch serves until the slice is put out.
    int begin(GridSlice slice, Scratch& scratch) noexcept;
    /// Takes the slice of a channel in, the channels in their order.
    template <typename T> void take(int channel, const T* x) noexcept
    {
        const double most = wayThrough<T>(isSteady_).takeIn(
            x, inputGain_ + phase_, row(channel), scratch_->levels, channel == 0, frames_);
        peak_ = std::max(peak_, most);
        if (truePeak_) std::copy_n(row(channel), frames_, detectorPast(channel).append(frames_));
    }
    void findGain() noexcept;
    /// Puts out the delayed and limited slice of a channel.
    template <typename T> void put(int channel, T* x) noexcept
    {
        const double* v = delay(channel);
        if (clips_) v = clip(v);
        const double* const gain = isLimiting_ && !clips_ ? scratch_->gain : nullptr;
        const T* const limit = std::get<Limits<T>>(limits_).values + phase_;
        wayThrough<T>(isSteady_).putOut(v, gain, outputGain_ + phase_, limit, x, frames_);
    }

    /// Largest reduction in dB since the last call.
    double takeReduction() noexcept;

private:
    template <typename T> struct Limits {  // the largest values not above the working ceiling
        alignas(64) T values[kLongest];
    };
    struct Wall {  // clips what is above `low`
        double low = 1;
        ClipCurve<double> curve;
    };

    LimitingFollower& follower() noexcept { return truePeak_ ? fastFollower_ : plainFollower_; }
    bool isGliding() const noexcept
    {
        return inputGainGlide_.isGliding() || ceilingGlide_.isGliding();
    }
    void fillGains() noexcept;
    void curveChanged() noexcept;
    void clipStageChanged() noexcept;
    void forgetPast() noexcept;
    bool findTruePeakLevels() noexcept;
    double follow(bool isLoud) noexcept;
    double* row(int channel) noexcept { return scratch_->channels + channel * rowLength_; }
    RecentSamples<double>& detectorPast(int channel) noexcept
    {
        return detectorPast_[static_cast<std::size_t>(channel)];
    }
    const double* delay(int channel) noexcept;
    const double* clip(const double* x) noexcept;
    int channels() const noexcept { return static_cast<int>(delays_.size()); }

    double rate_ = 44100;
    bool truePeak_ = false, wall_ = false;
    Smoothed<double> inputGainGlide_, ceilingGlide_;
    LimitingCurve curve_;
    LimitingFollower plainFollower_, fastFollower_;  // at the signal's rate, at four times that
    TruePeakLevel truePeakLevel_;
    std::vector<CircularDelay<double>> delays_;        // of the channels
    std::vector<RecentSamples<double>> detectorPast_;  // true peak only
    int rowLength_ = kLongest;                         // of a channel in the scratch
    int sinceLoud_ = 0;  // samples since one was near the threshold, true peak only
    bool clips_ = false;
    Wall clipStage_;

    int phase_ = 0, frames_ = 0;  // of the slice; where it begins in the gains
    bool isSteady_ = false;       // the gains are constant
    double peak_ = 0;             // of the slice's normalised input
    bool isLimiting_ = false;     // the gain is not 1 throughout
    double reduction_ = 0;        // dB, largest since takeReduction()
    alignas(64) double inputGain_[kLongest], outputGain_[kLongest];
    std::tuple<Limits<float>, Limits<double>> limits_;
    Scratch* scratch_ = nullptr;  // during a slice
};

}  // namespace quillworks
