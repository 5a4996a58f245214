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

// Each body is a function of the lanes: whole vectors, then single samples.

template <bool begins, class Lanes, typename T>
HWY_INLINE hn::Vec<Lanes> takeLanes(Lanes d, const T* x, const double* gain, double* u,
                                    double* levels)
{
    const hn::Rebind<T, Lanes> narrow;
    auto v = hn::LoadU(narrow, x);
    v = hn::IfThenElseZero(hn::Eq(v, v), v);
    v = hn::Max(hn::Min(v, hn::Set(narrow, T(kLargestInput))), hn::Set(narrow, T(-kLargestInput)));
    hn::Vec<Lanes> wide;
    if constexpr (std::is_same_v<T, double>)
        wide = v;
    else
        wide = hn::PromoteTo(d, v);
    wide = hn::Mul(wide, hn::LoadU(d, gain));
    hn::StoreU(wide, d, u);
    const auto level = hn::Abs(wide);
    hn::StoreU(begins ? level : hn::Max(hn::LoadU(d, levels), level), d, levels);
    return level;
}

template <bool begins, typename T>
HWY_INLINE double takeAll(const T* x, const double* gain, double* u, double* levels, int n)
{
    const D d;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    auto most = hn::Zero(d);
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        most = hn::Max(most, takeLanes<begins>(d, x + i, gain + i, u + i, levels + i));
    double top = hn::GetLane(hn::MaxOfLanes(d, most));
    for (; i < n; ++i)
        top = std::max(top,
                       hn::GetLane(takeLanes<begins>(One(), x + i, gain + i, u + i, levels + i)));
    return top;
}

template <typename T>
HWY_INLINE double take(const T* x, const double* gain, double* u, double* levels, bool begins,
                       int n)
{
    return begins ? takeAll<true>(x, gain, u, levels, n) : takeAll<false>(x, gain, u, levels, n);
}

template <class Lanes, typename T>
HWY_INLINE void putLanes(Lanes d, const double* v, const double* gain, const double* scale,
                         const T* limit, T* x)
{
    const hn::Rebind<T, Lanes> narrow;
    auto wide = hn::LoadU(d, v);
    if (gain) wide = hn::Mul(wide, hn::LoadU(d, gain));
    wide = hn::Mul(wide, hn::LoadU(d, scale));
    hn::Vec<decltype(narrow)> y;
    if constexpr (std::is_same_v<T, double>)
        y = wide;
    else
        y = hn::DemoteTo(narrow, wide);
    const auto most = hn::LoadU(narrow, limit);
    hn::StoreU(hn::Max(hn::Min(y, most), hn::Neg(most)), narrow, x);
}

template <typename T>
HWY_INLINE void put(const double* v, const double* gain, const double* scale, const T* limit, T* x,
                    int n)
{
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        putLanes(D(), v + i, gain ? gain + i : nullptr, scale + i, limit + i, x + i);
    for (; i < n; ++i)
        putLanes(One(), v + i, gain ? gain + i : nullptr, scale + i, limit + i, x + i);
}

double takeFloat(const float* x, const double* gain, double* u, double* levels, bool begins, int n)
{
    return take(x, gain, u, levels, begins, n);
}
double takeDouble(const double* x, const double* gain, double* u, double* levels, bool begins,
                  int n)
{
    return take(x, gain, u, levels, begins, n);
}
void putFloat(const double* v, const double* gain, const double* scale, const float* limit,
              float* x, int n)
{
    put(v, gain, scale, limit, x, n);
}
void putDouble(const double* v, const double* gain, const double* scale, const double* limit,
               double* x, int n)
{
    put(v, gain, scale, limit, x, n);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(takeFloat);
HWY_EXPORT(takeDouble);
HWY_EXPORT(putFloat);
HWY_EXPORT(putDouble);
namespace {

template <typename T> using Take = double (*)(const T*, const double*, double*, double*, bool, int);
template <typename T>
using Put = void (*)(const double*, const double*, const double*, const T*, T*, int);

const Take<float> takeFloatBest = SIMD_CHOOSE(takeFloat);
const Take<double> takeDoubleBest = SIMD_CHOOSE(takeDouble);
const Put<float> putFloatBest = SIMD_CHOOSE(putFloat);
const Put<double> putDoubleBest = SIMD_CHOOSE(putDouble);

}  // namespace

template <>
double takeIn(const float* x, const double* gain, double* u, double* levels, bool begins,
              int n) noexcept
{
    return takeFloatBest(x, gain, u, levels, begins, n);
}
template <>
double takeIn(const double* x, const double* gain, double* u, double* levels, bool begins,
              int n) noexcept
{
    return takeDoubleBest(x, gain, u, levels, begins, n);
}
template <>
void putOut(const double* v, const double* gain, const double* scale, const float* limit, float* x,
            int n) noexcept
{
    putFloatBest(v, gain, scale, limit, x, n);
}
template <>
void putOut(const double* v, const double* gain, const double* scale, const double* limit,
            double* x, int n) noexcept
{
    putDoubleBest(v, gain, scale, limit, x, n);
}

}  // namespace quillworks
#endif
