// SPDX-License-Identifier: ISC
#include "analysis/channel_meter.h"

#include <cmath>

#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kRise = 0.001, kFall = 0.001;  // seconds

int windowLength(double sampleRate, float seconds)
{
    return static_cast<int>(static_cast<float>(sampleRate) * seconds + 0.5f);
}

}  // namespace

void PeakHold::setTime(double sampleRate, float seconds) noexcept
{
    seconds_ = seconds >= 0 ? seconds : static_cast<float>(2147483648.0 / sampleRate);
    setRate(sampleRate);
    if (!(seconds >= 0)) length_ = kForEver;
    clear();
}

void PeakHold::setRate(double sampleRate) noexcept
{
    const double samples = std::min(sampleRate * double(seconds_) + 0.5, double(kForEver));
    length_ = static_cast<std::int64_t>(samples);
}

void ChannelMeter::prepare(double sampleRate)
{
    sampleRate_ = sampleRate;
    follower_.setTimes(sampleRate, kRise, kFall);
    // What lies further back has faded by 420 dB: from the largest sample to below any reading.
    const double slowest = std::max(followerCoefficient(sampleRate, kFall), 1e-3);
    reach_ = static_cast<int>(std::min(std::ceil(std::log(1e-21) / std::log(slowest)), 1e9));
    window_.reserve(windowLength(sampleRate, kLongestRms));
    window_.setLength(windowLength(sampleRate, rmsSeconds_));
    levelHold_.setRate(sampleRate);
    rmsHold_.setRate(sampleRate);
    reset();
}

void ChannelMeter::reset() noexcept
{
    follower_.reset();
    window_.clear();
    blockPeak_ = 0;
    blockSum_ = 0;
    resetHolds();
}

void ChannelMeter::setHold(float seconds) noexcept
{
    levelHold_.setTime(sampleRate_, seconds);
    rmsHold_.setTime(sampleRate_, seconds);
}

void ChannelMeter::setRmsLength(float seconds) noexcept
{
    if (!(seconds >= 0 && seconds <= kLongestRms)) return;
    rmsSeconds_ = seconds;
    const int length = windowLength(sampleRate_, seconds);
    if (length != window_.length()) window_.setLength(length);
}

void ChannelMeter::resetHolds() noexcept
{
    levelHold_.clear();
    rmsHold_.clear();
    run_ = longestRun_ = 0;
}

float ChannelMeter::add(const float* x, const PowerQuanta& squares) noexcept
{
    const float peak = vec::peak(x, squares.n);
    blockPeak_ = std::max(blockPeak_, peak);
    countClips(x, squares.n, peak);
    follow(x, squares.n);
    // Of the RMS after each sample the hold needs the largest, and the root is monotonic.
    blockSum_ = std::max(blockSum_, window_.addTracking(squares));
    return peak;
}

void ChannelMeter::endBlock(int n) noexcept
{
    levelHold_.take(blockPeak_, n);
    rmsHold_.take(rmsOf(blockSum_), n);
    blockPeak_ = 0;
    blockSum_ = 0;
}

float ChannelMeter::rmsOf(std::int64_t sum) const noexcept
{
    return static_cast<float>(
        std::sqrt(static_cast<double>(sum) * (2 / PowerQuanta::kPerUnit / window_.length())));
}

void ChannelMeter::follow(const float* x, int n) noexcept
{
    PeakFollower follower = follower_;  // in registers
    for (int i = std::max(0, n - reach_); i < n; ++i) follower.next(std::abs(double(x[i])));
    follower_ = follower;
}

void ChannelMeter::countClips(const float* x, int n, float peak) noexcept
{
    if (!(peak > kClipThreshold)) {
        run_ = 0;
        return;
    }
    for (int i = 0; i < n; ++i) {
        run_ = std::abs(x[i]) > kClipThreshold ? run_ + 1 : 0;
        longestRun_ = std::max(longestRun_, run_);
    }
}

}  // namespace quillworks
