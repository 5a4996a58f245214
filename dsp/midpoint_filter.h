// SPDX-License-Identifier: ISC
// Interpolation midway between two samples: each use of it doubles the rate.
#pragma once
#include <cmath>
#include <numbers>

namespace quillworks {

/// Half of a symmetric filter that gives the point midway between two samples.
template <int size> struct MidpointFilter {
    float tap[size];  // from the nearest pair of samples on
};

/// Modified Bessel function of order 0, by its series.
inline double bessel0(double x) noexcept
{
    double sum = 1, term = 1;
    for (int k = 1; k < 40; ++k) {
        term *= x * x / (4.0 * k * k);
        sum += term;
    }
    return sum;
}

/// Sinc under the window of Kaiser (1974), a gain of 1 for a constant.
template <int size> MidpointFilter<size> kaiserMidpoint(double beta) noexcept
{
    double tap[size], sum = 0;
    for (int k = 0; k < size; ++k) {
        const double t = k + 0.5, x = std::numbers::pi * t;
        const double u = t / size;
        sum += tap[k] = std::sin(x) / x * bessel0(beta * std::sqrt(1 - u * u)) / bessel0(beta);
    }
    MidpointFilter<size> h;
    for (int k = 0; k < size; ++k) h.tap[k] = static_cast<float>(tap[k] / (2 * sum));
    return h;
}

}  // namespace quillworks
