// SPDX-License-Identifier: ISC
// How loud a signal is, as a modulation from 0 to 1, eight frames at a time.
#pragma once

#include <algorithm>
#include <array>

#include "dsp/follower.h"
#include "dsp/vector_math.h"
#include "modulation/frame_groups.h"

namespace quillworks {

/// 1 at full scale and above, 0 from 48 dB below it on, linear in decibels between.
class LevelEnvelope {
public:
    /// Times in seconds, of the pack's followers.
    void setTimes(double sampleRate, double attack, double release) noexcept
    {
        follower_.setTimes(sampleRate, attack, release);
    }
    void reset() noexcept { follower_.reset(); }

    /// Hears the magnitudes of a slice, `sensitivity` dB louder than they are. Groups that begin in
    /// it get their value from what came before them, so that it is known where they begin.
    template <typename T>
    void follow(const T* magnitudes, GridSlice slice, double sensitivity) noexcept
    {
        const auto groups = GroupRange::of(slice);
        double level[kGroups];
        EnvelopeFollower follower = follower_;  // in registers
        int i = 0;
        const auto hear = [&](int end) {
            for (; i < end; ++i) follower.next(double(magnitudes[i]));
        };
        for (int group = groups.first; group < groups.end; ++group) {
            hear(group * kGroup - slice.phase);
            level[group - groups.first] = std::max(follower.envelope, kSilence);
        }
        hear(slice.frames);
        follower_ = follower;
        vec::log10(level, level, groups.count());
        for (int group = groups.first; group < groups.end; ++group) {
            const double db = 20 * level[group - groups.first] + sensitivity;
            at_[static_cast<std::size_t>(group)] = std::clamp(1 + db / 48, 0.0, 1.0);
        }
    }
    /// Over the group 0 .. 3 of the sub-block, once it has begun.
    double at(int group) const noexcept { return at_[static_cast<std::size_t>(group)]; }

private:
    EnvelopeFollower follower_;
    std::array<double, kGroups> at_{};
};

}  // namespace quillworks
