// SPDX-License-Identifier: ISC
// Kernels that copy, convert, add, subtract and multiply.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "vectorlib/arithmetic.cpp"
#include "vectorlib/instruction_sets.h"
//
#include "vectorlib/families.h"
#include "vectorlib/operations-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {

using FloatToDouble = Types<double, float, double>;
using DoubleToFloat = Types<float, double, double>;

constexpr Row kArithmetic[] = {
    row<Same, C1>("opSet", "_d1_c1_num"),
    row<Same, S1>("opCopy", "_d1_s1_num"),
    row<Add, Dest, S1>("opAddInplace", "_d1_s1_num"),
    row<Sub, Dest, S1>("opSubInplace", "_d1_s1_num"),
    row<Mul, Dest, S1>("opMulInplace", "_d1_s1_num"),
    row<Add, S1, S2>("opAddCopy", "_d1_s1_s2_num"),
    row<Sub, S1, S2>("opSubCopy", "_d1_s1_s2_num"),
    row<Mul, S1, S2>("opMulCopy", "_d1_s1_s2_num"),
    mixedRow<Same, FloatToDouble, S1>("opFloatToDouble_d1_s1_num"),
    mixedRow<Same, DoubleToFloat, S1>("opDoubleToFloat_d1_s1_num"),
    mixedRow<Mul, FloatToDouble, S1, C1>("opFloatToDoubleGain_d1_s1_c1_num"),
    mixedRow<Mul, DoubleToFloat, S1, C1>("opDoubleToFloatGain_d1_s1_c1_num"),
    row<Zero>("opClear", "_d1_s0_c0"),
};

bool arithmetic(VectorOpTableEntryRaw* entry)
{
    return bindAmong(kArithmetic, entry);
}

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
