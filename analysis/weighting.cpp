// SPDX-License-Identifier: ISC
#include "analysis/weighting.h"

#include <cmath>

namespace quillworks {
namespace {

double unscaled(Weighting weighting, double f)
{
    // Poles in Hz, as IEC 61672-1 derives them; the last is B's.
    constexpr double f1 = 20.598997, f2 = 107.65265, f3 = 737.86223, f4 = 12194.217, f5 = 158.48932;
    const double s = f * f;
    const double c = f4 * f4 * s / ((s + f1 * f1) * (s + f4 * f4));
    switch (weighting) {
    case Weighting::A:
        return c * s / std::sqrt((s + f2 * f2) * (s + f3 * f3));
    case Weighting::B:
        return c * f / std::sqrt(s + f5 * f5);
    case Weighting::C:
        return c;
    default:
        return 1;
    }
}

}  // namespace

double weightingGain(Weighting weighting, double frequency) noexcept
{
    return unscaled(weighting, frequency) / unscaled(weighting, 1000);
}

}  // namespace quillworks
