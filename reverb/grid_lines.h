// SPDX-License-Identifier: ISC
// Delay lines written on the control grid: their samples are read, and written, where they lie.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

#include "dsp/aligned_buffer.h"
#include "dsp/control_grid.h"

namespace quillworks {

/// Rings of different lengths, written together and one slice of the grid at a time: a sub-block
/// never lies across a ring's end, so that vector loops over many lines write into them without a
/// copy and read from any place without one. Samples before the last clear read as 0; memory that
/// was never written is not touched, but for vectors that read too far.
template <typename T> class GridLines {
public:
    static constexpr int kMostReaders = 16;
    /// Frames behind a slice that may be read, and written, without effect.
    static constexpr int kSlack = 16;
    static constexpr int kRow = kSubBlock + kSlack;

    /// A ring for each of `longest`, up to 16, for distances up to that, and a reader for each or
    /// more: reader i hears ring i, behind the last ring again from the first on. Allocates; may
    /// throw std::bad_alloc. Empty afterwards.
    void prepare(std::span<const int> longest, int readers = 0)
    {
        rings_ = static_cast<int>(longest.size());
        readers_ = rings_ > 0 ? std::max(rings_, readers) : 0;
        longest_ = 0;
        int total = 0;
        for (int i = 0; i < rings_; ++i) {
            const int distance = longest[static_cast<std::size_t>(i)];
            // What is written too far must not meet what is still read.
            frames_[i] = (distance / kSubBlock + 3) * kSubBlock;
            start_[i] = total;
            total += frames_[i] + kRow;
            longest_ = std::max(longest_, distance);
        }
        for (int i = rings_; i < readers_; ++i) {
            frames_[i] = frames_[i - rings_];
            start_[i] = start_[i - rings_];
        }
        samples_.requireUncleared(static_cast<std::size_t>(total));
        clear();
    }
    /// At once, where a sub-block begins.
    void clear() noexcept
    {
        valid_ = 0;
        std::fill_n(next_, kMostReaders, 0);
    }

    /// Where the next slice of each ring goes: kRow frames, written before committed() or
    /// advance().
    void next(T** out) noexcept
    {
        T* const samples = samples_.data();
        for (int i = 0; i < rings_; ++i) out[i] = samples + (start_[i] + next_[i]);
    }
    T* next(int ring) noexcept { return samples_.data() + start_[ring] + next_[ring]; }
    /// For those who read at many distances: where in its ring that is, and of how many frames the
    /// ring is.
    int place(int ring) const noexcept { return next_[ring]; }
    int frames(int ring) const noexcept { return frames_[ring]; }
    /// The slice has been written to every ring and can be read from distance 0 on.
    void committed(int n) noexcept
    {
        int first = kSubBlock;
        for (int i = 0; i < rings_; ++i) first = std::min(first, next_[i]);
        if (first == kSubBlock) return;
        for (int i = 0; i < rings_; ++i)
            if (next_[i] < kSubBlock) {
                T* const from = samples_.data() + start_[i] + next_[i];
                std::copy_n(from, n, from + frames_[i]);
            }
    }
    void advance(int n) noexcept
    {
        for (int i = 0; i < kMostReaders; ++i) {
            const int next = next_[i] + n;
            next_[i] = next & -(next != frames_[i]);
        }
        valid_ = std::min(valid_ + n, longest_);
    }

    /// As many have been written as the longest distance.
    bool isFull() const noexcept { return valid_ == longest_; }
    /// Where read() finds the samples of every reader, at its own distance, if the lines are full.
    void look(const int* distance, const T** out) const noexcept
    {
        int place[kMostReaders];
        for (int i = 0; i < kMostReaders; ++i)
            place[i] = start_[i] + wrapped(next_[i] - distance[i], frames_[i]);
        const T* const samples = samples_.data();
        for (int i = 0; i < readers_; ++i) out[i] = samples + place[i];
    }
    /// n frames from `distance` before the next slice on, and kSlack frames of no value: where they
    /// lie, or in `room` (kRow frames) while the line is new.
    const T* read(int reader, int distance, int n, T* room) const noexcept
    {
        const T* const from =
            samples_.data() + start_[reader] + wrapped(next_[reader] - distance, frames_[reader]);
        if (distance <= valid_) return from;
        const int none = std::min(n, distance - valid_);
        std::fill_n(room, kRow, T(0));
        std::copy(from + none, from + n, room + none);
        return room;
    }

private:
    /// Without a branch, so that the compiler takes several lines at a time.
    static int wrapped(int place, int frames) noexcept { return place + (place >> 31 & frames); }

    AlignedBuffer<T> samples_;  // ring by ring; behind each, its first sub-block once more
    int rings_ = 0, readers_ = 0;
    // By reader, and zeros behind the last:
    int start_[kMostReaders]{};
    int frames_[kMostReaders]{};  // of its ring, a multiple of a sub-block
    int next_[kMostReaders]{};    // where the next frame goes
    int longest_ = 0;
    int valid_ = 0;  // frames since the last clear, at most `longest_`
};

}  // namespace quillworks
