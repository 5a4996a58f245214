// SPDX-License-Identifier: ISC
// One-poles among second-order sections, so that they run in the lanes of a SectionChain.
#pragma once

#include "dsp/section.h"

namespace quillworks {

/// The section that does what the one-pole does; its first state stays 0.
template <typename T> SectionCoefficients<T> asSection(const OnePoleCoefficients<T>& c) noexcept
{
    return {.r = 0, .b1 = 0, .b2 = c.b, .c1 = 0, .c2 = c.l, .d = c.h};
}

}  // namespace quillworks
