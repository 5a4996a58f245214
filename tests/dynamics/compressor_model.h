// SPDX-License-Identifier: ISC
// The compressor's law sample by sample, as one would write it on paper: the measure for the fast
// one.
#pragma once

#include <algorithm>
#include <cmath>
#include <deque>
#include <numbers>

#include "tests/support/signals.h"

namespace quillworks::test {

struct CompressorModelSettings {
    double threshold = 0, ratio = 1, knee = 6, gain = 0;
    double attack = 0.015, release = 0.12;  // seconds
    bool adaptive = true, autoSpeed = false, lookAhead = true;
};

/// One detector; mono, or linked with the mean of the channels as key. Side-chain filter off.
class CompressorModel {
public:
    CompressorModel(const CompressorModelSettings& s, double rate)
        : s_(s), rate_(rate), past_(static_cast<std::size_t>(rate * 0.002), 0.0)
    {}
    CompressorModelSettings& settings() { return s_; }
    double reduction() const { return r_; }

    /// Gain for the next key sample.
    double gain(double key)
    {
        double x = key;
        if (s_.adaptive) {
            const double k = std::tan(std::numbers::pi * 500 / rate_);
            low_ = k / (1 + k) * (key + key_) + (1 - k) / (1 + k) * low_;
            key_ = key;
            x = follow(lowEnvelope_, std::abs(low_), 0.004, 0.2) +
                follow(highEnvelope_, std::abs(key - low_), 0.0004, 0.02);
        }
        const double e = s_.autoSpeed ? follow(slow_, std::abs(x), 3, 0.1) : smoothed(x * x);
        return computed(e);
    }

private:
    double coefficient(double seconds) const
    {
        return std::exp(-2 * std::numbers::pi / (rate_ * seconds));
    }
    double follow(double& e, double x, double rise, double fall) const
    {
        const double c = coefficient(e < x ? rise : fall);
        return e = c * (e - x) + x;
    }
    double smoothed(double p)
    {
        constexpr double leak = 0.97190696;
        if (p <= e_)
            down_ += (e_ - p) * (1 - leak);
        else
            up_ += (p - e_) * (1 - leak);
        up_ *= leak;
        down_ *= leak;
        const double d = up_ - down_;
        const double release = s_.autoSpeed ? 20 : s_.release;
        return e_ = std::max(0.0,
                             e_ + d * (d > 0 ? 1 / (rate_ * s_.attack) : 1 - coefficient(release)));
    }
    double computed(double e)
    {
        const double l = 10 * std::log10(e + 1e-8) - s_.threshold, k = s_.knee;
        double g = l < -k ? 0 : l <= k ? (l + k) * (l + k) / (4 * k) : l;
        g *= 1 - 1 / s_.ratio;
        past_.push_back(g);
        const double delayed = past_.front();
        past_.pop_front();
        const double c = s_.autoSpeed ? 0 : coefficient(4 * s_.release);
        if (g > r_) {
            r_ = g;
            latch_ = s_.lookAhead;
        } else if (!s_.lookAhead) {
            r_ = (r_ - g) * c + g;
        } else if (!latch_) {
            r_ = (r_ - delayed) * c + delayed;
        } else {
            latch_ = r_ < delayed;
        }
        return std::pow(10, (s_.gain - r_) * 0.05);
    }

    CompressorModelSettings s_;
    double rate_;
    double key_ = 0, low_ = 0, lowEnvelope_ = 0, highEnvelope_ = 0, slow_ = 0;
    double e_ = 0, up_ = 0, down_ = 0;
    double r_ = 0;
    bool latch_ = false;
    std::deque<double> past_;
};

/// The gain as it is applied behind the look-ahead: changed only at changes of sign and at zeros.
class HeldGainModel {
public:
    explicit HeldGainModel(int delay) : line_(static_cast<std::size_t>(delay), 0.0) {}
    double apply(double x, double gain)
    {
        line_.push_back(x);
        const double s = line_.front();
        line_.pop_front();
        const int sign = s > 0 ? 1 : -1;
        if (sign != sign_ || s == 0) held_ = gain;
        sign_ = sign;
        return s * held_;
    }

private:
    std::deque<double> line_;
    double held_ = 1;
    int sign_ = -1;
};

}  // namespace quillworks::test
