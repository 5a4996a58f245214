// SPDX-License-Identifier: ISC
// Two-band peak detector: the highs, which change fast, are followed ten times as fast as the lows.
#pragma once

#include <cmath>
#include <numbers>

#include "dsp/follower.h"

namespace quillworks {

/// First-order split at 500 Hz (low-pass in bilinear form, high = input - low), one follower per
/// band; the detector signal is the sum of the envelopes. In double, like the followers.
class AdaptiveDetector {
public:
    static constexpr double kSplit = 500;  // Hz

    void prepare(double sampleRate) noexcept
    {
        const double k =
            std::tan(std::numbers::pi * std::min(kSplit, 0.49 * sampleRate) / sampleRate);
        feedForward_ = k / (1 + k);
        feedback_ = (1 - k) / (1 + k);
        lowBand_.setTimes(sampleRate, 0.004, 0.2);
        highBand_.setTimes(sampleRate, 0.0004, 0.02);
    }
    void reset() noexcept
    {
        input_ = low_ = 0;
        lowBand_.reset();
        highBand_.reset();
    }
    double next(double x) noexcept
    {
        low_ = feedback_ * low_ + feedForward_ * (x + input_);
        input_ = x;
        return lowBand_.next(std::abs(low_)) + highBand_.next(std::abs(x - low_));
    }

private:
    double feedForward_ = 0, feedback_ = 0;
    double input_ = 0, low_ = 0;
    PeakFollower lowBand_, highBand_;
};

}  // namespace quillworks
