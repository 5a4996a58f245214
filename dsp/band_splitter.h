// SPDX-License-Identifier: ISC
// Crossover into two to five bands that add up to an all-pass.
#pragma once

#include <cstddef>

#include "dsp/aligned_buffer.h"
#include "dsp/section.h"
#include "dsp/smoothed.h"

namespace quillworks {

inline constexpr int kMaxBands = 5;

/// The bands of a pair of channels over one slice: a row of samples for each band and side.
template <typename T> class BandRows {
public:
    T* of(int band, int side) noexcept { return row(band, side); }
    const T* of(int band, int side) const noexcept
    {
        return rows_ + (2 * band + side) * kStride + kMargin;
    }

private:
    template <typename> friend class BandSplitter;

    T* row(int band, int side) noexcept { return rows_ + (2 * band + side) * kStride + kMargin; }

    // The lanes of the kernels are some samples apart, and whole vectors are written.
    static constexpr int kMargin = 8, kStride = kMargin + kSubBlock + 8;
    alignas(64) T rows_[2 * kMaxBands * kStride]{};
};

/// Linkwitz-Riley crossover of fourth order (Linkwitz 1976) for pairs of channels. A split divides
/// what the one below it left: low = LP4, rest = AP - LP4, which is HP4 exactly, both from two
/// sections with Q = sqrt(1/2), the first of which gives AP too. The join sends the bands below a
/// split through its all-pass (D'Appolito 1984), behind whatever the bands went through; so the sum
/// of untouched bands is the product of the all-passes whatever the order and distance of the
/// splits, and n bands cost n - 2 all-passes.
///
///     splitter.begin(slice);                                       // once per slice
///     splitter.split(pair, left, right, bands, slice);             // for each pair
///     bands.of(band, side)[i] *= ...;
///     splitter.join(pair, bands, left, right, slice);
///
/// The bands have the same bits however the signal is divided into slices. Builds for different
/// instruction sets differ by rounding. No latency.
template <typename T> class BandSplitter {
public:
    /// Any number of pairs, all with the same splits. Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, int pairs);
    /// Silence in all filters, and the splits arrive where they are wanted.
    void reset() noexcept;
    /// Silence in the filters of one pair.
    void clear(int pair) noexcept;

    /// 2 .. kMaxBands; reset() follows, unless nothing has been heard yet.
    void setBands(int bands) noexcept { splits_ = bands - 1; }
    int bands() const noexcept { return splits_ + 1; }
    /// Where split 0 .. bands() - 2 shall be, in Hz, limited to 0.45 of the sample rate. It glides
    /// there in octaves, halving the way every glideSubBlocks().
    void target(int split, double frequency) noexcept;
    /// Where it is at the end of the present sub-block.
    double frequency(int split) const noexcept;

    /// Once per slice, before the pairs: the splits move on where a sub-block begins.
    void begin(GridSlice slice) noexcept;
    /// One slice of a pair into its bands; `right` may be null, and its rows are silent then.
    void split(int pair, const T* left, const T* right, BandRows<T>& bands,
               GridSlice slice) noexcept;
    /// The sum of a pair's bands; `right` may be null.
    void join(int pair, const BandRows<T>& bands, T* left, T* right, GridSlice slice) noexcept;

private:
    static constexpr int kSplits = kMaxBands - 1;
    static constexpr int kCoefficients = 3;       // r, b1, b2 of a Section
    static constexpr int kStates = 6;             // of both sections and of the all-pass
    static constexpr int kRow = 2 * kSplits + 8;  // lanes, and as many as a vector reads too far

    T* states(int pair) noexcept { return states_.data() + pair * kStates * kRow; }
    void lay(int split, bool glides) noexcept;
    void rest() noexcept;

    double sampleRate_ = 44100;
    int pairs_ = 0, splits_ = 1;
    struct Split {
        Smoothed<double> octave;
        double frequency = 1000;  // Hz, wanted
    };
    Split split_[kSplits];
    T coefficients_[kCoefficients][kRow]{}, steps_[kCoefficients][kRow]{};
    bool isMoving_ = false;
    AlignedBuffer<T> states_;
};

}  // namespace quillworks
