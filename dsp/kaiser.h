// SPDX-License-Identifier: ISC
// The Kaiser window, which all windowed-sinc filters here share.
#pragma once

#include <cmath>
#include <numbers>

namespace quillworks {

/// Modified Bessel function of the first kind, order 0, by its series.
inline double besselI0(double x) noexcept
{
    double sum = 1, term = 1;
    for (int k = 1; term > 1e-18 * sum; ++k) {
        term *= x * x / (4.0 * k * k);
        sum += term;
    }
    return sum;
}

/// Kaiser, "Nonrecursive digital filter design using the I0-sinh window function" (1974).
class KaiserWindow {
public:
    explicit KaiserWindow(double beta) noexcept : beta_(beta), middle_(besselI0(beta)) {}

    /// At `place` -1 .. 1 of the window's width; 1 in the middle, 0 outside.
    double operator()(double place) const noexcept
    {
        const double inside = 1 - place * place;
        return inside < 0 ? 0 : besselI0(beta_ * std::sqrt(inside)) / middle_;
    }

private:
    double beta_, middle_;
};

/// sin(pi x) / (pi x).
inline double sinc(double x) noexcept
{
    const double angle = std::numbers::pi * x;
    return x == 0 ? 1 : std::sin(angle) / angle;
}

}  // namespace quillworks
