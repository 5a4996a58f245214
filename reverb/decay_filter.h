// SPDX-License-Identifier: ISC
// Decay filters side by side, one signal in each lane of a vector.
#pragma once

#include "dsp/aligned_buffer.h"
#include "reverb/decay_filter_kernels.h"

namespace quillworks {

/// Up to 16 signals, each through its own filter of one DecayDesign. Coefficients that change glide
/// over a sub-block. The same bits however the signal is divided into slices; builds for different
/// instruction sets differ by rounding.
template <typename T> class DecayFilter {
public:
    static constexpr int kMostLanes = 16;
    /// A row that process() takes has room for this many frames, whatever the slice.
    static constexpr int kRow = kDecayRow;

    /// Every filter is the identity times `scale`. Allocates; may throw std::bad_alloc.
    void prepare(const DecayDesign& design, int lanes, double scale = 1);
    /// Silence; what glides arrives.
    void reset() noexcept;

    /// The filter of a lane, at once.
    void set(int lane, const DecaySections& sections) noexcept { write(lane, sections, false); }
    /// Where a sub-block begins, after begin(): over the sub-block.
    void glide(int lane, const DecaySections& sections) noexcept { write(lane, sections, true); }
    /// A sub-block begins: what glided has arrived.
    void begin() noexcept;

    /// A slice of each lane, from rows of kRow samples to others or the same; what they hold behind
    /// the slice is read, not used, and written over.
    void process(const T* const* in, T* const* out, GridSlice slice) noexcept;

private:
    void write(int lane, const DecaySections& sections, bool glides) noexcept;
    T* row(int i) noexcept { return values_.data() + i * count_; }

    int lanes_ = 0, count_ = 0;  // signals, and lanes with those that fill vectors
    int sections_ = 0;
    T scale_ = 1;
    AlignedBuffer<T> values_;  // rows of lanes: coefficients, their steps, states, a slice's frames
    AlignedBuffer<T> spare_;   // rows of what fills vectors
    bool isMoving_ = false;
};

}  // namespace quillworks
