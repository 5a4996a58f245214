// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "analysis/band_kernels.cpp"
#include "dsp/simd.h"
//
#include "analysis/band_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

void runBands(const BandRun& run, const float* x, int n)
{
    const hn::CappedTag<double, kBandLanes> d;
    using V = hn::Vec<decltype(d)>;
    const V keep = hn::Set(d, run.keep), take = hn::Set(d, run.take);
    for (int at = 0; at < run.lanes; at += static_cast<int>(hn::Lanes(d))) {
        const V gain = hn::LoadU(d, run.gain + at);
        V a1[3], a2[3], z1[3], z2[3];
        for (int s = 0; s < 3; ++s) {
            a1[s] = hn::LoadU(d, run.a1[s] + at);
            a2[s] = hn::LoadU(d, run.a2[s] + at);
            z1[s] = hn::LoadU(d, run.z1[s] + at);
            z2[s] = hn::LoadU(d, run.z2[s] + at);
        }
        V power = hn::LoadU(d, run.power + at), highest = hn::LoadU(d, run.highest + at);
        for (int i = 0; i < n; ++i) {
            V in = hn::Mul(gain, hn::Set(d, static_cast<double>(x[i])));
            for (int s = 0; s < 3; ++s) {
                const V y = hn::Add(in, z1[s]);
                z1[s] = hn::NegMulAdd(a1[s], y, z2[s]);
                z2[s] = hn::NegMulSub(a2[s], y, in);
                in = y;
            }
            power = hn::MulAdd(keep, power, hn::Mul(take, hn::Mul(in, in)));
            highest = hn::Max(highest, power);
        }
        for (int s = 0; s < 3; ++s) {
            hn::StoreU(z1[s], d, run.z1[s] + at);
            hn::StoreU(z2[s], d, run.z2[s] + at);
        }
        hn::StoreU(power, d, run.power + at);
        hn::StoreU(highest, d, run.highest + at);
    }
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(runBands);
void (*const runBands)(const BandRun&, const float*, int) = SIMD_CHOOSE(runBands);

}  // namespace quillworks
#endif
