// SPDX-License-Identifier: ISC
// Kernels that add with constant gains.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/mixes.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/kernel-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {
namespace {

VECTORLIB_MIXES(VECTORLIB_TYPED_LAW, VECTORLIB_MIXED_LAW)
constexpr Row kRows[] = {VECTORLIB_MIXES(VECTORLIB_TYPED_ROW, VECTORLIB_MIXED_ROW)};

bool mixes(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kRows, entry);
}

}  // namespace
}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace DSP::VectorLib {

HWY_EXPORT(mixes);

bool bindMixes(VectorOpTableEntryRaw* entry, int permitted)
{
    const auto bind = chooseBuild(HWY_DISPATCH_TABLE(mixes), permitted);
    return bind != nullptr && bind(entry);
}

}  // namespace DSP::VectorLib
#endif
