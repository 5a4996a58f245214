// SPDX-License-Identifier: ISC
// Long rings of samples for delays, read in runs.
#pragma once

#include <algorithm>
#include <cstddef>

#include "dsp/aligned_buffer.h"
#include "dsp/vec.h"

namespace quillworks {

/// Rings of one length for several channels. Distances count back from the newest sample, which has
/// distance 0. What lies before the last `clear` reads as 0: clearing is immediate however long the
/// line, and memory that has never been written is not touched, so that it costs nothing yet.
template <typename T> class LongLine {
public:
    /// Samples from any place on that lie in one piece: a sub-block with the taps around it.
    static constexpr int kMirror = 64;

    /// For distances below `capacity`, which is kMirror or more. Allocates; throws std::bad_alloc.
    /// Empty afterwards.
    void prepare(int channels, int capacity);
    void clear() noexcept { valid_ = 0; }

    int channels() const noexcept { return channels_; }
    int capacity() const noexcept { return capacity_; }
    /// Samples written since the last clear, at most the capacity.
    int valid() const noexcept { return valid_; }

    /// Appends n <= capacity samples to each channel.
    void write(const T* const* in, int n) noexcept
    {
        for (int c = 0; c < channels_; ++c) put(c, in[c], n);
        advance(n);
    }
    /// The same in two steps, for those who work channel by channel: the new samples of each
    /// channel, of which nothing is read yet, and then all of them as the newest.
    void put(int channel, const T* in, int n) noexcept { put(channel, in, n, vec::copy<T>); }
    void advance(int n) noexcept;
    /// What is put passes through copy(to, from, count), which may limit it.
    template <class Copy> void put(int channel, const T* in, int n, Copy copy) noexcept;

    /// n samples from `distance` on, toward the newest; distance >= n - 1.
    void copy(int channel, T* out, int distance, int n) const noexcept;
    /// The sample at `distance`, and behind it up to kMirror - 1 newer ones, for those who read no
    /// further than the newest and, by valid(), no sample that is none.
    const T* at(int channel, int distance) const noexcept
    {
        return start(channel) + place(distance);
    }

    /// For those who read at many distances: the ring of a channel, and where in it a distance
    /// below the capacity lies.
    const T* start(int channel) const noexcept { return samples_.data() + offset(channel); }
    int place(int distance) const noexcept
    {
        const int back = next_ - 1 - distance;
        return back < 0 ? back + capacity_ : back;
    }

private:
    std::ptrdiff_t offset(int channel) const noexcept { return channel * stride_; }

    AlignedBuffer<T> samples_;  // channel by channel; behind each, its first kMirror once more
    std::ptrdiff_t stride_ = 0;
    int channels_ = 0;
    int capacity_ = 0;
    int next_ = 0;  // where the next sample goes
    int valid_ = 0;
};

template <typename T> void LongLine<T>::prepare(int channels, int capacity)
{
    // An odd number of alignments apart: channels do not compete for one set of the cache.
    constexpr std::ptrdiff_t kUnit = AlignedBytes::kAlignment / sizeof(T);
    stride_ = ((capacity + kMirror + kUnit - 1) / kUnit | 1) * kUnit;
    samples_.requireUncleared(static_cast<std::size_t>(stride_ * channels));
    channels_ = channels;
    capacity_ = capacity;
    next_ = valid_ = 0;
}

template <typename T>
template <class Copy>
void LongLine<T>::put(int channel, const T* in, int n, Copy copy) noexcept
{
    T* const line = samples_.data() + offset(channel);
    const int first = std::min(n, capacity_ - next_), rest = n - first;
    copy(line + next_, in, first);
    if (next_ < kMirror)
        vec::copy(line + capacity_ + next_, line + next_, std::min(first, kMirror - next_));
    if (rest == 0) return;
    copy(line, in + first, rest);
    vec::copy(line + capacity_, line, std::min(rest, kMirror));
}

template <typename T> void LongLine<T>::advance(int n) noexcept
{
    next_ += n < capacity_ - next_ ? n : n - capacity_;
    valid_ = n < capacity_ - valid_ ? valid_ + n : capacity_;
}

template <typename T>
void LongLine<T>::copy(int channel, T* out, int distance, int n) const noexcept
{
    const T* const line = start(channel);
    const int from = place(distance), first = std::min(n, capacity_ - from);
    // Of what is none nothing is read: it may never have been written.
    const int none = std::clamp(distance - valid_ + 1, 0, n);
    vec::clear(out, none);
    if (none < first) vec::copy(out + none, line + from + none, first - none);
    const int wrapped = std::max(first, none);
    vec::copy(out + wrapped, line + wrapped - first, n - wrapped);
}

}  // namespace quillworks
