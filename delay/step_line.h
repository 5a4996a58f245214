// SPDX-License-Identifier: ISC
// Delay lines that are read at whole samples and change their times by fades, never by a glide.
#pragma once

#include <span>
#include <vector>

#include "dsp/long_line.h"
#include "dsp/matched_fade.h"

namespace quillworks {

/// Times of echoes in whole samples.
struct StepDelays {
    double sampleRate = 44100;
    double longest = 1;  // s

    /// A time that fits: halved until it does, so that it stays on the beat.
    double fitting(double seconds) const noexcept
    {
        if (!std::isfinite(seconds)) return 0;
        while (std::trunc(longest * sampleRate) < rounded(seconds)) seconds /= 2;
        return seconds;
    }
    /// The fitting time, 1 ms at least.
    int samples(double seconds) const noexcept
    {
        return std::max(least(), static_cast<int>(rounded(fitting(seconds))));
    }
    /// Those of 1 ms, the shortest delay.
    int least() const noexcept { return std::max(1, static_cast<int>(0.001 * sampleRate)); }

private:
    double rounded(double seconds) const noexcept { return std::trunc(seconds * sampleRate + 0.5); }
};

/// The lines of an echo, one per channel, each with the same number of taps.
///
/// Delays are whole samples: nothing is interpolated, so no treble is lost per repeat, and a frozen
/// loop repeats bit by bit. All taps change their times together, by one matched fade at a time:
/// the pitch of an echo never bends. (Fades back to back would bend it just as a moving tape does:
/// the pause between them, which holds it, lets an echo lag at most 0.2 s behind a moving tempo.)
///
/// What is written stays within +-2 and is linear within full scale, so no loop runs away.
template <typename T> class StepLine {
public:
    /// Allocates; may throw std::bad_alloc. Times are the shortest until set; empty and not frozen.
    void prepare(int channels, int taps, const StepDelays& delays);
    /// Empty; times and freeze as last set.
    void reset() noexcept;

    const StepDelays& delays() const noexcept { return delays_; }
    int channels() const noexcept { return line_.channels(); }
    /// Delay of a tap of one channel, or of all, by StepDelays::samples().
    void setTime(int tap, int channel, double seconds) noexcept;
    void setTime(int tap, double seconds) noexcept;
    /// From the next sub-block on, in 20 ms: nothing new comes in, and what is fed back is written
    /// as it was read, with a gain of exactly 1; or back.
    void freeze(bool isOn) noexcept { wantsFreeze_ = isOn; }
    /// The loop repeats unchanged.
    bool isFrozen() const noexcept { return isFreezing_ && frozen_ == fade_.length(); }
    /// Nothing is frozen, nor on its way there or back: unfilter() does nothing.
    bool isLive() const noexcept { return !isFreezing_ && frozen_ == 0; }

    /// Samples of delay in use, and the longest of any tap and channel.
    int delay(int tap, int channel) const noexcept { return now_[at(tap, channel)]; }
    int longest() const noexcept { return *std::max_element(now_.begin(), now_.end()); }

    /// Calls work(GridSlice run, int offset) for pieces of the slice, `offset` frames from its
    /// start, that are no longer than the shortest delay. In each the owner reads every tap that is
    /// heard once, and then writes.
    template <class Work> void inRuns(GridSlice slice, Work&& work) noexcept
    {
        next(slice);
        for (int done = 0; done < slice.frames;) {
            const GridSlice run{std::min(slice.frames - done, shortest_), slice.phase + done};
            work(run, done);
            advance(run.frames);
            done += run.frames;
        }
    }
    /// A tap of all channels over a run.
    void read(int tap, T* const* out, GridSlice run) noexcept;
    /// The same without a copy where there is nothing to mix: out[c] is where the samples lie, in
    /// the line until the next write, or in room[c]. A few behind the run may be read, of no value.
    void look(int tap, const T** out, T* const* room, GridSlice run) noexcept;
    /// `filtered` becomes what was read as far as the loop is frozen.
    void unfilter(T* const* filtered, const T* const* read, int n) const noexcept;
    /// Appends in + gain fed, as far as the loop is frozen `fed` alone. `in` may be anything.
    void write(const T* const* in, const T* const* fed, const T* gain, int n) noexcept;

private:
    std::size_t at(int tap, int channel) const noexcept
    {
        return static_cast<std::size_t>(tap * line_.channels() + channel);
    }
    void next(GridSlice slice) noexcept;
    void advance(int n) noexcept;
    void findShortest() noexcept;
    bool isFreezeMoving() const noexcept { return frozen_ != (isFreezing_ ? fade_.length() : 0); }
    /// Share of the frozen loop at frame i from here; exactly 0 and 1 at its ends.
    T frozenShare(int i) const noexcept;
    void feed(T* to, const T* in, const T* fed, const T* gain, int first, int n) const noexcept;

    StepDelays delays_;
    LongLine<T> line_;
    MatchedFade fade_;
    std::vector<Likeness> likeness_;          // by tap
    std::vector<int> wanted_, coming_, now_;  // delays, tap by tap
    int shortest_ = 1;
    AlignedBuffer<T> rows_;            // a sub-block per channel
    std::vector<const T*> old_, new_;  // the channels that move
    bool wantsFreeze_ = false, isFreezing_ = false;
    int frozen_ = 0;  // frames of the fade into the frozen loop
};

}  // namespace quillworks
