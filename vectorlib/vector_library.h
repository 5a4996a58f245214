// SPDX-License-Identifier: ISC
// The vector library: block kernels found by name, each built for several instruction sets.
#pragma once
#include <cstdint>

namespace DSP::VectorLib {

/// What the library says about itself.
struct LibraryInfo {
    std::int32_t version;           // of the names and calling forms
    const char* callingConvention;  // of the kernels; "vectorcall" here stands for the plain C one
};

using RawKernel = void (*)();

/// One operation: its name and, once bound, its kernels. Slot k is for element counts whose
/// remainder modulo 16 is k; slots 16 to 31 repeat the first 16.
///
/// A kernel takes the destination, the sources in order, pointers to the constants in order, the
/// pointer to its result if it has one, and the element count (std::int32_t, at least 1). It may
/// work in place (destination equal to a source), accepts any element offset, touches nothing
/// outside [0, count), and equals the scalar formula bit for bit on every instruction set.
struct VectorOpTableEntryRaw {
    const char* name;
    RawKernel slots[32];
};

/// Instruction sets a caller permits, as a bit set; the best one the processor has is taken.
enum Permitted : int {
    kPermitSse2 = 1,  // SSE2 class: the code that runs on every x86-64 processor
    kPermitAvx2 = 2,
    kPermitAvx512 = 4,
    kPermitScalar = 8,  // part of the SSE2 class too: for processors without SSSE3
    kPermitAll = -1,
};

/// Highway's targets that `permitted` and the environment allow and this processor has; 0 if there
/// are none. QUILLWORKS_SIMD in the environment, "scalar", "sse2", "avx2" or "avx512", names
/// the best set allowed: the tests run with each, and a user may find out whether a fault comes
/// from one. Read once, when the first choice is made. Safe during static initialisation.
std::int64_t availableTargets(int permitted);

/// Fills `info`. The description does not depend on the instruction sets permitted.
void vectorLibraryInfo(LibraryInfo* info, int permitted);

/// Fills the slots of `entry` with the kernels of its name. False, with the entry unchanged, if
/// there is no such operation or the processor has none of the permitted instruction sets.
bool vectorLibraryBindFunction(VectorOpTableEntryRaw* entry, int permitted);

}  // namespace DSP::VectorLib
