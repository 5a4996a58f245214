// SPDX-License-Identifier: ISC
// The list of the block operations: what they are called, what they take and what they compute.
#pragma once

namespace DSP::VectorLib {

/// What an operation does with the values of its law: store them, or find the largest magnitude of
/// them, 0 or more, NaNs passed over, or both.
enum class Result { Stores, Meters, StoresAndMeters };

}  // namespace DSP::VectorLib

/// VECTORLIB_OPERATIONS(TYPED, MIXED): one row per operation, in the order of the table. The
/// kernels, the table that they are bound to (dsp/vector_table.h), its typed front (dsp/vec.h), the
/// scalar loops they are timed against and their tests follow from these rows (in four parts, a
/// source file each):
///
///     TYPED(front, operation, operands, sources, constants, result, law)
///     MIXED(id, front, name, D, S, C, constants, law)
///
/// A typed row is an operation in both precisions: `operation` + "_float" or "_double" + `operands`
/// name its kernels. A mixed row has destination D, one source S and constants C.
///
/// The law gives element i from d, s1 and s2, elements i of destination and sources, the constants
/// c1 to c3, and g, the ramp that runs linearly from c1, the value before the block, to c2, which
/// the last element reaches exactly: g = c2 - (c2 - c1)/n (n - 1 - i). All are of the wider of the
/// types D and S. Products and sums are rounded one by one.
///
/// min(a, b) is a < b ? a : b and max(a, b) is a > b ? a : b, so that b wins over a NaN: clamping
/// turns a NaN into the limit. larger(a, b) is the one of larger magnitude, with its sign, a if
/// they are equal; b wins over a NaN.
// clang-format off
#define VECTORLIB_ARITHMETIC(TYPED, MIXED) \
    TYPED(set,             "opSet",           "_d1_c1_num",    0, 1, Stores, c1) \
    TYPED(copy,            "opCopy",          "_d1_s1_num",    1, 0, Stores, s1) \
    TYPED(addInplace,      "opAddInplace",    "_d1_s1_num",    1, 0, Stores, d + s1) \
    TYPED(subInplace,      "opSubInplace",    "_d1_s1_num",    1, 0, Stores, d - s1) \
    TYPED(mulInplace,      "opMulInplace",    "_d1_s1_num",    1, 0, Stores, d * s1) \
    TYPED(addCopy,         "opAddCopy",       "_d1_s1_s2_num", 2, 0, Stores, s1 + s2) \
    TYPED(subCopy,         "opSubCopy",       "_d1_s1_s2_num", 2, 0, Stores, s1 - s2) \
    TYPED(mulCopy,         "opMulCopy",       "_d1_s1_s2_num", 2, 0, Stores, s1 * s2) \
    MIXED(convertToDouble, convert, "opFloatToDouble_d1_s1_num", double, float, double, 0, s1) \
    MIXED(convertToFloat,  convert, "opDoubleToFloat_d1_s1_num", float, double, double, 0, s1) \
    MIXED(scaleToDouble,   convertScaled, "opFloatToDoubleGain_d1_s1_c1_num", double, float, double, 1, s1 * c1) \
    MIXED(scaleToFloat,    convertScaled, "opDoubleToFloatGain_d1_s1_c1_num", float, double, double, 1, s1 * c1)
#define VECTORLIB_GAINS(TYPED, MIXED) \
    TYPED(scaleCopy,       "opMulConstConst", "_d1_s1_c1",     1, 1, Stores, s1 * c1) \
    TYPED(scale,           "opMulConst",      "_d1_s0_c1",     0, 1, Stores, d * c1) \
    TYPED(addConst,        "opAddConst",      "_d1_s0_c1",     0, 1, Stores, d + c1) \
    TYPED(rampGain,        "opBlend",         "_d1_s0_c2",     0, 2, Stores, d * g) \
    TYPED(rampGainCopy,    "opBlendCopy",     "_d1_s1_c2",     1, 2, Stores, s1 * g) \
    TYPED(ramp,            "opRamp",          "_d1_s0_c2",     0, 2, Stores, g) \
    TYPED(addRampGain,     "opAddBlended",    "_d1_s1_c2",     1, 2, Stores, d + s1 * g)
#define VECTORLIB_MIXES(TYPED, MIXED) \
    TYPED(addScaled,       "opAddScaled",     "_d1_s1_c1",     1, 1, Stores, d + s1 * c1) \
    TYPED(addScaledCopy,   "opAddScaled",     "_d1_s2_c1",     2, 1, Stores, s1 + s2 * c1) \
    TYPED(mixScaled,       "opAddScaled",     "_d1_s2_c2",     2, 2, Stores, s1 * c1 + s2 * c2) \
    TYPED(addScale,        "opAddScale",      "_d1_s2_c1",     2, 1, Stores, (s1 + s2) * c1) \
    TYPED(subScale,        "opSubScale",      "_d1_s2_c1",     2, 1, Stores, (s1 - s2) * c1) \
    TYPED(complement,      "opComplement",    "_d1_s0_c1",     0, 1, Stores, c1 - d)
