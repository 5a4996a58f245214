// SPDX-License-Identifier: ISC
#include "analysis/band_filters.h"

#include <cmath>
#include <complex>
#include <numbers>

namespace quillworks {

std::vector<Band> bandsOf(int fraction, double sampleRate, double lowest)
{
    constexpr double kOctave = 0.3;  // of a decade: G = 10^0.3
    const double edge = std::pow(10, kOctave / (2 * fraction));
    std::vector<Band> bands;
    // 1 kHz is the centre of a band, or, where the octave is cut into an even number, an edge.
    const double shift = fraction % 2 ? 0 : 0.5;
    for (int x = static_cast<int>(std::floor(std::log2(lowest / 1000) * fraction)) - 2;; ++x) {
        const double centre = 1000 * std::pow(10, kOctave * (x + shift) / fraction);
        if (centre * edge >= sampleRate / 2) return bands;
        if (centre >= lowest) bands.push_back({centre, centre / edge, centre * edge});
    }
}

BandFilter bandFilter(const Band& band, double sampleRate)
{
    using Complex = std::complex<double>;
    const auto warped = [&](double f) { return std::tan(std::numbers::pi * f / sampleRate); };
    const double low = warped(band.lower), high = warped(band.upper);
    const double width = high - low, middle = low * high;
    // Butterworth's poles of order 3 become those of the band-pass by s^2 - p B s + W^2 = 0; each
    // p has two, of which those of the real p are a pair.
    const auto polesOf = [&](Complex p, double sign) {
        const Complex b = p * width;
        return (b + sign * std::sqrt(b * b - 4 * middle)) / 2.0;
    };
    const Complex oblique = std::polar(1.0, 2 * std::numbers::pi / 3);
    const Complex poles[] = {polesOf(-1, 1), polesOf(oblique, 1), polesOf(oblique, -1)};
    BandFilter filter{};
    Complex atMiddle = 1;
    const Complex z = std::polar(1.0, -2 * std::atan(std::sqrt(middle)));  // one sample of delay
    for (int s = 0; s < 3; ++s) {
        const Complex pole = (1.0 + poles[s]) / (1.0 - poles[s]);
        filter.a1[s] = -2 * pole.real();
        filter.a2[s] = std::norm(pole);
        atMiddle *= (1.0 - z * z) / (1.0 + filter.a1[s] * z + filter.a2[s] * z * z);
    }
    filter.gain = 1 / std::abs(atMiddle);
    return filter;
}

}  // namespace quillworks
