// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/pair_power.cpp"
#include "dsp/simd.h"
//
#include "dsp/pair_power.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

template <typename T> void sumProducts(const T* x, const T* y, PairSums<T>& sums)
{
    const hn::CappedTag<T, kPairSums> d;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(hn::CappedTag<T, kPairSums>()));
    for (int k = 0; k < kPairSums; k += lanes) {
        const auto a = hn::LoadU(d, x + k), b = hn::LoadU(d, y + k);
        auto xx = hn::Mul(a, a), yy = hn::Mul(b, b), xy = hn::Mul(a, b);
        for (int i = k + kPairSums; i < kSubBlock; i += kPairSums) {
            const auto c = hn::LoadU(d, x + i), e = hn::LoadU(d, y + i);
            xx = hn::Add(xx, hn::Mul(c, c));
            yy = hn::Add(yy, hn::Mul(e, e));
            xy = hn::Add(xy, hn::Mul(c, e));
        }
        hn::StoreU(xx, d, sums.xx + k);
        hn::StoreU(yy, d, sums.yy + k);
        hn::StoreU(xy, d, sums.xy + k);
    }
}

void sumFloats(const float* x, const float* y, PairSums<float>& sums)
{
    sumProducts(x, y, sums);
}
void sumDoubles(const double* x, const double* y, PairSums<double>& sums)
{
    sumProducts(x, y, sums);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(sumFloats);
HWY_EXPORT(sumDoubles);

template <>
void (*const PairSums<float>::ofSubBlock)(const float*, const float*,
                                          PairSums<float>&) = SIMD_CHOOSE(sumFloats);
template <>
void (*const PairSums<double>::ofSubBlock)(const double*, const double*,
                                           PairSums<double>&) = SIMD_CHOOSE(sumDoubles);

}  // namespace quillworks
#endif
