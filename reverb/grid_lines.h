// SPDX-License-Identifier: ISC
// Delay lines written on the control grid: their samples are read, and written, where they lie.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "dsp/aligned_buffer.h"
#include "dsp/control_grid.h"

namespace quillworks {

/// Rings of different lengths, written together and one slice of the grid at a time: a sub-block
/// never lies across a ring's end, so that vector loops over many lines write into them without a
/// copy and read from any place without one. Samples before the last clear read as 0; memory that
/// was never written is not touched, but for vectors that read too far.
template <typename T> class GridLines {
public:
    /// Frames behind a slice that may be read, and written, without effect.
    static constexpr int kSlack = 16;
    static constexpr int kRow = kSubBlock + kSlack;

    /// A line for each of `longest`, for distances up to that. Allocates; may throw std::bad_alloc.
    /// Empty afterwards.
    void prepare(std::span<const int> longest)
    {
        lines_.clear();
        longest_ = 0;
        std::ptrdiff_t total = 0;
        for (const int distance : longest) {
            // What is written too far must not meet what is still read.
            const int frames = (distance / kSubBlock + 3) * kSubBlock;
            lines_.push_back({total, frames, 0});
            total += frames + kRow;
            longest_ = std::max(longest_, distance);
        }
        samples_.requireUncleared(static_cast<std::size_t>(total));
        clear();
    }
    /// At once, where a sub-block begins.
    void clear() noexcept
    {
        valid_ = 0;
        for (Line& line : lines_) line.next = 0;
    }

    /// Where the next slice of a line goes: kRow frames, written before committed() or advance().
    T* next(int line) noexcept { return start(line) + at(line).next; }
    /// The slice has been written to every line and can be read from distance 0 on.
    void committed(int n) noexcept
    {
        for (Line& line : lines_)
            if (line.next < kSubBlock) {
                const T* const from = samples_.data() + line.start + line.next;
                std::copy_n(from, n, samples_.data() + line.start + line.frames + line.next);
            }
    }
    void advance(int n) noexcept
    {
        for (Line& line : lines_)
            if ((line.next += n) == line.frames) line.next = 0;
        valid_ = std::min(valid_ + n, longest_);
    }

    /// For those who read at many distances: where in its line the next slice goes, and of how many
    /// frames the ring is.
    int place(int line) const noexcept { return at(line).next; }
    int frames(int line) const noexcept { return at(line).frames; }

    /// n frames from `distance` before the next slice on, and kSlack frames of no value: where they
    /// lie, or in `room` (kRow frames) while the line is new.
    const T* read(int i, int distance, int n, T* room) const noexcept
    {
        const Line& line = at(i);
        const int place = line.next - distance;
        const T* const from =
            samples_.data() + line.start + (place < 0 ? place + line.frames : place);
        if (distance <= valid_) return from;
        const int none = std::min(n, distance - valid_);
        std::fill_n(room, kRow, T(0));
        std::copy(from + none, from + n, room + none);
        return room;
    }

private:
    struct Line {
        std::ptrdiff_t start;
        int frames;  // a multiple of a sub-block; behind them the first sub-block once more
        int next;    // where the next frame goes
    };
    const Line& at(int i) const noexcept { return lines_[static_cast<std::size_t>(i)]; }
    T* start(int i) noexcept { return samples_.data() + at(i).start; }

    AlignedBuffer<T> samples_;
    std::vector<Line> lines_;
    int longest_ = 0;
    int valid_ = 0;  // frames since the last clear, at most `longest_`
};

}  // namespace quillworks
