// SPDX-License-Identifier: ISC
#include "delay/diode_saturator.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/shared_tables.h"

namespace quillworks {
namespace {

constexpr double kCorner = 16000;  // Hz
constexpr double kCurrent = 0.02, kVoltage = 0.25;
constexpr double kRange = 32;  // of |p| in units of a: far above what a line can hold

/// v of (1 + a) v + a f(v) = p by Newton's method, from a start at or above the root, where the
/// curve is convex.
double solve(double a, double p, double start)
{
    double v = start;
    for (int i = 0; i < 100; ++i) {
        const double f = (1 + a) * v + a * kCurrent * std::sinh(v / kVoltage) - p;
        const double slope = 1 + a + a * kCurrent / kVoltage * std::cosh(v / kVoltage);
        const double step = f / slope;
        v -= step;
        if (std::abs(step) < 1e-14) break;
    }
    return v;
}

}  // namespace

void DiodeCircuit::prepare(double sampleRate)
{
    const double fc = std::min(kCorner, 0.45 * sampleRate);
    const double a = std::tan(std::numbers::pi * fc / sampleRate);
    const double range = kRange * a;
    const double steps = (kPoints - 1) / range;  // per unit of p
    input_ = static_cast<float>(a * steps);
    const double gain = 1 + kCurrent / kVoltage;  // undoes the diodes' loss on small signals
    output_ = static_cast<float>(gain / (2 * steps));
    lines_ =
        SharedTables<double, Lines>::instance().get(sampleRate, [&] { return solved(a, steps); });
}

DiodeCircuit::Lines DiodeCircuit::solved(double a, double steps)
{
    Lines lines;
    double v = 0;  // at p
    for (std::size_t i = 0; i + 1 < kPoints; ++i) {
        // The curve is nowhere steeper than without diodes: from the last root by that slope is
        // above the next.
        const double next = solve(a, double(i + 1) / steps, v + 1 / (steps * (1 + a)));
        const double slope = 2 * (next - v) * steps;
        lines[i] = {static_cast<float>(2 * v * steps - slope * double(i)),
                    static_cast<float>(slope)};
        v = next;
    }
    return lines;
}

}  // namespace quillworks
