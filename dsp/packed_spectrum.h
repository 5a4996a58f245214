// SPDX-License-Identifier: ISC
// Vector kernels on packed spectra of real signals.
#pragma once
#include <cstddef>

// A packed spectrum of n real points (n even) is n values: element 0 is bin 0 (DC), element 1 bin
// n/2 (Nyquist), both real; elements 2k and 2k + 1 are the real and imaginary part of bin k.
//
// A real transform of n points is a complex one of n/2 points over pairs of samples and a split of
// its result by the symmetry of real signals (Sorensen, Jones, Heideman, Burrus 1987). Since bin 0
// and bin n/2 of the half-length transform's split are real, the split lands in packed order by
// itself.
namespace quillworks::packed {

/// Length in elements of the table of an n-point split, n a power of two from 4.
constexpr std::size_t twiddleCount(std::size_t n)
{
    return n / 2;
}

/// i/2 exp(-2 pi i k/n) for k = 1 .. n/4, real and imaginary parts in turn.
template <typename T> void makeTwiddles(T* twiddles, std::size_t n) noexcept;

template <typename T> struct Kernels {
    /// The spectrum of n real points out of the transform `z` of their n/2 pairs. n is a power of
    /// two from 4; both may be one array.
    void (*split)(const T* z, const T* twiddles, T* spectrum, std::size_t n);
    /// The reverse, times 2/n and in reversed order of bins (bin k at n/2 - k), so that the
    /// *forward* transform of `z` gives the signal itself: one plan serves both directions. Both
    /// may be one array.
    void (*merge)(const T* spectrum, const T* twiddles, T* z, std::size_t n);
    /// Product of two spectra bin by bin; the destination may be one of the sources.
    void (*multiply)(const T* a, const T* b, T* product, std::size_t n);
};

/// The builds for the best instruction set of `permitted` (DSP::VectorLib::Permitted) that the
/// processor has; null pointers if it has none of them.
template <typename T> Kernels<T> kernels(int permitted) noexcept;
template <> Kernels<float> kernels(int permitted) noexcept;
template <> Kernels<double> kernels(int permitted) noexcept;

}  // namespace quillworks::packed
