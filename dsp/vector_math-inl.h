// SPDX-License-Identifier: ISC
// Logarithms and exponentials of whole vectors, for kernels that fuse them with more; compiled once
// per instruction set.
#if defined(QUILLWORKS_DSP_VECTOR_MATH_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_DSP_VECTOR_MATH_INL_H
#undef QUILLWORKS_DSP_VECTOR_MATH_INL_H
#else
#define QUILLWORKS_DSP_VECTOR_MATH_INL_H
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

HWY_BEFORE_NAMESPACE();
namespace quillworks::vec::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr long double kLn2 = 0.693147180559945309417232121458176568L;
constexpr long double kLog10Of2 = 0.301029995663981195213738894724493027L;
constexpr long double kLn10 = 2.302585092994045684017991454684364208L;
constexpr double kSqrtHalf = 0.70710678118654752440;

/// The binary format of T, and its polynomials. Those are minimax fits (Remez, weighted for the
/// relative error of the function itself) with the errors given.
template <class T> struct Format;

template <> struct Format<float> {
    static constexpr int kFraction = 23;       // bits
    static constexpr int kBias = 127;          // of the exponent
    static constexpr int kIndexBits = 8;       // of the exponent, as an integer
    static constexpr float kTanhIsOne = 9.1f;  // 1 - tanh(x) < 2^-25 from here on
    // (2^f - 1)/f for f in [-1/2, 1/2]: 1.1e-8
    static constexpr float kExp2[] = {6.93147187958070842839e-01f, 2.40226497943974215410e-01f,
                                      5.55035733258809199642e-02f, 9.61823734392434903651e-03f,
                                      1.33907759818785725321e-03f, 1.54035993084476670626e-04f};
    // (ln(1 + f) - f + f^2/2)/f^3 for 1 + f in [sqrt(1/2), sqrt(2)]: 3.2e-8
    static constexpr float kLog[] = {3.33339102137209464249e-01f, -2.50013374681116395948e-01f,
                                     1.99630798736817993699e-01f, -1.65775587972369770062e-01f,
                                     1.49145972579035390737e-01f, -1.42677141299334231395e-01f,
                                     8.70120421951577766029e-02f};
};

template <> struct Format<double> {
    static constexpr int kFraction = 52;
    static constexpr int kBias = 1023;
    static constexpr int kIndexBits = 11;
    static constexpr double kTanhIsOne = 19.1;  // 1 - tanh(x) < 2^-54 from here on
    // As above: 1.2e-15
    static constexpr double kExp2[] = {6.93147180559946174405e-01, 2.40226506959098556893e-01,
                                       5.55041086646527112580e-02, 9.61812910773597248837e-03,
                                       1.33335582005861589226e-03, 1.54035302557508762275e-04,
                                       1.52526730582851129678e-05, 1.32155418198362579582e-06,
                                       1.02058787217076156962e-07, 7.05493940916166785362e-09};
    // (2 artanh(s)/s - 2)/z, z = s^2, s = f/(2 + f), for 1 + f in the same range: 6.8e-16
    static constexpr double kLog[] = {6.66666666666620666426e-01, 4.00000000112397280372e-01,
                                      2.85714241292746751189e-01, 2.22228631422809297380e-01,
                                      1.81401602892542673784e-01, 1.66222729781583367092e-01};
};

template <class D> using FormatOf = Format<hn::TFromD<D>>;

/// Coefficients [first, first + count) by Estrin's scheme: pairs of halves, short chains.
template <std::size_t first, std::size_t count, class D, class T, std::size_t size, class V>
HWY_INLINE V polynomial(D d, const T (&c)[size], const V* powers)
{
    if constexpr (count == 1) {
        return hn::Set(d, c[first]);
    } else {
        // The lower part is the largest power of two below `count`; powers[k] is x^(2^k).
        constexpr std::size_t k = count > 8 ? 3 : count > 4 ? 2 : count > 2 ? 1 : 0;
        constexpr std::size_t low = std::size_t{1} << k;
        return hn::MulAdd(polynomial<first + low, count - low>(d, c, powers), powers[k],
                          polynomial<first, low>(d, c, powers));
    }
}

template <class D, class T, std::size_t size, class V>
HWY_INLINE V polynomial(D d, const T (&c)[size], V x)
{
    static_assert(size <= 16);
    const V x2 = hn::Mul(x, x), x4 = hn::Mul(x2, x2);
    const V powers[4] = {x, x2, x4, hn::Mul(x4, x4)};
    return polynomial<0, size>(d, c, powers);
}

