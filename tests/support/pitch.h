// SPDX-License-Identifier: ISC
// How steady a tone is: its pitch over time, and what clicks in it.
#pragma once

#include <complex>

#include "dsp/kaiser.h"
#include "tests/support/signals.h"

namespace quillworks::test {

struct Pitch {
    double offShare = 0;   // of the time, more than 10 cents beside
    double meanCents = 0;  // beside
};

/// By demodulation in Hann windows of 10 ms, every millisecond of frames from .. to.
template <typename T>
Pitch pitchOf(const Signal<T>& x, double frequency, double rate, std::size_t from, std::size_t to)
{
    const double w = 2 * std::numbers::pi * frequency / rate;
    const auto window = static_cast<std::size_t>(rate / 100), hop = window / 10;
    const auto at = [&](std::size_t start) {
        std::complex<double> sum = 0;
        for (std::size_t i = 0; i < window; ++i) {
            const double s = std::sin(std::numbers::pi * double(i) / double(window));
            sum += std::polar(s * s * double(x[start + i]), -w * double(start + i));
        }
        return sum;
    };
    Pitch result;
    double count = 0;
    auto before = at(from);
    for (std::size_t i = from + hop; i + window < to; i += hop, ++count) {
        const auto now = at(i);
        const double ratio = 1 + std::arg(now * std::conj(before)) / (w * double(hop));
        const double cents = 1200 * std::log2(ratio);
        result.offShare += std::abs(cents) > 10;
        result.meanCents += cents;
        before = now;
    }
    result.offShare /= count;
    result.meanCents /= count;
    return result;
}

/// RMS in dB of the loudest 5 ms of what lies above `frequency`, by a linear-phase high-pass whose
/// stop band begins at a quarter of it.
template <typename T>
double worstAbove(const Signal<T>& x, double frequency, double rate, std::size_t from,
                  std::size_t to)
{
    const double corner = 0.625 * frequency / rate;  // of the sample rate
    const int half = static_cast<int>(5 * rate / frequency);
    const KaiserWindow window(10);
    std::vector<double> taps;
    for (int k = -half; k <= half; ++k)
        taps.push_back((k == 0) -
                       2 * corner * sinc(2 * corner * k) * window(double(k) / (half + 1)));
    double worst = 0;
    const auto span = static_cast<std::size_t>(rate / 200);
    for (std::size_t at = from; at + span <= to; at += span) {
        double power = 0;
        for (std::size_t i = at; i < at + span; ++i) {
            double y = 0;
            for (std::size_t k = 0; k < taps.size(); ++k) y += taps[k] * double(x[i - k]);
            power += y * y;
        }
        worst = std::max(worst, power / double(span));
    }
    return db(std::sqrt(worst));
}

}  // namespace quillworks::test
