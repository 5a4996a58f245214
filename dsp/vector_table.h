// SPDX-License-Identifier: ISC
// The table of named block kernels, bound once to the vector library. Call through dsp/vec.h.
#pragma once
#include "vectorlib/operations.h"
#include "vectorlib/vector_library.h"

namespace quillworks {

/// The operations by the index of their entry: of the float one, which the double one follows,
/// except where the types are part of the operation (conversions, mixed precision).
enum class VectorOp : int {
#define TYPED(front, operation, operands, sources, constants, result, law) front, front##InDouble,
#define MIXED(id, front, name, D, S, C, constants, law) id,
    VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED
        Count
};

inline constexpr int kVectorOps = static_cast<int>(VectorOp::Count);

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
