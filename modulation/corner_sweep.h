// SPDX-License-Identifier: ISC
// The corner of a swept filter: laid out group by group for both sides.
#pragma once

#include <algorithm>
#include <cmath>

#include "dsp/section.h"
#include "dsp/warped_octaves.h"
#include "modulation/frame_groups.h"
#include "modulation/stereo_lfo.h"

namespace quillworks {

/// Value of a ramp over the sub-block where a group ends.
inline double atEnd(const Ramp<double>& ramp, int group) noexcept
{
    return ramp.from + (ramp.to - ramp.from) * (double(group + 1) / kGroups);
}

class CornerSweep {
public:
    /// Warped frequencies of both sides: before the first group, and where each ends.
    using Corners = double[kGroups + 1][kSides];

    /// Rate that the filter runs at.
    void prepare(double sampleRate) noexcept { sampleRate_ = sampleRate; }
    /// The next group begins where it ends.
    void restart() noexcept { isFresh_ = true; }

    /// For groups that begin: octaves(group, side) tells where a group ends, in octaves above 1 Hz.
    template <class Octaves> const Corners& lay(GroupRange groups, Octaves&& octaves) noexcept
    {
        double place[kGroups * kSides]{}, hertz[kGroups * kSides];
        int n = 0;
        for (int group = groups.first; group < groups.end; ++group)
            for (const Side side : {kLeft, kRight}) place[n++] = octaves(group, side);
        std::copy_n(last_, kSides, corners_[0]);
        warpOctaves(place, hertz, corners_[1], n, sampleRate_);
        if (isFresh_) std::copy_n(corners_[1], kSides, corners_[0]);
        isFresh_ = false;
        std::copy_n(corners_[groups.count()], kSides, last_);
        std::copy_n(hertz + n - kSides, kSides, hertz_);
        return corners_;
    }
    /// Does nothing but stand, in octaves above 1 Hz, for hertz(); what follows begins afresh.
    void stand(double octave) noexcept
    {
        std::fill_n(hertz_, kSides, std::exp2(octave));
        restart();
    }
    /// Where the last group ends, as far as the filter goes.
    float hertz(Side side) const noexcept
    {
        return static_cast<float>(std::min(hertz_[side], kHighestCutOff * sampleRate_));
    }

private:
    double sampleRate_ = 44100;
    Corners corners_{};
    double last_[kSides]{}, hertz_[kSides]{};
    bool isFresh_ = true;
};

}  // namespace quillworks
