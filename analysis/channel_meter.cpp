// SPDX-License-Identifier: ISC
#include "analysis/channel_meter.h"

#include <cmath>

#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kRise = 0.001, kFall = 0.001;  // seconds

}  // namespace

void HeldPeak::setTime(double sampleRate, float seconds) noexcept
{
    seconds_ = seconds >= 0 ? seconds : static_cast<float>(2147483648.0 / sampleRate);
    setRate(sampleRate);
    if (!(seconds >= 0)) length_ = kForEver;
    clear();
}

void HeldPeak::setRate(double sampleRate) noexcept
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
    window_.reserve(rmsSamples(sampleRate, kUsualRms));
    if (!window_.setLength(rmsSamples(sampleRate, rmsSeconds_)))
        window_.setLength(rmsSamples(sampleRate, rmsSeconds_ = kDefaultRms));
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

int ChannelMeter::rmsSamples(double sampleRate, float seconds) noexcept
{
    const float samples = static_cast<float>(sampleRate) * seconds + 0.5f;
    return samples >= 1 && samples < 2147483648.0f ? static_cast<int>(samples) : 0;
}

void ChannelMeter::setRmsLength(float seconds) noexcept
{
    const int length = std::max(1, rmsSamples(sampleRate_, seconds));
    if (!(seconds >= 0) || (length == 1 && seconds > kUsualRms)) return;
    if (length == window_.length() || window_.setLength(length)) rmsSeconds_ = seconds;
}

void ChannelMeter::resetHolds() noexcept
{
    levelHold_.clear();
    rmsHold_.clear();
    clips_ = {};
}

float ChannelMeter::add(const float* x, const PowerQuanta& squares) noexcept
{
    const float peak = vec::peak(x, squares.n);
    blockPeak_ = std::max(blockPeak_, peak);
    clips_.add(x, squares.n, peak);
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

}  // namespace quillworks
