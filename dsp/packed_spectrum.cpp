// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/packed_spectrum.cpp"
#include "dsp/simd.h"
//
#include "dsp/packed_spectrum.h"

#include <cmath>
#include <cstdint>
#include <numbers>

HWY_BEFORE_NAMESPACE();
namespace quillworks::packed::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

// A vector holds complex numbers as they lie in memory: real and imaginary parts in turn.

/// The complex numbers of `v`, last first.
template <class D, class V> HWY_INLINE V reversed(D d, V v)
{
    if constexpr (sizeof(hn::TFromD<D>) == 4) {
        const hn::Repartition<std::uint64_t, D> pairs;
        return hn::BitCast(d, hn::Reverse(pairs, hn::BitCast(pairs, v)));
    } else {
        return hn::ReverseBlocks(d, v);
    }
}

template <class D, class V> HWY_INLINE V conjugate(D d, V v)
{
    return hn::Xor(v, hn::OddEven(hn::Set(d, hn::TFromD<D>(-0.0)), hn::Zero(d)));
}

template <class D, class V> HWY_INLINE V timesI(D d, V v)
{
    return hn::Xor(hn::Reverse2(d, v), hn::OddEven(hn::Zero(d), hn::Set(d, hn::TFromD<D>(-0.0))));
}

/// Bins k and h - k of an n-point spectrum (h = n/2), k = 1 .. h/2, from those of the half-length
/// transform, or the other way round. With a the number at k, b that at h - k, A = a + conj(b),
/// B = a - conj(b) and g the twiddle, the results are A/2 - gB and conj(A/2 + gB); backwards g is
/// conjugated and the two change places.
template <bool forward, typename T>
HWY_INLINE void turn(const T* from, const T* twiddles, T* to, std::size_t n)
{
    const std::size_t h = n / 2;
    const T scale = forward ? T(1) : T(2) / static_cast<T>(n);
    const T halfScale = T(0.5) * scale;
    std::size_t k = 1;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<T> d;
    const std::size_t lanes = hn::Lanes(d);
    if (lanes <= h) {  // then half of them, the bins of a vector, divide h/2: all powers of two
        const auto half = hn::Set(d, halfScale);
        const auto full = hn::Set(d, scale);
        for (; k <= h / 2; k += lanes / 2) {
            const std::size_t mirror = 2 * (h - k + 1) - lanes;
            const auto a = hn::LoadU(d, from + 2 * k);
            const auto b = conjugate(d, reversed(d, hn::LoadU(d, from + mirror)));
            const auto g = hn::Load(d, twiddles + 2 * (k - 1));
            const auto sum = hn::Mul(half, hn::Add(a, b));
            auto difference = hn::Sub(a, b);
            if constexpr (!forward) difference = hn::Mul(full, difference);
            const auto imag = hn::Mul(hn::DupOdd(g), timesI(d, difference));
            if constexpr (forward) {
                const auto turned = hn::MulAdd(hn::DupEven(g), difference, imag);
                hn::StoreU(hn::Sub(sum, turned), d, to + 2 * k);
                hn::StoreU(reversed(d, conjugate(d, hn::Add(sum, turned))), d, to + mirror);
            } else {
                const auto turned = hn::MulSub(hn::DupEven(g), difference, imag);
                hn::StoreU(conjugate(d, hn::Add(sum, turned)), d, to + 2 * k);
                hn::StoreU(reversed(d, hn::Sub(sum, turned)), d, to + mirror);
            }
        }
    }
#endif
    for (; k <= h / 2; ++k) {
        const T *const a = from + 2 * k, *const b = from + 2 * (h - k);
        const T gr = twiddles[2 * (k - 1)], gi = (forward ? 1 : -1) * twiddles[2 * (k - 1) + 1];
        const T sr = (a[0] + b[0]) * halfScale, si = (a[1] - b[1]) * halfScale;
        const T dr = (a[0] - b[0]) * scale, di = (a[1] + b[1]) * scale;
        const T tr = gr * dr - gi * di, ti = gr * di + gi * dr;
        T *const first = to + 2 * (forward ? k : h - k), *const second =
                                                             to + 2 * (forward ? h - k : k);
        first[0] = sr - tr;
        first[1] = si - ti;
        second[0] = sr + tr;
        second[1] = -(si + ti);
    }
    const T dc = from[0], nyquist = from[1];
    to[0] = (dc + nyquist) * (forward ? 1 : halfScale);
    to[1] = (dc - nyquist) * (forward ? 1 : halfScale);
}

