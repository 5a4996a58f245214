// SPDX-License-Identifier: ISC
// The table of named block kernels, bound once to the vector library. Call through dsp/vec.h.
#pragma once
#include "vectorlib/vector_library.h"

namespace quillworks {

/// The operations by the index of their float entry; the double entry follows it, except where the
/// types are part of the operation (conversions, mixed precision).
enum class VectorOp : int {
    Set = 0,
    Copy = 2,
    AddInplace = 4,
    SubInplace = 6,
    MulInplace = 8,
    AddCopy = 10,
    SubCopy = 12,
    MulCopy = 14,
    FloatToDouble = 16,
    DoubleToFloat = 17,
    FloatToDoubleGain = 18,
    DoubleToFloatGain = 19,
    ScaleCopy = 20,
    Scale = 22,
    AddConst = 24,
    RampGain = 26,
    RampGainCopy = 28,
    Ramp = 30,
    AddRampGain = 32,
    AddScaled = 34,
    AddScaledCopy = 36,
    MixScaled = 38,
    AddScale = 40,
    SubScale = 42,
    Complement = 44,
    OffsetRange = 46,
    OffsetRangeCopy = 48,
    ClampMax = 50,
    ClampMin = 52,
    Max = 54,
    Min = 56,
    MaxAbsCopy = 58,
    MaxAbs = 60,
    AbsMaxCopy = 62,
    AbsMax = 64,
    AbsCopy = 66,
    Abs = 68,
    NegateCopy = 70,
    Clear = 72,
    AddScaledFromDouble = 74,
    AddScaledFromFloat = 75,
    Peak = 76,
    RampGainPeak = 78,
    GainPeak = 80,
};

inline constexpr int kVectorOps = 82;

struct VectorTable {
    DSP::VectorLib::VectorOpTableEntryRaw entries[kVectorOps];  // names set, slots null until bound
    bool bound;                                                 // all entries have their kernels
};

/// An unbound table: all names in their order.
VectorTable makeVectorTable();

/// The process's table. Bound before the first ordinary static initialisation of this binary runs;
/// read-only from then on.
extern VectorTable vectorTable;

using LibraryInfoFunction = void (*)(DSP::VectorLib::LibraryInfo*, int);
using LibraryBindFunction = bool (*)(DSP::VectorLib::VectorOpTableEntryRaw*, int);

/// Binds `table` to the library of the two functions, once: a bound table stays as it is. A library
/// of another version than 1 or another calling convention than "vectorcall" binds nothing; one
/// that lacks a name binds the entries before it. `table.bound` tells whether all are bound. [main
/// thread, before any audio]
void bindVectorTable(VectorTable& table, LibraryInfoFunction info, LibraryBindFunction bind);

}  // namespace quillworks
