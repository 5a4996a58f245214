// SPDX-License-Identifier: ISC
// What comes into the lines of an echo, and how that changes.
#pragma once

#include "delay/channel_rows.h"
#include "dsp/crossfade.h"

namespace quillworks {

/// The signals that enter, by a routing whose changes are mixed linearly in 20 ms; one at a time,
/// the latest waits.
template <typename T, class Routing> class EchoEntry {
public:
    /// Allocates; may throw std::bad_alloc.
    void prepare(int channels, double sampleRate)
    {
        channels_ = channels;
        rows_.prepare(channels);
        leavingRows_.prepare(channels);
        routing_.prepare(sampleRate, 0.02);
    }
    void target(const Routing& routing) noexcept { routing_.target(routing); }
    /// Takes the target at once.
    void snap() noexcept { routing_.snap(); }
    const Switch<Routing>& routing() const noexcept { return routing_; }

    /// Once per slice: a signal for each channel. enter(routing, rows, in) lets in[c] point at what
    /// that routing gives, for which there is room in rows[c].
    template <class Enter> const T* const* next(GridSlice slice, Enter&& enter) noexcept
    {
        routing_.next(slice);
        enter(routing_.present(), rows_, in_);
        if (!routing_.isFading()) return in_.data();
        enter(routing_.leaving(), leavingRows_, leaving_);
        for (int c = 0; c < channels_; ++c) {
            const T*& in = in_[static_cast<std::size_t>(c)];
            const T* const old = leaving_[static_cast<std::size_t>(c)];
            if (in == old) continue;
            if (in != rows_[c]) vec::copy(rows_[c], in, slice.frames);
            routing_.fade().mix(rows_[c], old, slice.frames);
            in = rows_[c];
        }
        return in_.data();
    }
    /// Once per slice, behind whatever else goes by routing().
    void advance(int n) noexcept { routing_.advance(n); }

private:
    int channels_ = 0;
    Switch<Routing> routing_;
    ChannelRows<T> rows_, leavingRows_;
    ChannelList<const T> in_{}, leaving_{};
};

}  // namespace quillworks
