// SPDX-License-Identifier: ISC
// Kernels that clamp, compare and take magnitudes.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/limits.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/kernel-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {
namespace {

VECTORLIB_LIMITS(VECTORLIB_TYPED_LAW, VECTORLIB_MIXED_LAW)
constexpr Row kRows[] = {VECTORLIB_LIMITS(VECTORLIB_TYPED_ROW, VECTORLIB_MIXED_ROW)};

bool limits(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kRows, entry);
}

}  // namespace
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
