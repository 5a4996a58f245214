// SPDX-License-Identifier: ISC
// Kernels that mix across precisions and measure peaks.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/meters.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/kernel-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {
namespace {

VECTORLIB_METERS(VECTORLIB_TYPED_LAW, VECTORLIB_MIXED_LAW)
constexpr Row kRows[] = {VECTORLIB_METERS(VECTORLIB_TYPED_ROW, VECTORLIB_MIXED_ROW)};

bool meters(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kRows, entry);
}

}  // namespace
}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace DSP::VectorLib {

HWY_EXPORT(meters);

bool bindMeters(VectorOpTableEntryRaw* entry, int permitted)
{
    const auto bind = chooseBuild(HWY_DISPATCH_TABLE(meters), permitted);
    return bind != nullptr && bind(entry);
}

}  // namespace DSP::VectorLib
#endif
