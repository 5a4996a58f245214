// SPDX-License-Identifier: ISC
// Kernels that fill, copy, convert, add, subtract and multiply.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/arithmetic.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/kernel-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {
namespace {

VECTORLIB_ARITHMETIC(VECTORLIB_TYPED_LAW, VECTORLIB_MIXED_LAW)
constexpr Row kRows[] = {VECTORLIB_ARITHMETIC(VECTORLIB_TYPED_ROW, VECTORLIB_MIXED_ROW)};

bool arithmetic(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kRows, entry);
}

}  // namespace
}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace DSP::VectorLib {

HWY_EXPORT(arithmetic);

bool bindArithmetic(VectorOpTableEntryRaw* entry, int permitted)
{
    const auto bind = chooseBuild(HWY_DISPATCH_TABLE(arithmetic), permitted);
    return bind != nullptr && bind(entry);
}

}  // namespace DSP::VectorLib
#endif
