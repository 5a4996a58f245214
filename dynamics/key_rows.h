// SPDX-License-Identifier: ISC
// One slice of what many detectors hear or give.
#pragma once

#include "dsp/aligned_buffer.h"
#include "dsp/control_grid.h"
#include "dsp/crossfade.h"

namespace quillworks {

/// A row of samples for each key: key b of set s is number s bands + b.
template <typename T> class KeyRows {
public:
    /// Room for so many. Allocates; may throw std::bad_alloc.
    void prepare(int keys) { samples_.require(static_cast<std::size_t>(keys * kSubBlock)); }
    /// Those in use.
    void shape(int sets, int bands) noexcept
    {
        sets_ = sets;
        bands_ = bands;
    }
    int keys() const noexcept { return sets_ * bands_; }
    T* data() noexcept { return samples_.data(); }
    T* of(int set, int band) noexcept
    {
        return samples_.data() + (set * bands_ + band) * kSubBlock;
    }

    /// f(band, row) for each.
    template <class F> void forEach(F&& f)
    {
        for (int s = 0; s < sets_; ++s)
            for (int b = 0; b < bands_; ++b) f(b, of(s, b));
    }
    /// f(x, count) over the first n samples of each; in one call where they are whole.
    template <class F> void map(int n, F&& f)
    {
        if (n == kSubBlock) return f(data(), keys() * kSubBlock);
        forEach([&](int, T* row) { f(row, n); });
    }

private:
    AlignedBuffer<T> samples_;
    int sets_ = 1, bands_ = 1;
};

/// The gains of what is present, on the way from those of what is leaving while a switch fades; in
/// `room` then. `rowOf(value)` gives both.
template <typename T, class Value, class F>
const T* fadedRow(const Switch<Value>& between, T* room, int n, F&& rowOf) noexcept
{
    const T* const row = rowOf(between.present());
    if (!between.isFading()) return row;
    vec::copy(room, row, n);
    between.fade().mix(room, rowOf(between.leaving()), n);
    return room;
}

}  // namespace quillworks
