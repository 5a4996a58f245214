// SPDX-License-Identifier: ISC
// From the unit a user sees to the value an algorithm works with.
#pragma once

#include <cmath>

namespace quillworks {

/// Applied by the component when it forwards a value.
using Conversion = float (*)(float);

namespace conversion {

inline float asIs(float x)
{
    return x;
}
/// Decibels to linear factor, 10^(dB / 20).
inline float decibels(float db)
{
    return static_cast<float>(std::pow(10.0, double(db) * 0.05));
}
/// The same, and exactly 0 at and below `min` dB: for rows whose lower end says "Off".
template <int min> float decibelsOffAt(float db)
{
    return db <= static_cast<float>(min) ? 0 : decibels(db);
}
/// Milliseconds to seconds.
inline float milliseconds(float ms)
{
    return ms * 0.001f;
}
/// Percent to fraction.
inline float percent(float x)
{
    return x * 0.01f;
}
/// Ratio R to slope S = 1 - 1/R.
inline float ratioToSlope(float r)
{
    return 1 - 1 / r;
}

}  // namespace conversion
}  // namespace quillworks