#define VECTORLIB_LIMITS(TYPED, MIXED) \
    TYPED(offsetRange,     "opOffRanged",     "_d1_s0_c3",     0, 3, Stores, min(max(d + c1, c2), c3)) \
    TYPED(offsetRangeCopy, "opOffRanged",     "_d1_s1_c3",     1, 3, Stores, min(max(s1 + c1, c2), c3)) \
    TYPED(clampMax,        "opClampMax",      "_d1_s0_c1",     0, 1, Stores, min(d, c1)) \
    TYPED(clampMin,        "opClampMin",      "_d1_s0_c1",     0, 1, Stores, max(d, c1)) \
    TYPED(max,             "opMax",           "_d1_s1_c0",     1, 0, Stores, max(d, s1)) \
    TYPED(min,             "opMin",           "_d1_s1_c0",     1, 0, Stores, min(d, s1)) \
    TYPED(maxAbsCopy,      "opMaxAbs",        "_d1_s2_c0",     2, 0, Stores, max(abs(s1), abs(s2))) \
    TYPED(maxAbs,          "opMaxAbs",        "_d1_s1_c0",     1, 0, Stores, max(d, abs(s1))) \
    TYPED(absMaxCopy,      "opAbsMax",        "_d1_s2_c0",     2, 0, Stores, larger(s1, s2)) \
    TYPED(absMax,          "opAbsMax",        "_d1_s1_c0",     1, 0, Stores, larger(d, s1)) \
    TYPED(absCopy,         "opAbsCopy",       "_d1_s1_c0",     1, 0, Stores, abs(s1)) \
    TYPED(abs,             "opAbsInplace",    "_d1_s0_c0",     0, 0, Stores, abs(d)) \
    TYPED(negateCopy,      "opSign",          "_d1_s1_c0",     1, 0, Stores, negative(s1)) \
    TYPED(clear,           "opClear",         "_d1_s0_c0",     0, 0, Stores, zero)
#define VECTORLIB_METERS(TYPED, MIXED) \
    MIXED(addScaledDouble, addScaled, "opAddScaled_df1_sd1_cf1", float, double, float, 1, d + s1 * c1) \
    MIXED(addScaledFloat,  addScaled, "opAddScaled_dd1_sf1_cf1", double, float, float, 1, d + s1 * c1) \
    TYPED(peak,            "opVu",            "_d1_s0_c0_o1",  0, 0, Meters, d) \
    TYPED(rampGainPeak,    "opGainVu",        "_d1_s0_c2_o1",  0, 2, StoresAndMeters, d * g) \
    TYPED(gainPeak,        "opGainVu",        "_d1_s0_c1_o1",  0, 1, StoresAndMeters, d * c1)
#define VECTORLIB_OPERATIONS(TYPED, MIXED) \
    VECTORLIB_ARITHMETIC(TYPED, MIXED) \
    VECTORLIB_GAINS(TYPED, MIXED) \
    VECTORLIB_MIXES(TYPED, MIXED) \
    VECTORLIB_LIMITS(TYPED, MIXED) \
    VECTORLIB_METERS(TYPED, MIXED)
// clang-format on

/// VECTORLIB_OPERATIONS(VECTORLIB_TYPED_LAW, VECTORLIB_MIXED_LAW) defines a class per operation,
/// addCopyLaw and so on, whose function `of` is the law; in a scope that has min, max, abs, larger
/// and negative for the numbers or vectors it is to work on.
#define VECTORLIB_TYPED_LAW(front, operation, operands, sources, constants, result, law)           \
    VECTORLIB_LAW(front, law)
#define VECTORLIB_MIXED_LAW(id, front, name, D, S, C, constants, law) VECTORLIB_LAW(id, law)
#define VECTORLIB_LAW(id, law)                                                                     \
    struct id##Law {                                                                               \
        template <class V>                                                                         \
        [[gnu::always_inline]] static constexpr V                                                  \
        of([[maybe_unused]] V d, [[maybe_unused]] V s1, [[maybe_unused]] V s2,                     \
           [[maybe_unused]] V c1, [[maybe_unused]] V c2, [[maybe_unused]] V c3,                    \
           [[maybe_unused]] V g, [[maybe_unused]] V zero)                                          \
        {                                                                                          \
            return law;                                                                            \
        }                                                                                          \
    };
