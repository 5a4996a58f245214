// SPDX-License-Identifier: ISC
#include "editors/displays/waves.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks::editors {
namespace {

/// Noise by whole numbers: a value of -1 .. 1 for each.
double chance(int n) noexcept
{
    const double x = std::sin(n * 127.1 + 3.7) * 43758.5453;
    return 2 * (x - std::floor(x)) - 1;
}

double midTread(double x, double levels) noexcept
{
    return std::round(x * levels) / levels;
}

}  // namespace

double modulationWave(ModulationWave wave, double phase) noexcept
{
    const double whole = std::floor(phase), u = phase - whole;
    switch (wave) {
    case ModulationWave::Triangle:
        return u < 0.25 ? 4 * u : u < 0.75 ? 2 - 4 * u : 4 * u - 4;
    case ModulationWave::Sine:
        return std::sin(2 * std::numbers::pi * u);
    case ModulationWave::Sawtooth:
        return 2 * u - 1;
    case ModulationWave::Square:
        return u < 0.5 ? 1 : -1;
    default: {
        const double a = chance(static_cast<int>(whole)), b = chance(static_cast<int>(whole) + 1);
        return a + (b - a) * u * u * (3 - 2 * u);
    }
    }
}

double shaped(ShaperCurve curve, double x) noexcept
{
    const double limited = std::clamp(x, -1.0, 1.0);
    switch (curve) {
    case ShaperCurve::Warm:
        return x / std::sqrt(1 + x * x);
    case ShaperCurve::Soft: {  // a cubic that meets 1 with slope 0
        const double u = std::clamp(x / 1.5, -1.0, 1.0);
        return 1.5 * u - 0.5 * u * u * u;
    }
    case ShaperCurve::Hard:
        return limited;
    case ShaperCurve::Tube:
        return x / std::sqrt(1 + (x < 0 ? 4 : 1) * x * x);
    default:
        return std::sin(x);
    }
}

double quantised(QuantiserLaw law, double bits, double x) noexcept
{
    x = std::clamp(x, -1.0, 1.0);
    if (bits >= 24) return x;
    const double levels = std::exp2(bits - 1);
    switch (law) {
    case QuantiserLaw::MidTread:
        return midTread(x, levels);
    case QuantiserLaw::MidRise: {
        const double highest = 1 - 0.5 / levels;
        return std::clamp((std::floor(x * levels) + 0.5) / levels, -highest, highest);
    }
    default: {
        const double law255 = std::log(256.0);
        const double y = midTread(std::log1p(255 * std::abs(x)) / law255, levels);
        return std::copysign(std::expm1(y * law255) / 255, x);
    }
    }
}

}  // namespace quillworks::editors
