// SPDX-License-Identifier: ISC
// Kernels that apply constant gains and gain ramps, and mix with them.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/gains.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/operations-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {

constexpr Row kGains[] = {
    row<Mul, S1, C1>("opMulConstConst", "_d1_s1_c1"),
    row<Mul, Dest, C1>("opMulConst", "_d1_s0_c1"),
    row<Add, Dest, C1>("opAddConst", "_d1_s0_c1"),
    row<Mul, Dest, Ramp>("opBlend", "_d1_s0_c2"),
    row<Mul, S1, Ramp>("opBlendCopy", "_d1_s1_c2"),
    row<Same, Ramp>("opRamp", "_d1_s0_c2"),
    row<AddProduct, Dest, S1, Ramp>("opAddBlended", "_d1_s1_c2"),
    row<AddProduct, Dest, S1, C1>("opAddScaled", "_d1_s1_c1"),
    row<AddProduct, S1, S2, C1>("opAddScaled", "_d1_s2_c1"),
    row<AddProducts, S1, C1, S2, C2>("opAddScaled", "_d1_s2_c2"),
    row<ScaleSum, S1, S2, C1>("opAddScale", "_d1_s2_c1"),
    row<ScaleDifference, S1, S2, C1>("opSubScale", "_d1_s2_c1"),
    row<Sub, C1, Dest>("opComplement", "_d1_s0_c1"),
    mixedRow<AddProduct, Types<float, double, float>, Dest, S1, C1>("opAddScaled_df1_sd1_cf1"),
    mixedRow<AddProduct, Types<double, float, float>, Dest, S1, C1>("opAddScaled_dd1_sf1_cf1"),
};

bool gains(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kGains, entry);
}

}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace DSP::VectorLib {

HWY_EXPORT(gains);

bool bindGains(VectorOpTableEntryRaw* entry, int permitted)
{
    const auto bind = chooseBuild(HWY_DISPATCH_TABLE(gains), permitted);
    return bind != nullptr && bind(entry);
}

}  // namespace DSP::VectorLib
#endif
