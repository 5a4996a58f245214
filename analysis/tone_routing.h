// SPDX-License-Identifier: ISC
// To which of its channels a tone generator plays, and when.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "analysis/timed_ramp.h"

namespace quillworks {

/// Settings of a list: 0 is all channels, 1 to 16 one of them, then these.
inline constexpr int kOneChannel = 1, kWalk = 17, kLineUpIdent = 18;
inline constexpr double kStayOfWalk = 1;  // seconds in each channel

/// Gains of the channels, with ramps of 10 ms.
///
/// Walk: each channel for a second, in turn. Line-up ident: all channels, the first of them silent
/// for 0.25 s every 3 s, as broadcasters tell left from right.
class ToneRouting {
public:
    /// Allocates. [main thread]
    void prepare(double sampleRate, int channels)
    {
        rate_ = sampleRate;
        channels_.resize(static_cast<std::size_t>(channels));
        for (auto& c : channels_) c.ramp.prepare(sampleRate, 0.01);
    }
    void set(int mode, bool invertsEven) noexcept
    {
        mode_ = mode;
        invertsEven_ = invertsEven;
        isDirty_ = true;
    }
    /// Walk and ident begin anew.
    void begin() noexcept
    {
        frame_ = 0;
        isDirty_ = true;
    }
    /// The next sub-block; `snaps`: without ramps.
    void next(bool snaps) noexcept
    {
        if (isDirty_ || isTimed()) {
            for (int c = 0; c < count(); ++c) at(c).ramp.target(target(c));
            isMoving_ = true;
            isDirty_ = false;
        }
        if (isMoving_) {
            isMoving_ = false;
            for (auto& c : channels_) {
                if (snaps) c.ramp.snap();
                c.gain = c.ramp.next();
                isMoving_ |= !c.gain.isConstant();
            }
        }
        frame_ += kSubBlock;
    }
    /// Over the present sub-block.
    Ramp<double> gain(int channel) const noexcept
    {
        return channels_[static_cast<std::size_t>(channel)].gain;
    }
    /// Of the round of the walk, 0 .. 1.
    double progress() const noexcept
    {
        const double round = count() * kStayOfWalk;
        return std::fmod(seconds(), round) / round;
    }
    bool isWalk() const noexcept { return mode_ == kWalk; }

private:
    struct Channel {
        TimedRamp ramp;
        Ramp<double> gain{0, 0};
    };

    Channel& at(int c) noexcept { return channels_[static_cast<std::size_t>(c)]; }
    int count() const noexcept { return static_cast<int>(channels_.size()); }
    bool isTimed() const noexcept { return mode_ == kWalk || mode_ == kLineUpIdent; }
    double seconds() const noexcept { return static_cast<double>(frame_) / rate_; }
    double target(int c) const noexcept
    {
        const double sign = invertsEven_ && c % 2 == 1 ? -1 : 1;
        return isPlaying(c) ? sign : 0;
    }
    bool isPlaying(int c) const noexcept
    {
        if (mode_ == kWalk)
            return c == static_cast<int>(std::fmod(seconds() / kStayOfWalk, double(count())));
        if (mode_ == kLineUpIdent) return c > 0 || seconds() < 3 || std::fmod(seconds(), 3) >= 0.25;
        return mode_ == 0 || c == mode_ - kOneChannel;
    }

    double rate_ = 48000;
    int mode_ = 0;
    bool invertsEven_ = false, isDirty_ = true, isMoving_ = true;
    std::int64_t frame_ = 0;  // of the next sub-block, since the beginning
    std::vector<Channel> channels_;
};

}  // namespace quillworks
