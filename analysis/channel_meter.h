// SPDX-License-Identifier: ISC
// What the level meter measures of one channel: peak, RMS, their holds and runs of clipped samples.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "dsp/follower.h"
#include "dsp/power_window.h"

namespace quillworks {

/// Holds a maximum for a time, then falls at once to the next block's peak.
class HeldPeak {
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

/// The longest run of samples over a threshold.
struct ClipRun {
    static constexpr float kThreshold = 0.9999f;  // a 16-bit 32767 counts

    std::int32_t run = 0, longest = 0;  // the largest that can be told stands for all above it

    /// The next samples, the largest of which is `peak`.
    void add(const float* x, int n, float peak) noexcept
    {
        if (!(peak > kThreshold)) {
            run = 0;
            return;
        }
        for (int i = 0; i < n; ++i) {
            const bool grows = run < std::numeric_limits<std::int32_t>::max();
            run = std::abs(x[i]) > kThreshold ? run + int(grows) : 0;
            longest = std::max(longest, run);
        }
    }
};

class ChannelMeter {
public:
    static constexpr float kDefaultRms = 0.6f;  // seconds
    static constexpr float kUsualRms = 1.8f;    // seconds that there is always room for

    /// May throw std::bad_alloc.
    void prepare(double sampleRate);
    void reset() noexcept;
    /// Hold time in seconds, below 0 for ever; clears what is held.
    void setHold(float seconds) noexcept;
    /// Window in seconds. Where there is no room for it, the window stays as it is.
    void setRmsLength(float seconds) noexcept;
    /// Samples of a window, or 0 if they cannot be counted.
    static int rmsSamples(double sampleRate, float seconds) noexcept;
    /// Takes other room, all zeros, for its own. The length has to be set after it.
    void exchangeRoom(AlignedBuffer<std::int64_t>& ring) noexcept { window_.exchangeRoom(ring); }
    /// Held values and clip runs.
    void resetHolds() noexcept;

    /// Asks for the memory of the next n samples.
    void fetchAhead(int n) const noexcept { window_.fetchAhead(n); }
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
    std::int32_t clipRun() const noexcept { return clips_.longest; }

private:
    /// The factor 2 makes a sine read its peak.
    float rmsOf(std::int64_t sum) const noexcept;
    void follow(const float* x, int n) noexcept;

    double sampleRate_ = 44100;
    PeakFollower follower_;
    int reach_ = 0;  // samples that the follower remembers
    ClipRun clips_;
    float rmsSeconds_ = kDefaultRms;
    PowerWindow window_;
    HeldPeak levelHold_, rmsHold_;
    float blockPeak_ = 0;
    std::int64_t blockSum_ = 0;
};

}  // namespace quillworks
