// SPDX-License-Identifier: ISC
// Gives a processed signal the dynamics of the one it was made from.
#pragma once

#include "dsp/course.h"
#include "dsp/follower.h"

namespace quillworks {

/// The wet signal's gain follows the ratio of both powers, as far as the amount says: 1 restores
/// the level of the dry one, by 24 dB at most. The gain of a sub-block runs to what the one before
/// asks for, so the output has the same bits however the signal is divided.
template <typename T> class DynamicsRestorer {
public:
    /// `glideHalfLife` in sub-blocks.
    void prepare(double sampleRate, int channels, double glideHalfLife) noexcept;
    /// Nothing heard yet; the amount at its target.
    void reset() noexcept;
    /// 0 .. 1. At 0 the wet signal stays as it is bit by bit, and nothing is listened to.
    void setAmount(double amount) noexcept { amount_.target(amount); }

    /// A slice of both signals as they come; the wet one is changed in place.
    void process(const T* const* dry, T* const* wet, GridSlice slice) noexcept;
    /// At the end of the open sub-block.
    double gainDb() const noexcept { return gainDb_; }

private:
    void begin() noexcept;

    int channels_ = 1;
    Smoothed<double> amount_;
    bool isOn_ = false;  // in the open sub-block
    SubBlockPower dryPower_, wetPower_;
    PowerFollower dryLevel_, wetLevel_;
    double gainDb_ = 0;
    Course<T> gain_;
};

}  // namespace quillworks
