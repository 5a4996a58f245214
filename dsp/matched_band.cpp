// SPDX-License-Identifier: ISC
#include "dsp/matched_band.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {
namespace {

/// A polynomial c0 + c1/z + c2/z^2 by its first coefficient and its values at 0 Hz and at the
/// Nyquist frequency, which keep their digits however low the band lies.
struct Polynomial {
    double first, atDc, atNyquist;
};

/// The analogue band as the design needs it.
struct Prototype {
    double poleScale;    // its poles' frequency in units of the band's
    double poleDamping;  // half of 1/Q of the poles
    double dc, nyquist;  // squared gain at 0 Hz and at the Nyquist frequency
    double matched;      // squared gain where it is matched
};

/// Two poles sampled: e^(p/fs) for the roots p of s^2 + 2 damping w s + w^2; w per sample.
Polynomial poles(double w, double damping) noexcept
{
    double dc, nyquist;
    if (damping > 1) {
        const double spread = w * std::sqrt(damping * damping - 1);
        const double slow = spread - damping * w, fast = -spread - damping * w;
        dc = std::expm1(slow) * std::expm1(fast);
        nyquist = (1 + std::exp(slow)) * (1 + std::exp(fast));
    } else {
        const double radius = std::exp(-damping * w);
        const double half = 0.5 * w * std::sqrt(1 - damping * damping);
        const double away = std::expm1(-damping * w);
        dc = away * away + 4 * radius * std::sin(half) * std::sin(half);
        nyquist = away * away + 4 * radius * std::cos(half) * std::cos(half);
    }
    return {1, dc, nyquist};
}

/// Zeros that give the squared gains of the prototype; phi is sin^2 of half the matched frequency.
Polynomial zeros(const Polynomial& p, const Prototype& band, double phi) noexcept
{
    const double phi0 = 1 - phi, phi2 = 4 * phi0 * phi;
    const double a0 = p.atDc * p.atDc, a1 = p.atNyquist * p.atNyquist;
    const double a2 = -4 * ((p.atDc + p.atNyquist) / 2 - 1);
    const double b0 = a0 * band.dc, b1 = a1 * band.nyquist;
    const double b2 =
        (band.matched * (a0 * phi0 + a1 * phi + a2 * phi2) - b0 * phi0 - b1 * phi) / phi2;
    const double dc = std::sqrt(b0), nyquist = std::sqrt(b1);
    const double w = (dc + nyquist) / 2;
    return {(w + std::sqrt(std::max(0.0, w * w + b2))) / 2, dc, nyquist};
}

/// The section of numerator over denominator, both of minimum phase.
MatchedBand section(Polynomial over, Polynomial under) noexcept
{
    const double scale = 1 / under.first;
    for (Polynomial* const p : {&over, &under}) {
        p->first *= scale;
        p->atDc *= scale;
        p->atNyquist *= scale;
    }
    MatchedBand band;
    band.g = std::sqrt(under.atDc / under.atNyquist);
    // 1 - c2 of the denominator over its value at the Nyquist frequency.
    band.k = 2 * (2 - (under.atDc + under.atNyquist) / 2) / (band.g * under.atNyquist);
    const double a1 = 1 / (1 + band.g * (band.g + band.k)), a2 = band.g * a1, a3 = band.g * a2;
    band.output.m0 = over.atNyquist / under.atNyquist;
    band.output.m2 = over.atDc / under.atDc - band.output.m0;
    band.output.m1 = (over.first - band.output.m0 - band.output.m2 * a3) / a2;
    return band;
}

/// A band of |db|, turned over for a cut: designed as a cut its gain at high frequencies would be
/// far off. `prototype(w)` has the boost for a frequency of w per sample.
template <class Make>
MatchedBand design(double frequency, double db, double highestMatch, double sampleRate,
                   Make&& prototype) noexcept
{
    const double f = std::min(frequency, kHighestCutOff * sampleRate);
    const double w = 2 * std::numbers::pi * f / sampleRate;
    const double matched = std::min(w, 2 * std::numbers::pi * highestMatch);
    const Prototype band =
        prototype(std::pow(10, std::abs(db) / 40), std::numbers::pi / w, matched / w);
    const Polynomial under = poles(w * band.poleScale, band.poleDamping);
    const double half = std::sin(matched / 2);
    const Polynomial over = db == 0 ? under : zeros(under, band, half * half);
    return db > 0 ? section(over, under) : section(under, over);
}

constexpr double square(double x) noexcept
{
    return x * x;
}

}  // namespace

MatchedBand MatchedBand::bell(double frequency, double db, double q, double sampleRate) noexcept
{
    return design(
        frequency, db, kHighestCutOff, sampleRate,
        [q](double a, double nyquist, double) -> Prototype {
            const double real = square(1 - square(nyquist));
            const double wide = square(nyquist * a / q), narrow = square(nyquist / a / q);
            return {1, 1 / (2 * a * q), 1, (real + wide) / (real + narrow), square(square(a))};
        });
}

MatchedBand MatchedBand::lowShelf(double frequency, double db, double sampleRate) noexcept
{
    return design(
        frequency, db, 0.25, sampleRate, [](double a, double nyquist, double matched) -> Prototype {
            const auto gain = [a](double w2) {  // squared, at sqrt(w2)
                const double middle = w2 * a / square(kButterworthQ);
                return square(a) * (square(a - w2) + middle) / (square(1 - a * w2) + middle);
            };
            return {1 / std::sqrt(a), 1 / (2 * kButterworthQ), square(square(a)),
                    gain(square(nyquist)), gain(square(matched))};
        });
}

MatchedBand MatchedBand::highShelf(double frequency, double db, double sampleRate) noexcept
{
    return design(
        frequency, db, 0.25, sampleRate, [](double a, double nyquist, double matched) -> Prototype {
            const auto gain = [a](double w2) {
                const double middle = w2 * a / square(kButterworthQ);
                return square(a) * (square(1 - a * w2) + middle) / (square(a - w2) + middle);
            };
            return {std::sqrt(a), 1 / (2 * kButterworthQ), 1, gain(square(nyquist)),
                    gain(square(matched))};
        });
}

}  // namespace quillworks
