// SPDX-License-Identifier: ISC
// The loop of the echo effects: lines whose echoes are filtered, change places and come back.
#pragma once

#include "delay/channel_rows.h"
#include "delay/echo_settings.h"
#include "delay/permutation.h"
#include "delay/step_line.h"
#include "dsp/course.h"
#include "dsp/cut_filters.h"

namespace quillworks {

/// A feedback delay network whose matrix is a permutation times the feedback: its norm is the
/// feedback, and neither the cuts nor anything that moves adds gain to it, so the loop never grows;
/// within full scale it is linear. Each line's tap 0 is read, filtered (so the first echo is
/// coloured too), sent to its place and written behind what comes in there.
///
/// Network: Stautner, Puckette, "Designing multi-channel reverberators", Computer Music Journal
/// 1982; Jot, Chaigne, "Digital delay networks for designing artificial reverberators", AES 1991.
template <typename T> class FeedbackNetwork {
public:
    static constexpr int kMostLines = Permutation::kMostChannels;

    /// With `taps` taps for each line; all but the first are the owner's. Allocates; may throw
    /// std::bad_alloc.
    void prepare(int lines, int taps, const StepDelays& delays);
    /// Silence; times, order and settings at their targets.
    void reset() noexcept;
    /// Feedback, cuts and freeze.
    void apply(const EchoSettings& settings, unsigned dirty) noexcept;

    StepLine<T>& lines() noexcept { return lines_; }
    const StepLine<T>& lines() const noexcept { return lines_; }
    Permutation& order() noexcept { return order_; }

    /// A slice: `in` comes into the lines, `echoes` gets the filtered echoes. Before each run is
    /// written listen(GridSlice run, int offset) may read the owner's taps of lines().
    template <class Listen>
    void process(const T* const* in, T* const* echoes, GridSlice slice, Listen&& listen) noexcept
    {
        gains_.follow(feedback_, slice);
        lines_.inRuns(slice, [&](GridSlice run, int offset) {
            listen(run, offset);
            circulate(in, echoes, run, offset);
        });
    }
    void process(const T* const* in, T* const* echoes, GridSlice slice) noexcept
    {
        process(in, echoes, slice, [](GridSlice, int) {});
    }

private:
    void circulate(const T* const* in, T* const* echoes, GridSlice run, int offset) noexcept;

    StepLine<T> lines_;
    CutFilters<T> cuts_;
    Permutation order_;
    Smoothed<T> feedback_;
    Course<T> gains_;
    ChannelRows<T> rows_;  // before the cuts, and on the way to its place
    ChannelList<const T> ins_{}, fed_{};
    ChannelList<T> echoes_{};
};

}  // namespace quillworks
