// SPDX-License-Identifier: ISC
// Second-order state-variable filter in trapezoidal integration (Zavalishin, "The Art of VA Filter
// Design", 2012).
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/section.h"

namespace quillworks {

/// Coefficients of the filter written as a state space: a sample changes the states by two products
/// each, which is the shortest chain from sample to sample.
struct SvfCoefficients {
    double a11 = 1, a12 = 0, a21 = 0, a22 = 1;  // state to next state
    double b1 = 0, b2 = 0;                      // input to next state
    double l1 = 0, l2 = 0, lx = 0;              // low-pass output
    double h1 = 0, h2 = 0, hx = 1;              // high-pass output

    /// Corner frequency in Hz, limited to 0.49 of the sample rate; quality Q.
    static SvfCoefficients at(double frequency, double sampleRate, double q) noexcept
    {
        const double g =
            std::tan(std::numbers::pi * std::min(frequency, 0.49 * sampleRate) / sampleRate);
        const double k = 1 / q;
        const double a1 = 1 / (1 + g * (g + k)), a2 = g * a1, a3 = g * a2;
        // v1 = a1 z1 + a2 (x - z2), v2 = z2 + a2 z1 + a3 (x - z2); z1' = 2 v1 - z1,
        // z2' = 2 v2 - z2; low-pass v2, high-pass x - k v1 - v2.
        SvfCoefficients c;
        c.a11 = 2 * a1 - 1, c.a12 = -2 * a2, c.b1 = 2 * a2;
        c.a21 = 2 * a2, c.a22 = 1 - 2 * a3, c.b2 = 2 * a3;
        c.l1 = a2, c.l2 = 1 - a3, c.lx = a3;
        c.h1 = -(k * a1 + a2), c.h2 = k * a2 - 1 + a3, c.hx = 1 - k * a2 - a3;
        return c;
    }
};

/// What one filter remembers. V is double, or a vector of doubles that runs several side by side.
/// The coefficients are SvfCoefficients, or a set under the same names spread to the width of V.
template <class V> struct SvfStateOf {
    V z1{}, z2{};

    template <class Coefficients> V lowPass(const Coefficients& c, V x) noexcept
    {
        const V y = c.l1 * z1 + c.l2 * z2 + c.lx * x;
        advance(c, x);
        return y;
    }
    template <class Coefficients> V highPass(const Coefficients& c, V x) noexcept
    {
        const V y = c.h1 * z1 + c.h2 * z2 + c.hx * x;
        advance(c, x);
        return y;
    }

private:
    template <class Coefficients> void advance(const Coefficients& c, V x) noexcept
    {
        const V next1 = c.a11 * z1 + (c.a12 * z2 + c.b1 * x);
        z2 = c.a22 * z2 + (c.a21 * z1 + c.b2 * x);
        z1 = next1;
    }
};

using SvfState = SvfStateOf<double>;

}  // namespace quillworks
