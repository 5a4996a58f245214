// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/warped_octaves.cpp"
#include "dsp/simd.h"
//
#include "dsp/section.h"
#include "dsp/vector_math-inl.h"
#include "dsp/warped_octaves.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// tan(a) for 0 <= a <= 0.45 pi, within 3e-13 of its value: Lambert's continued fraction to the
/// ninth order, with one division.
template <class D, class V = hn::Vec<D>> HWY_INLINE V tangent(D d, V a)
{
    const auto times = [&](V x, V s, double c) HWY_ATTR { return hn::MulAdd(x, s, hn::Set(d, c)); };
    const V s = hn::Mul(a, a);
    V up = hn::Add(s, hn::Set(d, -990));
    up = times(up, s, 135135);
    up = times(up, s, -4729725);
    up = times(up, s, 34459425);
    V down = hn::MulAdd(s, hn::Set(d, 45), hn::Set(d, -13860));
    down = times(down, s, 945945);
    down = times(down, s, -16216200);
    down = times(down, s, 34459425);
    return hn::Div(hn::Mul(a, up), down);
}

void warp(const double* octaves, double* hertz, double* g, int count, double sampleRate)
{
    const hn::CappedTag<double, 8> d;
    const auto toAngle = hn::Set(d, std::numbers::pi / sampleRate);
    const auto largest = hn::Set(d, std::numbers::pi * kHighestCutOff);
    for (int i = 0; i < count; i += static_cast<int>(hn::MaxLanes(d))) {
        const auto f = vec::HWY_NAMESPACE::ordinaryExponential(d, hn::LoadU(d, octaves + i), 1);
        hn::StoreU(f, d, hertz + i);
        hn::StoreU(tangent(d, hn::Min(hn::Mul(f, toAngle), largest)), d, g + i);
    }
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {
HWY_EXPORT(warp);
}  // namespace

void (*const warpOctaves)(const double*, double*, double*, int, double) = SIMD_CHOOSE(warp);

}  // namespace quillworks
#endif
