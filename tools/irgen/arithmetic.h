// SPDX-License-Identifier: ISC
// Elementary functions out of sums and products alone: their last bit is the same with every C
// library, and so are the files that are made with them.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "dsp/random.h"
#include "dsp/sine.h"

namespace quillworks::irgen {

/// sin(2 pi x), within 1e-11.
inline double sineOfTurns(double x) noexcept
{
    double part = x - std::floor(x);     // 0 .. 1
    if (part > 0.75) part -= 1;          // -0.25 .. 0.75
    if (part > 0.25) part = 0.5 - part;  // -0.25 .. 0.25
    return sinPi(2 * part);
}
inline double cosineOfTurns(double x) noexcept
{
    return sineOfTurns(x + 0.25);
}

/// The natural logarithm of a number above 0: 2 artanh((m - 1)/(m + 1)) of its mantissa.
inline double logarithm(double x) noexcept
{
    int exponent = 0;
    double m = std::frexp(x, &exponent);  // exact
    if (m < std::numbers::sqrt2 / 2) {
        m *= 2;
        --exponent;
    }
    const double z = (m - 1) / (m + 1), s = z * z;
    double sum = 0;
    for (int k = 21; k >= 1; k -= 2) sum = sum * s + 1.0 / k;
    return 2 * z * sum + exponent * std::numbers::ln2;
}

/// e^x for |x| < 700.
inline double exponential(double x) noexcept
{
    const double whole = std::floor(x / std::numbers::ln2 + 0.5);
    const double part = x - whole * std::numbers::ln2;
    double sum = 1;
    for (int k = 16; k >= 1; --k) sum = 1 + sum * part / k;
    return std::ldexp(sum, static_cast<int>(whole));  // exact
}
/// 10^x
inline double powerOfTen(double x) noexcept
{
    return exponential(x * std::numbers::ln10);
}

inline double cubeRoot(double x) noexcept
{
    return exponential(logarithm(x) / 3);
}

/// Normally distributed numbers (Box and Muller 1958).
class Noise {
public:
    explicit Noise(std::uint32_t seed) noexcept : random_{seed} {}
    double next() noexcept
    {
        isSecond_ = !isSecond_;
        if (!isSecond_) return second_;
        const double radius = std::sqrt(-2 * logarithm(1 - random_.next()));
        const double turns = random_.next();
        second_ = radius * sineOfTurns(turns);
        return radius * cosineOfTurns(turns);
    }

private:
    Lcg random_;
    double second_ = 0;
    bool isSecond_ = false;
};

/// Second-order state-variable filter (Simper 2013).
class Filter {
public:
    enum Kind { LowPass, HighPass, BandPass };  // of the last a gain of 1 at its centre
    Filter(Kind kind, double frequency, double q, double sampleRate) noexcept
        : kind_(kind), k_(1 / q)
    {
        const double half = frequency / (2 * sampleRate);  // turns
        g_ = sineOfTurns(half) / cosineOfTurns(half);
    }
    double next(double x) noexcept
    {
        const double high = (x - (g_ + k_) * band_ - low_) / (1 + g_ * (g_ + k_));
        const double band = g_ * high + band_, low = g_ * band + low_;
        band_ = g_ * high + band;
        low_ = g_ * band + low;
        return kind_ == LowPass ? low : kind_ == HighPass ? high : k_ * band;
    }

private:
    Kind kind_;
    double g_ = 0, k_, band_ = 0, low_ = 0;
};

}  // namespace quillworks::irgen