/// perOctave * log2(x), perNeper * ln(x): the same number.
template <class D, class V>
HWY_INLINE V logarithm(D d, V x, long double perOctave, long double perNeper)
{
    using F = FormatOf<D>;
    using T = hn::TFromD<D>;
    using L = std::numeric_limits<T>;
    const hn::RebindToUnsigned<D> du;
    using U = hn::TFromD<decltype(du)>;
    constexpr U fraction = (U{1} << F::kFraction) - 1;

    // x = 2^e m with m in [sqrt(1/2), sqrt(2)): shifting the range by 1/sqrt(1/2) in the bits makes
    // the exponent field count from there.
    const auto one = hn::BitCast(du, hn::Set(d, T(1)));
    const auto sqrtHalf = hn::BitCast(du, hn::Set(d, T(kSqrtHalf)));
    const auto bits = hn::Add(hn::Sub(hn::BitCast(du, x), sqrtHalf), one);
    const auto m = hn::BitCast(d, hn::Add(hn::And(bits, hn::Set(du, fraction)), sqrtHalf));
    // An integer below 2^kFraction put into the fraction of 2^kFraction is converted by a
    // subtraction.
    const auto magic = hn::Set(d, T(U{1} << F::kFraction));
    const auto index = hn::Or(hn::ShiftRight<F::kFraction>(bits), hn::BitCast(du, magic));
    const auto e = hn::Sub(hn::BitCast(d, index), hn::Set(d, T((U{1} << F::kFraction) + F::kBias)));

    const auto f = hn::Sub(m, hn::Set(d, T(1)));
    V ln;
    if constexpr (std::is_same_v<T, float>) {
        const auto q = hn::MulAdd(polynomial(d, F::kLog, f), f, hn::Set(d, -0.5f));
        ln = hn::MulAdd(hn::Mul(f, f), q, f);
    } else {
        const auto s = hn::Div(f, hn::Add(m, hn::Set(d, T(1))));
        const auto z = hn::Mul(s, s);
        ln = hn::Mul(s, hn::MulAdd(polynomial(d, F::kLog, z), z, hn::Set(d, T(2))));
    }
    V y = hn::MulAdd(e, hn::Set(d, T(perOctave)), hn::Mul(ln, hn::Set(d, T(perNeper))));

    const auto smallest = hn::Set(d, L::min()), infinity = hn::Set(d, L::infinity());
    const auto ordinary = hn::And(hn::Ge(x, smallest), hn::Lt(x, infinity));
    if (HWY_UNLIKELY(!hn::AllTrue(d, ordinary))) {
        const auto low =
            hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Set(d, L::quiet_NaN()), hn::Neg(infinity));
        y = hn::IfThenElse(ordinary, y, hn::IfThenElse(hn::Lt(x, smallest), low, x));
    }
    return y;
}

/// y = n + f with n an integer and f in [-1/2, 1/2], for |y| < 2^(kFraction - 2). The low bits of
/// `biased` are n.
template <class D> struct Split {
    hn::Vec<D> biased, n;

    HWY_INLINE Split(D d, hn::Vec<D> y)
    {
        using T = hn::TFromD<D>;
        constexpr T magic =
            T(std::uint64_t{3} << (FormatOf<D>::kFraction - 1));  // rounds to integers
        biased = hn::Add(y, hn::Set(d, magic));
        n = hn::Sub(biased, hn::Set(d, magic));
    }
    /// v 2^n for v near 1 or, with an n whose result is a normal number, for any normal v.
    HWY_INLINE hn::Vec<D> scale(D d, hn::Vec<D> v) const
    {
        const hn::RebindToUnsigned<D> du;
        const auto exponent = hn::ShiftLeft<FormatOf<D>::kFraction>(hn::BitCast(du, biased));
        return hn::BitCast(d, hn::Add(hn::BitCast(du, v), exponent));
    }
};

/// 2^(x / octave), where that is a normal number.
template <class D, class V> HWY_INLINE V ordinaryExponential(D d, V x, long double octave)
{
    using F = FormatOf<D>;
    using T = hn::TFromD<D>;
    // x = n octave + r (Cody and Waite 1980): n times the leading part of `octave` is exact.
    const long double grid =
        static_cast<long double>(std::uint64_t{1} << (F::kFraction - F::kIndexBits - 2));
    const auto leading = static_cast<T>(static_cast<std::int64_t>(octave * grid) / grid);
    const auto trailing = static_cast<T>(octave - leading);

    const bool isBase2 = octave == 1;
    const Split<D> y(d, isBase2 ? x : hn::Mul(x, hn::Set(d, T(1 / octave))));
    V f;
    if (isBase2) {
        f = hn::Sub(x, y.n);
    } else {
        f = hn::NegMulAdd(y.n, hn::Set(d, leading), x);
        f = hn::NegMulAdd(y.n, hn::Set(d, trailing), f);
        f = hn::Mul(f, hn::Set(d, T(1 / octave)));
    }
    const auto mantissa = hn::MulAdd(polynomial(d, F::kExp2, f), f, hn::Set(d, T(1)));
    return y.scale(d, mantissa);
}

/// 2^(x / octave)
template <class D, class V> HWY_INLINE V exponential(D d, V x, long double octave)
{
    using F = FormatOf<D>;
    using T = hn::TFromD<D>;
    V result = ordinaryExponential(d, x, octave);
    const auto least = hn::Set(d, T((1 - F::kBias) * octave));
    const auto beyond = hn::Set(d, T((1 + F::kBias) * octave));
    const auto ordinary = hn::And(hn::Ge(x, least), hn::Lt(x, beyond));
    if (HWY_UNLIKELY(!hn::AllTrue(d, ordinary))) {
        const auto infinity = hn::Set(d, std::numeric_limits<T>::infinity());
        const auto high = hn::IfThenElse(hn::Ge(x, beyond), infinity, x);  // x: a NaN
        result =
            hn::IfThenElse(ordinary, result, hn::IfThenElse(hn::Lt(x, least), hn::Zero(d), high));
    }
    return result;
}

/// log10(x)
template <class D, class V> HWY_INLINE V log10(D d, V x)
{
    return logarithm(d, x, kLog10Of2, 1 / kLn10);
}
/// 10^(x/20)
template <class D, class V> HWY_INLINE V gainFromDecibels(D d, V x)
{
    return exponential(d, x, 20 * kLog10Of2);
}

}  // namespace
}  // namespace quillworks::vec::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
