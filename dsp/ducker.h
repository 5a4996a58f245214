// SPDX-License-Identifier: ISC
// Lowers echoes and reverberation while the voice that they answer sounds.
#pragma once

#include "dsp/course.h"
#include "dsp/follower.h"

namespace quillworks {

/// Ducking without a threshold: the gain is 10^(-depth x/20) with x = E/(E + 0.1 max(V, W)), where
/// E follows the power of the dry signal, W that of the wet one, and V, slow to fall, how loud the
/// voice was of late. Only ratios of powers count, so the depth is the same at every level. V
/// stands in for echoes still to come: with W alone, which is 0 before the first echo, x would stay
/// near 1 behind a word, and the onset of its echo would be cut off.
///
/// The gain ramps over each sub-block to what the sub-block before it asks for, so it has the same
/// bits at every division into calls. Followers as in Giannoulis, Massberg, Reiss, "Digital dynamic
/// range compressor design", JAES 2012.
template <typename T> class Ducker {
public:
    /// Half-life in sub-blocks of the glide of the depth.
    void prepare(double sampleRate, double depthHalfLife) noexcept;
    /// Nothing heard yet; the depth at its target.
    void reset() noexcept;
    /// Largest reduction in dB, 0 or more. At 0 the wet signal stays as it is bit by bit, and
    /// nothing is listened to.
    void setDepth(double decibels) noexcept { depth_.target(decibels); }
    /// In seconds: a duck by 12 dB is 90 % back a little later than this.
    void setRecovery(double seconds) noexcept;

    /// A slice of both signals as they come; the wet one is ducked in place.
    void process(const T* const* dry, int dryChannels, T* const* wet, int wetChannels,
                 GridSlice slice) noexcept;
    /// Gain in dB at the end of the open sub-block, 0 or less.
    double gainDb() const noexcept { return gainDb_; }

private:
    void begin() noexcept;
    void forget() noexcept;

    double sampleRate_ = 44100;
    Smoothed<double> depth_;  // dB
    bool isOn_ = false;       // in the open sub-block
    SubBlockPower dryPower_, wetPower_;
    PowerFollower voice_, recent_, echo_;  // E, V, W
    double gainDb_ = 0;
    Course<T> gain_;
};

}  // namespace quillworks
