// SPDX-License-Identifier: ISC
// Kernels that clamp, compare, take magnitudes and measure peaks.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/limits.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/operations-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {

constexpr Row kLimits[] = {
    row<OffsetRange, Dest, C1, C2, C3>("opOffRanged", "_d1_s0_c3"),
    row<OffsetRange, S1, C1, C2, C3>("opOffRanged", "_d1_s1_c3"),
    row<Min, Dest, C1>("opClampMax", "_d1_s0_c1"),
    row<Max, Dest, C1>("opClampMin", "_d1_s0_c1"),
    row<Max, Dest, S1>("opMax", "_d1_s1_c0"),
    row<Min, Dest, S1>("opMin", "_d1_s1_c0"),
    row<Max, Magnitude<S1>, Magnitude<S2>>("opMaxAbs", "_d1_s2_c0"),
    row<Max, Dest, Magnitude<S1>>("opMaxAbs", "_d1_s1_c0"),
    row<Larger, S1, S2>("opAbsMax", "_d1_s2_c0"),
    row<Larger, Dest, S1>("opAbsMax", "_d1_s1_c0"),
    row<Same, Magnitude<S1>>("opAbsCopy", "_d1_s1_c0"),
    row<Same, Magnitude<Dest>>("opAbsInplace", "_d1_s0_c0"),
    row<Negate, S1>("opSign", "_d1_s1_c0"),
    meterRow<Same, Result::Peak, Dest>("opVu", "_d1_s0_c0_o1"),
    meterRow<Mul, Result::StoreAndPeak, Dest, Ramp>("opGainVu", "_d1_s0_c2_o1"),
    meterRow<Mul, Result::StoreAndPeak, Dest, C1>("opGainVu", "_d1_s0_c1_o1"),
};

bool limits(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kLimits, entry);
}

}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace DSP::VectorLib {

HWY_EXPORT(limits);

bool bindLimits(VectorOpTableEntryRaw* entry, int permitted)
{
    const auto bind = chooseBuild(HWY_DISPATCH_TABLE(limits), permitted);
    return bind != nullptr && bind(entry);
}

}  // namespace DSP::VectorLib
#endif
