// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/limiter_samples.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cmath>
#include <limits>
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
                         const double* ceiling, T* x)
{
    auto y = hn::LoadU(d, v);
    if (gain) y = hn::Mul(y, hn::LoadU(d, gain));
    y = hn::Mul(y, hn::LoadU(d, scale));
    const auto most = hn::LoadU(d, ceiling);
    if constexpr (std::is_same_v<T, double>) {
        hn::StoreU(hn::Max(hn::Min(y, most), hn::Neg(most)), d, x);
    } else {
        const hn::Rebind<T, Lanes> narrow;
        auto limit = hn::DemoteTo(narrow, most);
        // Where the ceiling was rounded up, the next lower float will do.
        const auto over = hn::DemoteTo(
            narrow, hn::IfThenElseZero(hn::Gt(hn::PromoteTo(d, limit), most),
                                       hn::Set(d, double(std::numeric_limits<T>::epsilon()))));
        limit = hn::Sub(limit, hn::Mul(limit, over));
        const auto out = hn::DemoteTo(narrow, y);
        hn::StoreU(hn::Max(hn::Min(out, limit), hn::Neg(limit)), narrow, x);
    }
}

template <typename T>
HWY_INLINE void put(const double* v, const double* gain, const double* scale, const double* ceiling,
                    T* x, int n)
{
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        putLanes(D(), v + i, gain ? gain + i : nullptr, scale + i, ceiling + i, x + i);
    for (; i < n; ++i)
        putLanes(One(), v + i, gain ? gain + i : nullptr, scale + i, ceiling + i, x + i);
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
void putFloat(const double* v, const double* gain, const double* scale, const double* ceiling,
              float* x, int n)
{
    put(v, gain, scale, ceiling, x, n);
}
void putDouble(const double* v, const double* gain, const double* scale, const double* ceiling,
               double* x, int n)
{
    put(v, gain, scale, ceiling, x, n);
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
using Put = void (*)(const double*, const double*, const double*, const double*, T*, int);

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
void putOut(const double* v, const double* gain, const double* scale, const double* ceiling,
            float* x, int n) noexcept
{
    putFloatBest(v, gain, scale, ceiling, x, n);
}
template <>
void putOut(const double* v, const double* gain, const double* scale, const double* ceiling,
            double* x, int n) noexcept
{
    putDoubleBest(v, gain, scale, ceiling, x, n);
}

}  // namespace quillworks
#endif
