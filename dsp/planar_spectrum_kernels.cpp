// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/planar_spectrum_kernels.cpp"
#include "dsp/simd.h"
//
#include "dsp/lanes-inl.h"
#include "dsp/planar_spectrum.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;
using planar::Columns;
using planar::kGroup;
using planar::Product;

/// Columns come in eights, whatever the width of a register.
template <typename T> using Lanes = hn::CappedTag<T, HWY_MIN(8, 32 / sizeof(T))>;

template <class V> struct Complex {
    V re, im;
};
template <class V> HWY_INLINE Complex<V> operator+(Complex<V> a, Complex<V> b)
{
    return {hn::Add(a.re, b.re), hn::Add(a.im, b.im)};
}
template <class V> HWY_INLINE Complex<V> operator-(Complex<V> a, Complex<V> b)
{
    return {hn::Sub(a.re, b.re), hn::Sub(a.im, b.im)};
}
template <class V> HWY_INLINE Complex<V> operator*(Complex<V> a, Complex<V> b)
{
    return {hn::MulSub(a.re, b.re, hn::Mul(a.im, b.im)),
            hn::MulAdd(a.re, b.im, hn::Mul(a.im, b.re))};
}
/// a times the conjugate of b.
template <class V> HWY_INLINE Complex<V> timesConjugate(Complex<V> a, Complex<V> b)
{
    return {hn::MulAdd(a.re, b.re, hn::Mul(a.im, b.im)),
            hn::MulSub(a.im, b.re, hn::Mul(a.re, b.im))};
}
/// a + sign i b
template <int sign, class V> HWY_INLINE Complex<V> plusI(Complex<V> a, Complex<V> b)
{
    if constexpr (sign > 0)
        return {hn::Sub(a.re, b.im), hn::Add(a.im, b.re)};
    else
        return {hn::Add(a.re, b.im), hn::Sub(a.im, b.re)};
}

/// Butterflies over four rows a quarter of a block apart, decimated in frequency on the way there
/// and in time on the way back.
template <typename T, bool forward, bool turns>
HWY_INLINE void quarters(const Columns<T>& m, int row, const T* twiddles)
{
    const Lanes<T> d;
    using V = hn::Vec<Lanes<T>>;
    const int quarter = m.length / 4;
    const std::ptrdiff_t at = std::ptrdiff_t{row} * m.columns;
    const std::ptrdiff_t step = std::ptrdiff_t{quarter} * m.columns;
    Complex<V> w[3];
    if (turns)
        for (int k = 0; k < 3; ++k)
            w[k] = {hn::Set(d, twiddles[2 * k]), hn::Set(d, twiddles[2 * k + 1])};
    for (int c = 0; c < m.columns; c += static_cast<int>(hn::Lanes(d))) {
        T *const re = m.re + at + c, *const im = m.im + at + c;
        Complex<V> x[4];
        for (int k = 0; k < 4; ++k)
            x[k] = {hn::LoadU(d, re + k * step), hn::LoadU(d, im + k * step)};
        if (turns && !forward)
            for (int k = 0; k < 3; ++k) x[k + 1] = timesConjugate(x[k + 1], w[k]);
        if constexpr (forward) {
            const auto a = x[0] + x[2], b = x[0] - x[2], e = x[1] + x[3], f = x[1] - x[3];
            x[0] = a + e;
            x[1] = plusI<-1>(b, f);
            x[2] = a - e;
            x[3] = plusI<1>(b, f);
        } else {
            const auto a = x[0] + x[2], b = x[0] - x[2], e = x[1] + x[3], f = x[1] - x[3];
            x[0] = a + e;
            x[1] = plusI<1>(b, f);
            x[2] = a - e;
            x[3] = plusI<-1>(b, f);
        }
        if (turns && forward)
            for (int k = 0; k < 3; ++k) x[k + 1] = x[k + 1] * w[k];
        for (int k = 0; k < 4; ++k) {
            hn::StoreU(x[k].re, d, re + k * step);
            hn::StoreU(x[k].im, d, im + k * step);
        }
    }
}

template <typename T> HWY_INLINE void halves(const Columns<T>& m)
{
    const Lanes<T> d;
    const std::ptrdiff_t half = m.columns;
    for (int row = 0; row < m.rows; row += 2)
        for (int c = 0; c < m.columns; c += static_cast<int>(hn::Lanes(d)))
            for (T* const part : {m.re, m.im}) {
                T* const x = part + std::ptrdiff_t{row} * m.columns + c;
                const auto a = hn::LoadU(d, x), b = hn::LoadU(d, x + half);
                hn::StoreU(hn::Add(a, b), d, x);
                hn::StoreU(hn::Sub(a, b), d, x + half);
            }
}

template <typename T, bool forward> void columns(const Columns<T>& m)
{
    if (m.length == 2) return halves(m);
    const int quarter = m.length / 4;
    for (int block = 0; block < m.rows; block += m.length) {
        quarters<T, forward, false>(m, block, nullptr);
        for (int j = 1; j < quarter; ++j)
            quarters<T, forward, true>(m, block + j, m.twiddles + 6 * j);
    }
}

