// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mixing/pan_mix.cpp"
#include "dsp/simd.h"
//
#include "mixing/pan_mix.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// A gain at `lanes` frames, the first of them `toLast` before the last one. Products and sums are
/// rounded one by one, for the same bits on every processor.
template <bool moves, class D, typename T>
HWY_INLINE hn::Vec<D> gainAt(D d, PanGain<T> gain, hn::Vec<D> toLast)
{
    const auto to = hn::Set(d, gain.to);
    if constexpr (moves) return hn::Sub(to, hn::Mul(hn::Set(d, gain.step), toLast));
    return to;
}

template <bool hasRight, bool moves, class D, typename T>
HWY_INLINE hn::Vec<D> mixedAt(D d, const T* left, const T* right, PanGain<T> l, PanGain<T> r,
                              hn::Vec<D> toLast)
{
    const auto a = hn::Mul(gainAt<moves>(d, l, toLast), hn::LoadU(d, left));
    if constexpr (hasRight)
        return hn::Add(a, hn::Mul(gainAt<moves>(d, r, toLast), hn::LoadU(d, right)));
    return a;
}

template <bool hasRight, bool moves, typename T>
HWY_INLINE T mixOf(T* out, const T* left, const T* right, PanGain<T> l, PanGain<T> r,
                   int framesToLast, int n)
{
    const hn::ScalableTag<T> d;
    using V = hn::Vec<decltype(d)>;
    const int lanes = static_cast<int>(hn::Lanes(d));
    V toLast = hn::Sub(hn::Set(d, static_cast<T>(framesToLast)), hn::Iota(d, T(0)));
    const V further = hn::Set(d, static_cast<T>(lanes));
    int i = 0;
    const auto mix = [&](V& peak) HWY_ATTR {
        const V y = mixedAt<hasRight, moves>(d, left + i, right + i, l, r, toLast);
        hn::StoreU(y, d, out + i);
        const V size = hn::Abs(y);
        peak = hn::IfThenElse(hn::Gt(size, peak), size, peak);
        if constexpr (moves) toLast = hn::Sub(toLast, further);
        i += lanes;
    };
    // Four peaks, so that none waits for the one before.
    V a = hn::Zero(d), b = a, c = a, e = a;
    while (i + 4 * lanes <= n) mix(a), mix(b), mix(c), mix(e);
    while (i + lanes <= n) mix(a);
    const V peak = hn::Max(hn::Max(a, b), hn::Max(c, e));
    T most = hn::GetLane(hn::MaxOfLanes(d, peak));
    const hn::CappedTag<T, 1> one;
    for (; i < n; ++i) {
        const auto at = hn::Set(one, static_cast<T>(framesToLast - i));
        const T y = hn::GetLane(mixedAt<hasRight, moves>(one, left + i, right + i, l, r, at));
        out[i] = y;
        const T size = y < 0 ? -y : y;
        if (size > most) most = size;
    }
    return most;
}

template <typename T>
HWY_INLINE T mixAny(T* out, const T* left, const T* right, PanGain<T> l, PanGain<T> r,
                    int framesToLast, int n)
{
    const bool moves = l.step != 0 || (right && r.step != 0);
    if (!right) {
        if (moves) return mixOf<false, true>(out, left, left, l, r, framesToLast, n);
        return mixOf<false, false>(out, left, left, l, r, framesToLast, n);
    }
    if (moves) return mixOf<true, true>(out, left, right, l, r, framesToLast, n);
    return mixOf<true, false>(out, left, right, l, r, framesToLast, n);
}

#define QUILLWORKS_MIX(T, name)                                                                    \
    T name(T* out, const T* left, const T* right, PanGain<T> l, PanGain<T> r, int framesToLast,    \
           int n)                                                                                  \
    {                                                                                              \
        return mixAny(out, left, right, l, r, framesToLast, n);                                    \
    }
QUILLWORKS_MIX(float, mixFloat)
QUILLWORKS_MIX(double, mixDouble)

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(mixFloat);
HWY_EXPORT(mixDouble);

template <typename T> using Mix = T (*)(T*, const T*, const T*, PanGain<T>, PanGain<T>, int, int);
template <typename T> const Mix<T> chosen = nullptr;
template <> const Mix<float> chosen<float> = SIMD_CHOOSE(mixFloat);
template <> const Mix<double> chosen<double> = SIMD_CHOOSE(mixDouble);

}  // namespace

template <typename T>
T mixPanned(T* out, const T* left, const T* right, PanGain<T> l, PanGain<T> r, int framesToLast,
            int n) noexcept
{
    return chosen<T>(out, left, right, l, r, framesToLast, n);
}
template float mixPanned(float*, const float*, const float*, PanGain<float>, PanGain<float>, int,
                         int) noexcept;
template double mixPanned(double*, const double*, const double*, PanGain<double>, PanGain<double>,
                          int, int) noexcept;

}  // namespace quillworks
#endif
