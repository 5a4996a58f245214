// SPDX-License-Identifier: ISC
#include "dsp/lfo.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks {
namespace {

constexpr double kPhaseRange = 256.0 * 16777216.0;  // table steps times fractions of a step: 2^32

/// Entry `i` (0 .. 255) of the shapes that are formulas. Triangle and sine start at 0 rising.
double formula(LfoShape shape, int i)
{
    switch (shape) {
    case LfoShape::Triangle:
        if (i < 64) return i / 64.0;
        return i < 192 ? (128 - i) / 64.0 : (i - 256) / 64.0;
    case LfoShape::Sine:
        return std::sin(i * 0.024543693);  // 2 pi / 256
    case LfoShape::Sawtooth:
        return i * 0.0078125 - 1;
    default:
        return i < 128 ? 1 : -1;
    }
}

}  // namespace

void LfoPhase::rescale(double from, double to) noexcept
{
    if (!(from > 0 && to > 0)) return;
    // A rate near half the old control rate may not fit the new one; modulo 2^32 is where it lands.
    const double scaled = std::fmod(std::trunc(increment * from / to), kPhaseRange);
    increment = static_cast<std::uint32_t>(scaled);
}

void LfoTable::select(int shape) noexcept
{
    if (shape < 0 || shape > static_cast<int>(LfoShape::SmoothSteps)) return;
    if (shape == static_cast<int>(shape_)) return;
    shape_ = static_cast<LfoShape>(shape);
    rebuild();
}

void LfoTable::setSteps(std::span<const float, kSteps> steps) noexcept
{
    std::copy(steps.begin(), steps.end(), steps_.begin());
}

void LfoTable::rebuild() noexcept
{
    const bool isStepped = shape_ >= LfoShape::Steps;
    for (std::size_t i = 0; i < 256; ++i)
        wave_[i] =
            isStepped ? steps_[i >> 4] : static_cast<float>(formula(shape_, static_cast<int>(i)));
    // The sine's last entry is the sine of the rounded step, not exactly 0: continuous to the end.
    wave_[256] = shape_ == LfoShape::Sine ? static_cast<float>(formula(shape_, 256)) : wave_[0];
    std::transform(wave_.begin(), wave_.end(), wave16_.begin(), [](float x) {
        // Steps may leave -1 .. 1; in this order a not-a-number does not survive either.
        const double level = std::max(-1.0, std::min(1.0, static_cast<double>(x)));
        return static_cast<std::int16_t>(level * 32767);
    });
}

std::uint32_t LfoTable::increment(double hertz) const noexcept
{
    if (!(hertz > 0 && controlRate_ > 0)) return 0;  // not-a-number stands still too
    const double rate = std::min(hertz, controlRate_ * 0.5);
    return static_cast<std::uint32_t>(rate * 256 / controlRate_ * 16777216);
}

double LfoTable::smoothStepsHalfLife(double hertz) const noexcept
{
    if (!(hertz > 0)) return std::numeric_limits<double>::infinity();
    return std::max(1.0, std::trunc(controlRate_ / (32 * hertz)));
}

}  // namespace quillworks