template <typename T> HWY_INLINE void product(const T* a, const T* b, T* to, std::size_t n)
{
    // The first pair holds two real bins; the vectors take it along and it is put right at the end.
    const T dc = a[0] * b[0], nyquist = n > 1 ? a[1] * b[1] : T(0);
    std::size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<T> d;
    const std::size_t lanes = hn::Lanes(d);
    for (; i + lanes <= n; i += lanes) {
        const auto x = hn::LoadU(d, a + i), y = hn::LoadU(d, b + i);
        const auto imag = hn::Mul(hn::DupOdd(x), timesI(d, y));
        hn::StoreU(hn::MulAdd(hn::DupEven(x), y, imag), d, to + i);
    }
#endif
    for (; i + 2 <= n; i += 2) {
        const T re = a[i] * b[i] - a[i + 1] * b[i + 1];
        const T im = a[i] * b[i + 1] + a[i + 1] * b[i];
        to[i] = re;
        to[i + 1] = im;
    }
    to[0] = dc;
    if (n > 1) to[1] = nyquist;
}

#define QUILLWORKS_KERNELS(T, suffix)                                                              \
    void split##suffix(const T* z, const T* twiddles, T* spectrum, std::size_t n)                  \
    {                                                                                              \
        turn<true>(z, twiddles, spectrum, n);                                                      \
    }                                                                                              \
    void merge##suffix(const T* spectrum, const T* twiddles, T* z, std::size_t n)                  \
    {                                                                                              \
        turn<false>(spectrum, twiddles, z, n);                                                     \
    }                                                                                              \
    void multiply##suffix(const T* a, const T* b, T* to, std::size_t n)                            \
    {                                                                                              \
        product(a, b, to, n);                                                                      \
    }

QUILLWORKS_KERNELS(float, Float)
QUILLWORKS_KERNELS(double, Double)

}  // namespace
}  // namespace quillworks::packed::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks::packed {

HWY_EXPORT(splitFloat);
HWY_EXPORT(splitDouble);
HWY_EXPORT(mergeFloat);
HWY_EXPORT(mergeDouble);
HWY_EXPORT(multiplyFloat);
HWY_EXPORT(multiplyDouble);

template <> Kernels<float> kernels(int permitted) noexcept
{
    return {SIMD_CHOOSE(splitFloat, permitted), SIMD_CHOOSE(mergeFloat, permitted),
            SIMD_CHOOSE(multiplyFloat, permitted)};
}
template <> Kernels<double> kernels(int permitted) noexcept
{
    return {SIMD_CHOOSE(splitDouble, permitted), SIMD_CHOOSE(mergeDouble, permitted),
            SIMD_CHOOSE(multiplyDouble, permitted)};
}

template <typename T> void makeTwiddles(T* twiddles, std::size_t n) noexcept
{
    const long double step = 2 * std::numbers::pi_v<long double> / static_cast<long double>(n);
    for (std::size_t k = 1; k <= n / 4; ++k) {
        // Angles beyond an eighth of a turn by their complement: exact at a quarter.
        const bool near = k <= n / 8;
        const long double angle = step * static_cast<long double>(near ? k : n / 4 - k);
        const long double sine = near ? std::sin(angle) : std::cos(angle);
        const long double cosine = near ? std::cos(angle) : std::sin(angle);
        twiddles[2 * (k - 1)] = static_cast<T>(sine / 2);
        twiddles[2 * (k - 1) + 1] = static_cast<T>(cosine / 2);
    }
}
template void makeTwiddles(float*, std::size_t) noexcept;
template void makeTwiddles(double*, std::size_t) noexcept;

}  // namespace quillworks::packed
#endif
