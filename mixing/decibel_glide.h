// SPDX-License-Identifier: ISC
// A gain that moves to its target in equal steps of decibels, as a hand moves a fader.
#pragma once

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"

namespace quillworks {

class DecibelGlide {
public:
    /// A glide takes maxFrames / 16 steps, from 2 to 512.
    void prepare(int maxFrames) noexcept
    {
        stepFactor_ = 1.0 / std::clamp(maxFrames / 16, 2, 512);
        increment_ = (target_ - current_) * stepFactor_;
    }

    /// Linear target gain; 0 and all below the decibel guard are silence.
    void setTarget(double linear) noexcept
    {
        linear_ = linear;
        const double db = std::max(gainToDb(linear), kSilenceDb);
        if (db == target_) return;
        target_ = db;
        isActive_ = target_ != current_;
        increment_ = (target_ - current_) * stepFactor_;
    }
    void snap() noexcept
    {
        current_ = target_;
        isActive_ = false;
    }
    bool isActive() const noexcept { return isActive_; }

    /// Linear gain of the next step of 16 samples; at rest exactly the target.
    double next() noexcept
    {
        if (!isActive_) return linear_;
        if (std::abs(target_ - current_) >= std::abs(increment_)) {
            current_ += increment_;
        } else {
            current_ = target_;
            isActive_ = false;
            return linear_;
        }
        return current_ < kSilenceDb ? kSilence : dbToGain(current_);
    }

private:
    double linear_ = 1;
    double target_ = 0, current_ = 0;  // dB
    double increment_ = 0;             // dB per step
    double stepFactor_ = 0.5;
    bool isActive_ = false;
};

}  // namespace quillworks