/// As many rows as a vector has lanes.
template <typename T, bool back>
void turnMatrix(const T* fromRe, const T* fromIm, const T* wRe, const T* wIm, T* toRe, T* toIm,
                int rows, int columns)
{
    const Lanes<T> d;
    using V = hn::Vec<Lanes<T>>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(Lanes<T>()));
    for (int r = 0; r < rows; r += lanes)
        for (int c = 0; c < columns; c += lanes) {
            V re[lanes], im[lanes];
            for (int k = 0; k < lanes; ++k) {
                const std::ptrdiff_t at = std::ptrdiff_t{r + k} * columns + c;
                re[k] = hn::LoadU(d, fromRe + at);
                im[k] = hn::LoadU(d, fromIm + at);
                if (!back) {
                    const auto y = Complex<V>{re[k], im[k]} *
                                   Complex<V>{hn::LoadU(d, wRe + at), hn::LoadU(d, wIm + at)};
                    re[k] = y.re;
                    im[k] = y.im;
                }
            }
#if HWY_TARGET != HWY_SCALAR
            transpose(d, re);
            transpose(d, im);
#endif
            for (int k = 0; k < lanes; ++k) {
                const std::ptrdiff_t to = std::ptrdiff_t{c + k} * rows + r;
                if (back) {
                    const auto y =
                        timesConjugate(Complex<V>{re[k], im[k]},
                                       Complex<V>{hn::LoadU(d, wRe + to), hn::LoadU(d, wIm + to)});
                    re[k] = y.re;
                    im[k] = y.im;
                }
                hn::StoreU(re[k], d, toRe + to);
                hn::StoreU(im[k], d, toIm + to);
            }
        }
}

template <typename T>
void twistBlock(const T* older, const T* newer, const T* wRe, const T* wIm, T* re, T* im, int n)
{
    const Lanes<T> d;
    for (int i = 0; i < n; i += static_cast<int>(hn::Lanes(d))) {
        const auto a = hn::LoadU(d, older + i), b = hn::LoadU(d, newer + i);
        const auto c = hn::LoadU(d, wRe + i), s = hn::LoadU(d, wIm + i);
        hn::StoreU(hn::MulSub(a, c, hn::Mul(b, s)), d, re + i);
        hn::StoreU(hn::MulAdd(a, s, hn::Mul(b, c)), d, im + i);
    }
}

template <typename T>
void untwistBlock(const T* re, const T* im, const T* wRe, const T* wIm, T* out, int n)
{
    const Lanes<T> d;
    for (int i = 0; i < n; i += static_cast<int>(hn::Lanes(d))) {
        const auto a = hn::LoadU(d, re + i), b = hn::LoadU(d, im + i);
        const auto c = hn::LoadU(d, wRe + i), s = hn::LoadU(d, wIm + i);
        hn::StoreU(hn::MulSub(b, c, hn::Mul(a, s)), d, out + i);
    }
}

/// A group's sums stay in registers over all partitions; each product has four sums of its own, so
/// that none waits for another.
template <typename T> void products(const Product<T>& p)
{
    const hn::CappedTag<T, kGroup> d;
    using V = hn::Vec<hn::CappedTag<T, kGroup>>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(hn::CappedTag<T, kGroup>()));
    constexpr int most = lanes >= 8 ? kGroup / lanes : lanes >= 4 ? 2 : 1;  // vectors at a time
    for (int g = 0; g < p.groups; ++g)
        for (int bin = 0; bin < kGroup; bin += most * lanes) {
            V rr[most], ii[most], ri[most], ir[most];
            for (int v = 0; v < most; ++v) rr[v] = ii[v] = ri[v] = ir[v] = hn::Zero(d);
            const T* h = p.h + g * p.hStep + bin;
            for (int r = 0; r < 2; ++r) {
                const T* x = p.x[r] + g * p.xStep + bin;
                for (int j = 0; j < p.run[r]; ++j, x += 2 * kGroup, h += 2 * kGroup)
                    for (int v = 0; v < most; ++v) {
                        const auto xr = hn::LoadU(d, x + v * lanes);
                        const auto xi = hn::LoadU(d, x + kGroup + v * lanes);
                        const auto hr = hn::LoadU(d, h + v * lanes);
                        const auto hi = hn::LoadU(d, h + kGroup + v * lanes);
                        rr[v] = hn::MulAdd(xr, hr, rr[v]);
                        ii[v] = hn::MulAdd(xi, hi, ii[v]);
                        ri[v] = hn::MulAdd(xr, hi, ri[v]);
                        ir[v] = hn::MulAdd(xi, hr, ir[v]);
                    }
            }
            for (int v = 0; v < most; ++v) {
                T* const re = p.re + g * kGroup + bin + v * lanes;
                T* const im = p.im + g * kGroup + bin + v * lanes;
                auto yr = hn::Sub(rr[v], ii[v]), yi = hn::Add(ri[v], ir[v]);
                if (p.adds) {
                    yr = hn::Add(yr, hn::LoadU(d, re));
                    yi = hn::Add(yi, hn::LoadU(d, im));
                }
                hn::StoreU(yr, d, re);
                hn::StoreU(yi, d, im);
            }
        }
}

template <typename T>
constexpr planar::Kernels<T> kKernels{columns<T, true>,    columns<T, false>, turnMatrix<T, false>,
                                      turnMatrix<T, true>, twistBlock<T>,     untwistBlock<T>,
                                      products<T>};

const planar::Kernels<float>* floatKernels()
{
    return &kKernels<float>;
}
const planar::Kernels<double>* doubleKernels()
{
    return &kKernels<double>;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(floatKernels);
HWY_EXPORT(doubleKernels);

}  // namespace

template <> const planar::Kernels<float>* planar::kernels(int permitted)
{
    const auto build = SIMD_CHOOSE(floatKernels, permitted);
    return build ? build() : nullptr;
}
template <> const planar::Kernels<double>* planar::kernels(int permitted)
{
    const auto build = SIMD_CHOOSE(doubleKernels, permitted);
    return build ? build() : nullptr;
}

}  // namespace quillworks
#endif
