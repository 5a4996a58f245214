// SPDX-License-Identifier: ISC
// Measures of reverberation: density, colour, likeness, smear.
#pragma once

#include "tests/support/power_spectrum.h"

namespace quillworks::test {

/// Share of samples beyond a standard deviation, over what noise has: 1 for a dense sound (Abel,
/// Huang, "A simple, robust measure of reverberation echo density", AES 2006). Hann windows of 20
/// ms, each `step` samples on from the last; index 0 is centred on sample 0.
inline std::vector<double> echoDensity(const Signal<double>& x, double sampleRate, std::size_t step)
{
    const auto half = static_cast<std::ptrdiff_t>(0.01 * sampleRate);
    std::vector<double> density;
    for (std::size_t middle = 0; middle < x.size(); middle += step) {
        double sum = 0, power = 0, outside = 0;
        const auto each = [&](auto&& f) {
            for (std::ptrdiff_t k = -half; k <= half; ++k) {
                const auto i = static_cast<std::ptrdiff_t>(middle) + k;
                if (i < 0 || i >= static_cast<std::ptrdiff_t>(x.size())) continue;
                f(0.5 + 0.5 * std::cos(std::numbers::pi * double(k) / double(half)),
                  x[static_cast<std::size_t>(i)]);
            }
        };
        each([&](double w, double v) { sum += w, power += w * v * v; });
        each([&](double w, double v) { outside += v * v > power / sum ? w : 0; });
        density.push_back(outside / sum / std::erfc(std::numbers::sqrt2 / 2));
    }
    return density;
}

struct Densening {
    double onset;  // from the first sound until the density passes 0.9, in ms
    double
        least;  // mean over 20 ms from then on, while a part in ten thousand of the energy is left
};

inline Densening densening(const Signal<double>& x, std::size_t firstSound, double sampleRate)
{
    const auto millisecond = static_cast<std::size_t>(sampleRate / 1000);
    double left = 0;
    for (const double v : x) left += v * v;
    const double end = 1e-4 * left;
    std::size_t last = 0;
    while (last < x.size() && left > end) left -= x[last] * x[last], ++last;
    const auto density = echoDensity(x, sampleRate, millisecond);
    auto at = firstSound / millisecond;
    while (at < density.size() && density[at] <= 0.9) ++at;
    Densening result{double(at) - double(firstSound) / double(millisecond), 1};
    for (at += 20; at + 20 < last / millisecond; at += 20) {
        double mean = 0;
        for (std::size_t k = 0; k < 20; ++k) mean += density[at + k] / 20;
        result.least = std::min(result.least, mean);
    }
    return result;
}

/// Standard deviation in dB of the spectrum of n samples over its running mean of 60 Hz, 200 Hz to
/// 6 kHz: 5.6 for noise, more where resonances stand out.
inline double spectralDeviation(const Signal<double>& x, std::size_t from, std::size_t n,
                                double sampleRate)
{
    AlignedBuffer<double> signal(n), bins(n);
    for (std::size_t i = 0; i < n; ++i) signal[i] = from + i < x.size() ? x[from + i] : 0;
    Fft<double> fft;
    fft.setSize(static_cast<std::uint32_t>(n));
    fft.forward(signal.data(), bins.data());
    std::vector<double> sums(n / 2 + 1);
    for (std::size_t k = 0; k < n / 2; ++k)
        sums[k + 1] = sums[k] + fft.binPower(bins.data(), static_cast<std::uint32_t>(k));
    const double perBin = sampleRate / double(n);
    const auto half = static_cast<std::size_t>(30 / perBin);
    double sum = 0, squares = 0, count = 0;
    for (auto k = static_cast<std::size_t>(200 / perBin); double(k) * perBin < 6000; ++k) {
        const double mean = (sums[k + half + 1] - sums[k - half]) / double(2 * half + 1);
        const double over = 10 * std::log10((sums[k + 1] - sums[k]) / mean);
        sum += over, squares += over * over, ++count;
    }
    return std::sqrt(squares / count - sum * sum / (count * count));
}

/// Cosine between two signals from a sample on: 0 for strangers, 1 for the same.
inline double likeness(const Signal<double>& a, const Signal<double>& b, std::size_t from)
{
    double ab = 0, aa = 0, bb = 0;
    for (std::size_t i = from; i < a.size(); ++i)
        ab += a[i] * b[i], aa += a[i] * a[i], bb += b[i] * b[i];
    return ab / std::sqrt(aa * bb);
}

/// The largest of any two signals.
inline double largestLikeness(const std::vector<Signal<double>>& all, std::size_t from)
{
    double worst = 0;
    for (std::size_t a = 0; a < all.size(); ++a)
        for (std::size_t b = 0; b < a; ++b)
            worst = std::max(worst, std::abs(likeness(all[a], all[b], from)));
    return worst;
}

/// Root of the second moment of the spectrum within 6 % of a frequency, in cents, of n samples
/// under a Hann window, whose own moment is taken off.
template <typename T>
double smearInCents(const Signal<T>& x, std::size_t from, std::size_t n, double frequency,
                    double sampleRate)
{
    Fft<double> fft;
    fft.setSize(static_cast<std::uint32_t>(n));
    const double perBin = sampleRate / double(n);
    const auto moment = [&](const auto& signal) {
        AlignedBuffer<double> windowed(n), bins(n);
        for (std::size_t i = 0; i < n; ++i)
            windowed[i] = (0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / double(n))) *
                          double(signal[from + i]);
        fft.forward(windowed.data(), bins.data());
        double power = 0, first = 0, second = 0;
        for (auto k = std::size_t(frequency * 0.94 / perBin); double(k) * perBin < frequency * 1.06;
             ++k) {
            const double p = fft.binPower(bins.data(), static_cast<std::uint32_t>(k));
            const double f = double(k) * perBin - frequency;
            power += p, first += p * f, second += p * f * f;
        }
        return second / power - first * first / (power * power);
    };
    const double own = moment(sine<double>(from + n, frequency, sampleRate));
    return 1200 * std::log2(1 + std::sqrt(std::max(0.0, moment(x) - own)) / frequency);
}

}  // namespace quillworks::test
