// SPDX-License-Identifier: ISC
// What the level meter measures of one channel: peak, RMS, their holds and runs of clipped samples.
#pragma once
#include <algorithm>
#include <cstdint>

#include "dsp/follower.h"
#include "dsp/power_window.h"

namespace quillworks {

/// Holds a maximum for a time, then falls at once to the next block's peak.
class PeakHold {
public:
    static constexpr std::int64_t kForEver = 0x7FFFFFFE;  // samples

    /// Seconds; below 0: for ever.
    void setTime(double sampleRate, float seconds) noexcept;
    /// The time set before, at another rate.
    void setRate(double sampleRate) noexcept;
    void clear() noexcept { value_ = 0, age_ = 0; }
    /// Takes the peak of a block of n samples.
    void take(float blockPeak, int n) noexcept
    {
        const float start = age_ != 0 ? value_ : 0;
        value_ = std::max(start, blockPeak);
        if (value_ > start)
            age_ = 1;
        else
            age_ = age_ + n < length_ ? age_ + n : 0;
    }
    float value() const noexcept { return value_; }

private:
    float seconds_ = 1;
    std::int64_t length_ = 44100;
    std::int64_t age_ = 0;  // samples since the hold began; 0: not holding
    float value_ = 0;
};

class ChannelMeter {
public:
    static constexpr float kClipThreshold = 0.9999f;  // a 16-bit 32767 counts
    static constexpr float kLongestRms = 1.8f;        // seconds

    /// May throw std::bad_alloc.
    void prepare(double sampleRate);
    void reset() noexcept;
    /// Hold time in seconds, below 0 for ever; clears what is held.
    void setHold(float seconds) noexcept;
    /// Window in seconds. A length beyond kLongestRms leaves the window as it is.
    void setRmsLength(float seconds) noexcept;
    /// Held values and clip runs.
    void resetHolds() noexcept;

    /// A piece of the block: samples of at most 1e6 and their quantised squares. Returns its peak.
    float add(const float* x, const PowerQuanta& squares) noexcept;
    /// The block of n samples is complete.
    void endBlock(int n) noexcept;

    // Linear, a sine's peak for peak and RMS alike.
    float level() const noexcept { return static_cast<float>(follower_.envelope); }
    float levelHold() const noexcept { return levelHold_.value(); }
    float rms() const noexcept { return rmsOf(window_.sum()); }
    float rmsHold() const noexcept { return rmsHold_.value(); }
    /// Longest run of samples over the threshold.
    std::int32_t clipRun() const noexcept { return longestRun_; }

private:
    /// The factor 2 makes a sine read its peak.
    float rmsOf(std::int64_t sum) const noexcept;
    void follow(const float* x, int n) noexcept;
    void countClips(const float* x, int n, float peak) noexcept;

    double sampleRate_ = 44100;
    PeakFollower follower_;
    int reach_ = 0;  // samples that the follower remembers
    std::int32_t run_ = 0, longestRun_ = 0;
    float rmsSeconds_ = 0.6f;
    PowerWindow window_;
    PeakHold levelHold_, rmsHold_;
    float blockPeak_ = 0;
    std::int64_t blockSum_ = 0;
};

}  // namespace quillworks
