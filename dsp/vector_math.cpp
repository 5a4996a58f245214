// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/vector_math.cpp"
#include "dsp/simd.h"
//
#include <cstddef>

#include "dsp/vector_math-inl.h"
#include "dsp/vector_math.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::vec::HWY_NAMESPACE {
namespace {

struct Log2 {
    template <class D, class V> HWY_INLINE V operator()(D d, V x) const
    {
        return logarithm(d, x, 1, 1 / kLn2);
    }
};
struct Log10 {
    template <class D, class V> HWY_INLINE V operator()(D d, V x) const { return log10(d, x); }
};
template <class T> struct DecibelsFromPower {
    T floor;
    template <class D, class V> HWY_INLINE V operator()(D d, V x) const
    {
        return logarithm(d, hn::Add(x, hn::Set(d, floor)), 10 * kLog10Of2, 10 / kLn10);
    }
};
struct Exp {
    template <class D, class V> HWY_INLINE V operator()(D d, V x) const
    {
        return exponential(d, x, kLn2);
    }
};
struct Exp2 {
    template <class D, class V> HWY_INLINE V operator()(D d, V x) const
    {
        return exponential(d, x, 1);
    }
};
struct GainFromDecibels {
    template <class D, class V> HWY_INLINE V operator()(D d, V x) const
    {
        return gainFromDecibels(d, x);
    }
};
struct Tanh {
    // (e^2x - 1)/(e^2x + 1) with the first difference computed without cancellation.
    template <class D, class V> HWY_INLINE V operator()(D d, V x) const
    {
        using T = hn::TFromD<D>;
        const auto one = hn::Set(d, T(1)), limit = hn::Set(d, FormatOf<D>::kTanhIsOne);
        const auto magnitude = hn::Abs(x);
        const auto a = hn::IfThenElse(hn::Gt(magnitude, limit), limit, magnitude);
        const auto y = hn::Mul(a, hn::Set(d, T(2 / kLn2)));
        const Split<D> split(d, y);
        const auto f = hn::Sub(y, split.n);
        const auto q = hn::Mul(f, polynomial(d, FormatOf<D>::kExp2, f));
        const auto power = split.scale(d, one);  // 2^n
        const auto less1 = hn::MulAdd(power, q, hn::Sub(power, one));
        return hn::CopySignToAbs(hn::Div(less1, hn::Add(less1, hn::Add(one, one))), x);
    }
};
struct Sqrt {
    template <class D, class V> HWY_INLINE V operator()(D, V x) const { return hn::Sqrt(x); }
};

/// d = function(s) in vectors of D, or of narrower ones for fewer elements. The last vector ends
/// with the array and may overlap the one before; it is computed first, from unchanged elements.
template <class D, class T, class Function>
HWY_INLINE void map(D tag, T* d, const T* s, std::size_t n, const Function& function)
{
    constexpr std::size_t lanes = hn::MaxLanes(D());
    if constexpr (lanes > 1)
        if (n < lanes) return map(hn::Half<D>(), d, s, n, function);
    const std::size_t final = n - lanes;
    const auto last = function(tag, hn::LoadU(tag, s + final));
    for (std::size_t i = 0; i < final; i += lanes)
        hn::StoreU(function(tag, hn::LoadU(tag, s + i)), tag, d + i);
    hn::StoreU(last, tag, d + final);
}

template <class T, class Function> void each(T* d, const T* s, int n)
{
    if (n > 0) map(hn::ScalableTag<T>(), d, s, static_cast<std::size_t>(n), Function());
}
template <class T, template <class> class Function>
void eachWith(T* d, const T* s, T parameter, int n)
{
    if (n > 0) map(hn::ScalableTag<T>(), d, s, static_cast<std::size_t>(n), Function<T>{parameter});
}

template <class T>
constexpr detail::MathKernels<T> kMath = {
    .log2 = each<T, Log2>,
    .log10 = each<T, Log10>,
    .exp = each<T, Exp>,
    .exp2 = each<T, Exp2>,
    .tanh = each<T, Tanh>,
    .sqrt = each<T, Sqrt>,
    .gainFromDecibels = each<T, GainFromDecibels>,
    .decibelsFromPower = eachWith<T, DecibelsFromPower>,
};

const detail::MathKernels<float>* floatKernels()
{
    return &kMath<float>;
}
const detail::MathKernels<double>* doubleKernels()
{
    return &kMath<double>;
}

}  // namespace
}  // namespace quillworks::vec::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks::vec {

HWY_EXPORT(floatKernels);
HWY_EXPORT(doubleKernels);

namespace detail {

template <> const MathKernels<float>* mathFor<float>(int permitted)
{
    const auto kernels = SIMD_CHOOSE(floatKernels, permitted);
    return kernels ? kernels() : nullptr;
}
template <> const MathKernels<double>* mathFor<double>(int permitted)
{
    const auto kernels = SIMD_CHOOSE(doubleKernels, permitted);
    return kernels ? kernels() : nullptr;
}

[[gnu::init_priority(101)]] const MathKernels<float> floatMath = *mathFor<float>(-1);
[[gnu::init_priority(101)]] const MathKernels<double> doubleMath = *mathFor<double>(-1);

}  // namespace detail
}  // namespace quillworks::vec
#endif
