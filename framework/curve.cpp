// SPDX-License-Identifier: ISC
#include "framework/curve.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

/// Exponent e of value = min + (max - min) position^e that puts `middle` at one half.
double exponentFor(double middle, double min, double max)
{
    return std::log((middle - min) / (max - min)) / std::log(0.5);
}

}  // namespace

float Curve::toPosition(float value, float min, float max) const noexcept
{
    if (!(max > min)) return 0;
    const double v = std::clamp(value, min, max);
    const double lo = min, hi = max;
    const double linear = (v - lo) / (hi - lo);
    switch (law) {
    case Law::Logarithmic:
        return static_cast<float>(std::log(v / lo) / std::log(hi / lo));
    case Law::Middle:
        return static_cast<float>(std::pow(linear, 1 / exponentFor(middle, lo, hi)));
    case Law::Linear:
        break;
    }
    return static_cast<float>(linear);
}

float Curve::toValue(float position, float min, float max) const noexcept
{
    if (!(position > 0)) return min;  // not-a-number included
    if (position >= 1) return max;
    const double p = position, lo = min, hi = max;
    double v = lo + (hi - lo) * p;
    if (law == Law::Logarithmic) v = lo * std::pow(hi / lo, p);
    if (law == Law::Middle) v = lo + (hi - lo) * std::pow(p, exponentFor(middle, lo, hi));
    return std::clamp(static_cast<float>(v), min, max);
}

}  // namespace quillworks
