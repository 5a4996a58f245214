// SPDX-License-Identifier: ISC
// Keeps a feedback loop that can grow from growing beyond all bounds.
#pragma once
#include <algorithm>
#include <cmath>

#include "dsp/control_grid.h"
#include "dsp/decibel.h"
#include "dsp/follower.h"

namespace quillworks {

/// Listens to the wet signal while the loop's gain may pass 1 and lowers it while the level is
/// above a threshold, with hysteresis. Not armed it leaves the loop alone.
class FeedbackGuard {
public:
    void prepare(int channels, double sampleRate, double riseHalfLife) noexcept
    {
        channels_ = channels;
        threshold_ = static_cast<float>(gainToDb(double(channels)) - 3);
        fast_.setTimes(sampleRate, 0.0005, 0.1);
        slow_.setTimes(sampleRate, 0.02, 1);
        rise_ = static_cast<float>(halfLifeFactor(riseHalfLife));
    }
    void reset() noexcept
    {
        fast_.reset();
        slow_.reset();
        gain_ = 1;
        isEngaged_ = false;
    }
    /// Largest gain of the loop without the guard, linear.
    void setLoopGain(float gain) noexcept { loopGain_ = gain; }
    bool isArmed(bool boosted) const noexcept { return boosted || loopGain_ > 0.98f; }

    /// A sub-block begins: the gain moves from where it stood to where the level wants it. It falls
    /// within one sub-block and rises slowly.
    Ramp<float> next(bool isArmed) noexcept
    {
        const float before = gain_;
        float wanted = 1;
        if (!isArmed) {
            isEngaged_ = false;
            fast_.reset();
            slow_.reset();
        } else {
            const float level = gainToDb(std::max(fast_.envelope, slow_.envelope));
            if (level > threshold_ + kHysteresis) isEngaged_ = true;
            if (level < threshold_ - kHysteresis) isEngaged_ = false;
            if (isEngaged_)
                wanted = std::min(1.0f, dbToGain(threshold_ - level) / std::max(1.0f, loopGain_));
        }
        gain_ = wanted < gain_ ? wanted : (gain_ - wanted) * rise_ + wanted;
        if (wanted - gain_ < 1e-6f) gain_ = wanted;
        return {before, gain_};
    }

    /// Follows the sum of the channels' magnitudes, so that a pair of opposite phase counts too.
    void listen(const float* const* wet, int n) noexcept
    {
        auto fast = fast_, slow = slow_;  // in registers
        for (int i = 0; i < n; ++i) {
            float x = std::abs(wet[0][i]);
            if (channels_ == 2) x += std::abs(wet[1][i]);
            fast.next(x);
            slow.next(x);
        }
        fast_ = fast;
        slow_ = slow;
    }

private:
    static constexpr float kHysteresis = 1.5f;  // dB

    int channels_ = 0;
    float threshold_ = 0;  // dB
    float rise_ = 0;
    float loopGain_ = 0;
    BasicPeakFollower<float> fast_, slow_;  // linear
    float gain_ = 1;
    bool isEngaged_ = false;
};

}  // namespace quillworks
