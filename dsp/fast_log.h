// SPDX-License-Identifier: ISC
// Logarithm for displays, from the bits of a float.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace quillworks {

/// 20 log10(x) of a positive normal number within 0.05 dB: the exponent is the whole part of
/// log2(x) and a parabola over the fraction stands for the rest.
inline float fastDecibels(float x) noexcept
{
    const float bits = static_cast<float>(std::bit_cast<std::int32_t>(x)) * 1.1920929e-07f;
    const float whole = std::floor(bits), f = bits - whole;
    return (1.344f * f - 0.344f * f * f + whole - 127.0f) * 6.0206003f;
}

}  // namespace quillworks
