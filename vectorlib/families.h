// SPDX-License-Identifier: ISC
// The source files the kernels are spread over; each binds the names it knows.
#pragma once
#include "vectorlib/vector_library.h"

namespace DSP::VectorLib {

/// Each fills the slots of `entry` and returns true if its name is one of the family.
bool bindArithmetic(VectorOpTableEntryRaw* entry, int permitted);
bool bindGains(VectorOpTableEntryRaw* entry, int permitted);
bool bindMixes(VectorOpTableEntryRaw* entry, int permitted);
bool bindLimits(VectorOpTableEntryRaw* entry, int permitted);
bool bindMeters(VectorOpTableEntryRaw* entry, int permitted);

}  // namespace DSP::VectorLib
