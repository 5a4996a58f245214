// SPDX-License-Identifier: ISC
// The curves of the pack's distortions.
#pragma once

#include <cmath>

#include "dsp/clip_shapes.h"

namespace quillworks {

/// f(x) with the slope 1 at 0 and within +-1.
enum class Saturation {
    Warm,  // x / sqrt(1 + x^2)
    Soft,  // the cubic of 2 x / 3, at +-1 from |x| = 1.5 on
    Hard,  // limited to +-1
    Tube,  // as Warm above 0, x / sqrt(1 + 4 x^2) below
    Fold   // sin x
};
inline constexpr int kSaturations = 5;

template <typename T> T saturate(Saturation curve, T x) noexcept
{
    using enum Saturation;
    switch (curve) {
    case Soft:
        return clip<ClipShape::Cubic>(x * T(2.0 / 3));
    case Hard:
        return clip<ClipShape::Hard>(x);
    case Tube:
        return x < 0 ? T(0.5) * clip<ClipShape::Root>(2 * x) : clip<ClipShape::Root>(x);
    case Fold:
        return std::sin(x);
    default:
        return clip<ClipShape::Root>(x);
    }
}

}  // namespace quillworks
