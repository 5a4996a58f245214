// SPDX-License-Identifier: ISC
// Which instruction sets may be chosen.
#include <hwy/targets.h>

#include <cstdlib>
#include <string_view>

#include "vectorlib/vector_library.h"

namespace DSP::VectorLib {
namespace {

/// The targets for a bit set of Permitted.
std::int64_t targetsOf(int permitted)
{
    std::int64_t targets = 0;
    if (permitted & kPermitScalar) targets |= HWY_SCALAR;
    if (permitted & kPermitSse2) targets |= HWY_SSSE3 | HWY_SCALAR;
    if (permitted & kPermitAvx2) targets |= HWY_AVX2;
    if (permitted & kPermitAvx512) targets |= HWY_AVX3;
    return targets;
}

int permittedByEnvironment()
{
    const char* const value = std::getenv("QUILLWORKS_SIMD");
    const std::string_view best = value == nullptr ? "" : value;
    if (best == "scalar") return kPermitScalar;
    if (best == "sse2") return kPermitScalar | kPermitSse2;
    if (best == "avx2") return kPermitScalar | kPermitSse2 | kPermitAvx2;
    return kPermitAll;
}

}  // namespace

std::int64_t availableTargets(int permitted)
{
    // Slow: asks the processor anew.
    static const std::int64_t available =
        (hwy::SupportedTargets() | HWY_SCALAR) & targetsOf(permittedByEnvironment());
    return targetsOf(permitted) & available;
}

}  // namespace DSP::VectorLib
