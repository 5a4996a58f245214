// SPDX-License-Identifier: ISC
// Kernels that apply constant gains and gain ramps.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/gains.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/kernel-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {
namespace {

VECTORLIB_GAINS(VECTORLIB_TYPED_LAW, VECTORLIB_MIXED_LAW)
constexpr Row kRows[] = {VECTORLIB_GAINS(VECTORLIB_TYPED_ROW, VECTORLIB_MIXED_ROW)};

bool gains(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kRows, entry);
}

}  // namespace
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
