// SPDX-License-Identifier: ISC
#include "distortion/quantiser.h"

#include <algorithm>
#include <cmath>

#include "dsp/random.h"
#include "dsp/vector_math.h"

namespace quillworks {
namespace {

constexpr double kMu = 255;
/// Below this a mid-rise quantiser takes its input for silence and gives 0.
constexpr double kSilence = 1e-9;

/// To the nearest whole number, for |x| < 2^51: what is added leaves no room for a fraction.
/// Without a call, so that the loops below become vectors.
inline double nearest(double x)
{
    constexpr double kWhole = 0x1.8p52;
    return (x + kWhole) - kWhole;
}

inline double floorOf(double x)
{
    const double r = nearest(x);
    return r - (r > x ? 1.0 : 0.0);
}

void addDither(double* x, int n, const QuantiserBlock& b)
{
    for (int i = 0; i < n; ++i) {
        const std::uint32_t k = 2 * (b.index + static_cast<std::uint32_t>(i));
        const double noise = hashRandom(k, b.voice) + hashRandom(k + 1, b.voice);
        x[i] += noise * 0.5 * b.dither[i] / b.steps[i];
    }
}

void midTread(double* x, int n, const double* steps)
{
    for (int i = 0; i < n; ++i) x[i] = nearest(steps[i] * x[i]) / steps[i];
}

void midRise(double* x, int n, const double* steps)
{
    for (int i = 0; i < n; ++i) {
        const double highest = 1 - 0.5 / steps[i];
        const double y = (floorOf(steps[i] * x[i]) + 0.5) / steps[i];
        x[i] = std::abs(x[i]) < kSilence ? 0 : std::min(std::max(y, -highest), highest);
    }
}

/// |x| as its logarithm sees it, 0 .. 1, and back; the sign stays.
void compress(double* x, int n)
{
    double signs[kMaxQuantised];
    for (int i = 0; i < n; ++i) {
        signs[i] = x[i];
        x[i] = 1 + kMu * std::abs(x[i]);
    }
    vec::log2(x, x, n);
    for (int i = 0; i < n; ++i) x[i] = std::copysign(x[i] * 0.125, signs[i]);
}

void expand(double* x, int n)
{
    double signs[kMaxQuantised];
    for (int i = 0; i < n; ++i) {
        signs[i] = x[i];
        // The highest step of a fractional L may lie above full scale, where the law ends.
        x[i] = 8 * std::min(std::abs(x[i]), 1.0);
    }
    vec::exp2(x, x, n);
    for (int i = 0; i < n; ++i) x[i] = std::copysign((x[i] - 1) / kMu, signs[i]);
}

}  // namespace

void quantise(QuantiserLaw law, double* x, int n, const QuantiserBlock& b) noexcept
{
    if (law == QuantiserLaw::None) return;
    for (int i = 0; i < n; ++i) x[i] = std::min(std::max(x[i], -1.0), 1.0);
    if (law == QuantiserLaw::MuLaw) compress(x, n);
    if (b.dither) addDither(x, n, b);
    if (law == QuantiserLaw::MidRise)
        midRise(x, n, b.steps);
    else
        midTread(x, n, b.steps);
    if (law == QuantiserLaw::MuLaw) expand(x, n);
}

}  // namespace quillworks
