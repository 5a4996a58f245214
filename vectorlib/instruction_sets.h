// SPDX-License-Identifier: ISC
// Builds the including source file once per instruction set, and chooses among the builds.
//
// No include guard around the first part: the file that defines HWY_TARGET_INCLUDE as its own name
// and includes this one is compiled again for each instruction set. See dsp/simd.h for an example.

// SSSE3 stands for the SSE2 class (Highway has no narrower x86 vectors; a processor without it
// runs the scalar build), then AVX2 with FMA, then AVX-512 F, BW, CD, DQ and VL.
#ifndef HWY_DISABLED_TARGETS
#define HWY_DISABLED_TARGETS (HWY_SSE4 | HWY_AVX3_DL)
#endif
#include <hwy/foreach_target.h>
//
#include <hwy/highway.h>

#ifndef QUILLWORKS_VECTORLIB_INSTRUCTION_SETS_H
#define QUILLWORKS_VECTORLIB_INSTRUCTION_SETS_H

#include <hwy/targets.h>

#include "vectorlib/vector_library.h"

namespace DSP::VectorLib {

/// The best permitted build of the function whose table HWY_EXPORT made, or null if the processor
/// has none of the permitted sets. Safe during static initialisation.
template <class Function, std::size_t size>
Function chooseBuild(Function const (&builds)[size], int permitted = kPermitAll)
{
    if constexpr (size == 1) {  // a build for the plainest processor alone
        return (permitted & (kPermitScalar | kPermitSse2)) != 0 ? builds[0] : nullptr;
    } else {
        const std::int64_t targets = availableTargets(permitted);
        if (targets == 0) return nullptr;
        hwy::ChosenTarget chosen;
        chosen.Update(targets);
        return builds[chosen.GetIndex()];
    }
}

}  // namespace DSP::VectorLib
#endif
