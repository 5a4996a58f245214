// SPDX-License-Identifier: ISC
// Changes without a click: a cross-fade between two runs, and a dip around a change that has none.
#pragma once

#include <algorithm>

#include "dsp/control_grid.h"
#include "dsp/vec.h"

namespace quillworks {

/// Frames of a fade: trunc(seconds fs + 0.5), at least 1.
inline int fadeFrames(double sampleRate, double seconds) noexcept
{
    return std::max(1, static_cast<int>(seconds * sampleRate + 0.5));
}

/// Linear fade from an old signal to a new one. The weight of the new one is (k + 1)/length at
/// frame k of the fade, counted from its start and not from a call, so that the division into calls
/// does not matter; the last frame has weight 1.
class Crossfade {
public:
    void prepare(double sampleRate, double seconds) noexcept
    {
        length_ = fadeFrames(sampleRate, seconds);
        finish();
    }
    /// Begins a fade at its first frame, even if one runs: see Switch for one that waits.
    void start() noexcept { position_ = 0; }
    /// Only the new signal counts.
    void finish() noexcept { position_ = length_; }
    bool isRunning() const noexcept { return position_ < length_; }
    int length() const noexcept { return length_; }

    /// Weights of the new signal over the next n frames, 1 once the fade is over. Those of the old
    /// one are 1 - w.
    template <typename T> void weights(T* w, int n) const noexcept
    {
        const T share = T(1) / T(length_);
        const int fading = std::min(n, left());
        for (int i = 0; i < fading; ++i) w[i] = T(position_ + i + 1) * share;
        if (fading > 0 && fading == left()) w[fading - 1] = 1;
        for (int i = std::max(0, fading); i < n; ++i) w[i] = 1;
    }
    /// `fresh` becomes old + (fresh - old) w over the next n frames, for one channel; advance()
    /// follows when all are done. Signals that are equal stay as they are, and with weight 1
    /// `fresh` stays as it is, bit by bit.
    template <typename T> void mix(T* fresh, const T* old, int n) const noexcept
    {
        const T share = T(1) / T(length_);
        const int fading = std::min(n, left() - 1);  // its last frame is the new signal's
        for (int i = 0; i < fading; ++i)
            fresh[i] = old[i] + (fresh[i] - old[i]) * (T(position_ + i + 1) * share);
    }
    void advance(int n) noexcept { position_ += std::min(n, left()); }

private:
    int left() const noexcept { return length_ - position_; }

    int length_ = 1, position_ = 1;  // frames
};

/// A list or toggle whose changes are cross-faded: one at a time, the latest waits. While it fades
/// the owner runs both what `leaving()` and what `present()` stand for, and mixes them.
///
/// Changes begin where a sub-block begins, so that a waiting one does not depend on the calls.
template <class Value> class Switch {
public:
    void prepare(double sampleRate, double seconds) noexcept { fade_.prepare(sampleRate, seconds); }
    void target(Value value) noexcept { wanted_ = value; }
    /// Takes the target at once.
    void snap() noexcept
    {
        present_ = leaving_ = wanted_;
        fade_.finish();
    }
    /// Once per slice, before the run. True where a fade begins: present() is new, and what runs it
    /// has to start afresh or take over the state of what is being left.
    bool next(GridSlice slice) noexcept
    {
        if (!slice.begins() || fade_.isRunning() || present_ == wanted_) return false;
        leaving_ = present_;
        present_ = wanted_;
        fade_.start();
        return true;
    }
    Value present() const noexcept { return present_; }
    Value leaving() const noexcept { return leaving_; }
    bool isFading() const noexcept { return fade_.isRunning(); }
    const Crossfade& fade() const noexcept { return fade_; }
    /// Once per slice, behind the run.
    void advance(int n) noexcept { fade_.advance(n); }

private:
    Value wanted_{}, present_{}, leaving_{};
    Crossfade fade_;
};

/// A change that cannot be cross-faded (another latency, cleared lines): the signal fades out, the
/// change is made in silence, and the signal fades in when the lines have filled.
///
///     if (dip.next(slice)) { makeTheChange(); dip.wait(framesUntilTheLinesAreFull); }
///     process(...);                              // all the while
///     for (each channel) dip.apply(x, slice.frames);
///     dip.advance(slice.frames);
class Dip {
public:
    /// Time of each of the two fades in seconds.
    void prepare(double sampleRate, double seconds = 0.005) noexcept
    {
        length_ = fadeFrames(sampleRate, seconds);
        reset();
    }
    /// Full level, nothing asked for.
    void reset() noexcept
    {
        position_ = length_;
        wait_ = 0;
        isAsked_ = isOut_ = false;
    }
    /// Asks for the change. Further requests before it is made are one with the first; later ones
    /// turn the fade round and have it made again.
    void request() noexcept { isAsked_ = true; }
    bool isRunning() const noexcept { return isAsked_ || wait_ > 0 || position_ < length_; }

    /// Once per slice, before the run. True where the change is due: a sub-block begins in silence.
    bool next(GridSlice slice) noexcept
    {
        if (!isAsked_ || !slice.begins()) return false;
        isOut_ = true;
        if (position_ > 0) return false;
        isAsked_ = isOut_ = false;
        wait_ = 0;
        return true;
    }
    /// Silence of this many frames before the signal fades in again. Right after next() was true.
    void wait(int frames) noexcept { wait_ = std::max(0, frames); }

    /// The gain over the next n frames, for one channel.
    template <typename T> void apply(T* x, int n) const noexcept
    {
        if (!isOut_ && wait_ == 0 && position_ == length_) return;
        const T share = T(1) / T(length_);
        if (isOut_) {
            for (int i = 0; i < n; ++i) x[i] *= T(std::max(0, position_ - 1 - i)) * share;
            return;
        }
        const int silent = std::min(n, wait_);
        vec::clear(x, silent);
        const int fading = std::min(n, wait_ + length_ - position_ - 1);  // the last has gain 1
        for (int i = silent; i < fading; ++i) x[i] *= T(position_ + 1 + i - wait_) * share;
    }
    void advance(int n) noexcept
    {
        if (isOut_) {
            position_ = std::max(0, position_ - n);
            return;
        }
        const int silent = std::min(n, wait_);
        wait_ -= silent;
        position_ = std::min(length_, position_ + n - silent);
    }

private:
    int length_ = 1, position_ = 1;  // frames of a fade, and frames faded in
    int wait_ = 0;                   // frames of silence left
    bool isAsked_ = false, isOut_ = false;
};

}  // namespace quillworks
