// SPDX-License-Identifier: ISC
// Spectra of real blocks for fast convolution: planar, in pieces of work that may be spread in
// time, and with the same bits in every run.
#pragma once

#include <cstddef>
#include <memory>

#include "dsp/aligned_buffer.h"

namespace quillworks {

namespace planar {

/// Bins that stand together in a spectrum's layout: real parts, then imaginary parts.
inline constexpr int kGroup = 16;

/// One run of a transform's inner loops over the columns of a matrix of complex numbers, real and
/// imaginary parts apart.
template <typename T> struct Columns {
    T *re, *im;         // in place
    int rows, columns;  // powers of two; columns a multiple of 8
    int length;         // rows of one butterfly block
    const T* twiddles;  // for each row of a quarter: three complex numbers
};

/// Partitions of a response against blocks of a signal, over some groups of bins: of each group the
/// sum over partitions of x times h.
template <typename T> struct Product {
    const T* x[2];         // first group of the newest blocks: a run, and one that follows it
    int run[2];            // blocks in each, of 2 kGroup values
    std::ptrdiff_t xStep;  // from group to group
    const T* h;            // first group of the partitions, one after the other
    std::ptrdiff_t hStep;
    T *re, *im;  // of the result, kGroup values a group
    int groups;
    bool adds;  // to what the result holds
};

template <typename T> struct Kernels {
    void (*forwardColumns)(const Columns<T>&);
    void (*inverseColumns)(const Columns<T>&);
    /// Rows become columns, each element times its twiddle: before that, or behind it for the
    /// conjugates. from: rows x columns, twiddles laid out as the matrix of `columns` columns is.
    void (*turn)(const T* fromRe, const T* fromIm, const T* wRe, const T* wIm, T* toRe, T* toIm,
                 int rows, int columns);
    void (*turnBack)(const T* fromRe, const T* fromIm, const T* wRe, const T* wIm, T* toRe, T* toIm,
                     int rows, int columns);
    void (*twist)(const T* older, const T* newer, const T* wRe, const T* wIm, T* re, T* im, int n);
    void (*untwist)(const T* re, const T* im, const T* wRe, const T* wIm, T* out, int n);
    void (*product)(const Product<T>&);
};

/// The build for the best of `permitted` instruction sets (DSP::VectorLib::Permitted) that the
/// processor has; null if it has none of them.
template <typename T> const Kernels<T>* kernels(int permitted = -1);
template <> const Kernels<float>* kernels(int permitted);
template <> const Kernels<double>* kernels(int permitted);

}  // namespace planar

/// Transform of blocks of 2P real samples for overlap-save with P taps: the block as a polynomial
/// modulo z^2P + 1 is the complex one x[n] + i x[n + P] modulo z^P - i, whose spectrum are its
/// values at P roots of i (Nussbaumer 1982, "right-angle" convolution). So there are P bins, none
/// of them special, out of one complex transform of P points; what wraps round comes back with its
/// sign reversed, which overlap-save drops as well.
///
/// P points are a matrix: transforms down the columns, twiddles, transposition, transforms down
/// the columns again (Bailey 1990). Bins come in the order in which they fall out; the inverse
/// takes them in the same order. Tables are shared between the transforms of one size.
template <typename T> class PlanarTransform {
public:
    /// P, a power of two from 64 to 65536. May throw std::bad_alloc. [any thread but audio]
    explicit PlanarTransform(int points, int permitted = -1);

    int points() const noexcept { return points_; }
    /// Values in a spectrum as `gather` lays it out, and in `scratch`.
    std::size_t values() const noexcept { return 2 * static_cast<std::size_t>(points_); }
    /// Rows of real and imaginary parts are this far apart in scratch memory: not a power of two,
    /// so that they do not compete for one set of the cache.
    std::ptrdiff_t row() const noexcept { return points_ + planar::kGroup; }
    std::size_t scratchValues() const noexcept { return 4 * static_cast<std::size_t>(row()); }

    /// Steps of about the same cost that a transform is made in, one after the other.
    int steps() const noexcept { return 2 + columnSteps(rows_) + columnSteps(columns_); }
    /// P samples each. The spectrum lies in the second half of the scratch memory in the end.
    void forwardStep(int step, const T* older, const T* newer, T* scratch) const noexcept;
    /// From the second half of the scratch memory; gives the last P of the 2P samples, times P.
    void inverseStep(int step, T* scratch, T* out) const noexcept;
    T* spectrumRe(T* scratch) const noexcept { return scratch + 2 * row(); }
    T* spectrumIm(T* scratch) const noexcept { return scratch + 3 * row(); }

    /// Sums of products of spectra that have been gathered.
    void product(const planar::Product<T>& product) const noexcept { kernels_->product(product); }
    /// Copies groups of the spectrum from scratch memory, times `gain`: group g to
    /// to + g groupStep.
    void gather(const T* scratch, T gain, T* to, std::ptrdiff_t groupStep, int firstGroup,
                int groups) const noexcept;
    int groups() const noexcept { return points_ / planar::kGroup; }

private:
    struct Tables {
        AlignedBuffer<T> twist, turn;    // real parts, then imaginary parts
        AlignedBuffer<T> rows, columns;  // of the passes, one behind the other
    };

    static int columnSteps(int length) noexcept;
    static Tables makeTables(int points, int rows, int columns);
    void columnPass(bool forward, int pass, T* matrix, int rows, int columns,
                    const T* tables) const noexcept;

    int points_, rows_, columns_;
    const planar::Kernels<T>* kernels_;
    std::shared_ptr<const Tables> tables_;
};

extern template class PlanarTransform<float>;
extern template class PlanarTransform<double>;

}  // namespace quillworks
