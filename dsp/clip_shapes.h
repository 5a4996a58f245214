// SPDX-License-Identifier: ISC
// Static clipping curves: odd, monotone, within +-1.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {

/// f(y) for y >= 0, with its slope at 0; f(-y) = -f(y).
enum class ClipShape {
    Parabola,    // (2 - y) y, 1 from y = 1 on; slope 2
    Rational,    // y (27 + y^2) / (27 + 9 y^2), 1 from y = 3 on: the tanh of Lambert's fraction; 1
    Hard,        // min(y, 1); slope 1
    Cubic,       // 1.5 y - 0.5 y^3, 1 from y = 1 on; slope 1.5
    Sine,        // sin(pi y / 2), 1 from y = 1 on; slope pi / 2
    Tanh,        // tanh y; slope 1
    Arctangent,  // (2 / pi) atan(pi y / 2); slope 1
    Root,        // y / sqrt(1 + y^2); slope 1
    Exponential  // 1 - exp(-y); slope 1
};
inline constexpr int kClipShapes = 9;

/// f(y) of one shape. NaN stays NaN.
template <ClipShape shape, typename T> T clip(T y) noexcept
{
    using enum ClipShape;
    [[maybe_unused]] constexpr T halfPi = std::numbers::pi_v<T> / 2;
    // The shapes that end at a finite y are 1 there with the formula itself: limiting y is enough.
    [[maybe_unused]] const auto within = [y](T end) { return std::clamp(y, -end, end); };
    if constexpr (shape == Parabola) {
        const T x = within(1);
        return (2 - std::abs(x)) * x;
    } else if constexpr (shape == Rational) {
        const T x = within(3);
        // Rounding may pass 1 just below y = 3.
        return std::clamp(x * (27 + x * x) / (27 + 9 * x * x), T(-1), T(1));
    } else if constexpr (shape == Hard) {
        return within(1);
    } else if constexpr (shape == Cubic) {
        const T x = within(1);
        return T(1.5) * x - T(0.5) * x * x * x;
    } else if constexpr (shape == Sine) {
        return std::sin(halfPi * within(1));
    } else if constexpr (shape == Tanh) {
        return std::tanh(y);
    } else if constexpr (shape == Arctangent) {
        return std::atan(halfPi * y) / halfPi;
    } else if constexpr (shape == Root) {
        return y / std::sqrt(1 + y * y);
    } else {
        return std::copysign(-std::expm1(-std::abs(y)), y);
    }
}

/// A shape between an input and an output scale: post * f(pre * x), x limited to +-3 first.
template <typename T> struct ClipCurve {
    T pre = 1, post = 1;  // linear gains

    template <ClipShape shape> T apply(T x) const noexcept
    {
        return post * clip<shape>(pre * std::clamp(x, T(-3), T(3)));
    }
    /// The same for a block, in place.
    template <ClipShape shape> void apply(T* x, int n) const noexcept
    {
        for (int i = 0; i < n; ++i) x[i] = apply<shape>(x[i]);
    }
    /// With a shape chosen while running.
    void apply(ClipShape shape, T* x, int n) const noexcept
    {
        using enum ClipShape;
        switch (shape) {
        case Parabola:
            return apply<Parabola>(x, n);
        case Rational:
            return apply<Rational>(x, n);
        case Hard:
            return apply<Hard>(x, n);
        case Cubic:
            return apply<Cubic>(x, n);
        case Sine:
            return apply<Sine>(x, n);
        case Tanh:
            return apply<Tanh>(x, n);
        case Arctangent:
            return apply<Arctangent>(x, n);
        case Root:
            return apply<Root>(x, n);
        case Exponential:
            return apply<Exponential>(x, n);
        }
    }
};

}  // namespace quillworks
