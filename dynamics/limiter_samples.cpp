// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/limiter_samples.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <type_traits>

#include "dynamics/limiter_samples.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<double, 8>;
using One = hn::CappedTag<double, 1>;

/// What applies along a slice: a value per sample, or the first for all.
template <bool steady, typename T> struct Along {
    const T* values;
    T first = *values;

    template <class Lanes> HWY_INLINE hn::Vec<Lanes> at(Lanes d, int i) const
    {
        if constexpr (steady)
            return hn::Set(d, first);
        else
            return hn::LoadU(d, values + i);
    }
};

// Each body is a function of the lanes: whole vectors, then single samples.

template <bool begins, class Lanes, typename T>
HWY_INLINE hn::Vec<Lanes> takeLanes(Lanes d, const T* x, hn::Vec<Lanes> gain, double* u,
                                    double* levels)
{
    const hn::Rebind<T, Lanes> narrow;
    auto v = hn::LoadU(narrow, x);
    v = hn::IfThenElseZero(hn::Eq(v, v), v);
    v = hn::Max(hn::Min(v, hn::Set(narrow, T(kLoudestSignal))),
                hn::Set(narrow, T(-kLoudestSignal)));
    hn::Vec<Lanes> wide;
    if constexpr (std::is_same_v<T, double>)
        wide = v;
    else
        wide = hn::PromoteTo(d, v);
    wide = hn::Mul(wide, gain);
    hn::StoreU(wide, d, u);
    const auto level = hn::Abs(wide);
    hn::StoreU(begins ? level : hn::Max(hn::LoadU(d, levels), level), d, levels);
    return level;
}

template <bool begins, bool steady, typename T>
HWY_INLINE double takeAll(const T* x, const Along<steady, double> gain, double* u, double* levels,
                          int n)
{
    const D d;
    const One one;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    auto most = hn::Zero(d);
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        most = hn::Max(most, takeLanes<begins>(d, x + i, gain.at(d, i), u + i, levels + i));
    double top = hn::GetLane(hn::MaxOfLanes(d, most));
    for (; i < n; ++i)
        top = std::max(
            top, hn::GetLane(takeLanes<begins>(one, x + i, gain.at(one, i), u + i, levels + i)));
    return top;
}

template <bool steady, typename T>
HWY_INLINE double take(const T* x, const double* gain, double* u, double* levels, bool begins,
                       int n)
{
    const Along<steady, double> along{gain};
    return begins ? takeAll<true>(x, along, u, levels, n) : takeAll<false>(x, along, u, levels, n);
}

template <class Lanes, typename T>
HWY_INLINE void putLanes(Lanes, hn::Vec<Lanes> v, hn::Vec<hn::Rebind<T, Lanes>> limit, T* x)
{
    const hn::Rebind<T, Lanes> narrow;
    hn::Vec<decltype(narrow)> y;
    if constexpr (std::is_same_v<T, double>)
        y = v;
    else
        y = hn::DemoteTo(narrow, v);
    hn::StoreU(hn::Max(hn::Min(y, limit), hn::Neg(limit)), narrow, x);
}

template <bool steady, bool hasGain, typename T>
HWY_INLINE void putAll(const double* v, const double* gain, const Along<steady, double> scale,
                       const Along<steady, T> limit, T* x, int n)
{
    const auto from = [&](auto d, int i) HWY_ATTR {
        auto sample = hn::LoadU(d, v + i);
        if (hasGain) sample = hn::Mul(sample, hn::LoadU(d, gain + i));
        return hn::Mul(sample, scale.at(d, i));
    };
    const D d;
    const One one;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        putLanes(d, from(d, i), limit.at(hn::Rebind<T, D>(), i), x + i);
    for (; i < n; ++i) putLanes(one, from(one, i), limit.at(hn::Rebind<T, One>(), i), x + i);
}

template <bool steady, typename T>
HWY_INLINE void put(const double* v, const double* gain, const double* scale, const T* limit, T* x,
                    int n)
{
    const Along<steady, double> scales{scale};
    const Along<steady, T> limits{limit};
    if (gain)
        putAll<steady, true>(v, gain, scales, limits, x, n);
    else
        putAll<steady, false>(v, gain, scales, limits, x, n);
}

template <typename T>
constexpr WayThrough<T> kWays[] = {{take<false, T>, put<false, T>}, {take<true, T>, put<true, T>}};

const WayThrough<float>* waysOfFloat()
{
    return kWays<float>;
}
const WayThrough<double>* waysOfDouble()
{
    return kWays<double>;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(waysOfFloat);
HWY_EXPORT(waysOfDouble);

const WayThrough<float>* const floatWays = SIMD_CHOOSE(waysOfFloat)();
const WayThrough<double>* const doubleWays = SIMD_CHOOSE(waysOfDouble)();

}  // namespace quillworks
#endif
