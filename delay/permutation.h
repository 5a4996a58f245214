// SPDX-License-Identifier: ISC
// Who feeds whom: the matrix of a set of delay loops whose echoes change places.
#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <span>

#include "dsp/crossfade.h"

namespace quillworks {

/// A permutation of up to 16 signals. It adds and loses nothing, so the gain of loops through it is
/// their feedback gain alone; a change mixes the old and the new one linearly in 20 ms, and the
/// norm of such a mix is at most 1 too. One change at a time, at the beginning of a sub-block; the
/// latest waits.
class Permutation {
public:
    static constexpr int kMostChannels = 16;

    /// Each signal stays where it is.
    void prepare(int channels, double sampleRate) noexcept
    {
        assert(channels <= kMostChannels);
        channels_ = channels;
        order_.prepare(sampleRate, 0.02);
        Order stay;
        for (int c = 0; c < kMostChannels; ++c) stay[std::size_t(c)] = std::uint8_t(c);
        order_.target(stay);
        order_.snap();
    }
    /// Signal j goes to place to[j]; each place is named once, one for each channel.
    void target(std::span<const int> to) noexcept
    {
        assert(int(to.size()) == channels_);
        Order from{};
        for (int j = 0; j < channels_; ++j) from[std::size_t(to[std::size_t(j)])] = std::uint8_t(j);
        order_.target(from);
    }
    /// Takes the target at once.
    void snap() noexcept { order_.snap(); }

    /// Once per run, before the others: true where a change begins.
    bool next(GridSlice run) noexcept { return order_.next(run); }
    bool isFading() const noexcept { return order_.isFading(); }
    /// The change under way, for those who have to mix something else along with it.
    const Crossfade& fade() const noexcept { return order_.fade(); }

    /// out[c] points to what comes to place c: to a signal of `in` itself or, while a change runs,
    /// to a mix in room[c], which has space for n frames.
    template <typename T>
    void process(const T** out, const T* const* in, T* const* room, int n) const noexcept
    {
        for (int c = 0; c < channels_; ++c) {
            const T* const fresh = in[order_.present()[std::size_t(c)]];
            const T* const old = in[order_.leaving()[std::size_t(c)]];
            out[c] = fresh;
            if (!isFading() || fresh == old) continue;
            vec::copy(room[c], fresh, n);
            fade().mix(room[c], old, n);
            out[c] = room[c];
        }
    }
    /// Once per run, behind the others.
    void advance(int n) noexcept { order_.advance(n); }

private:
    using Order = std::array<std::uint8_t, kMostChannels>;  // for each place the signal it takes

    int channels_ = 0;
    Switch<Order> order_;
};

}  // namespace quillworks
