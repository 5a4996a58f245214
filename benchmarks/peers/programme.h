// SPDX-License-Identifier: ISC
// A signal that makes dynamics work: hits of noise and ringing tones over a quiet bed.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace quillworks::peers {

/// Channels of `seconds`, largest sample at `peakDb` dB of full scale. Four hits a second, each a
/// burst of noise (60 dB in 80 ms) and a tone that rings longer (60 dB in 0.7 s), heard at a
/// different level on each channel; pink-ish bed 46 dB below. Always the same.
inline std::vector<std::vector<float>> programme(int channels, double sampleRate, double seconds,
                                                 double peakDb)
{
    const auto frames = static_cast<std::size_t>(seconds * sampleRate);
    std::vector<std::vector<double>> x(static_cast<std::size_t>(channels),
                                       std::vector<double>(frames));
    std::mt19937 random(20240607);
    std::uniform_real_distribution<double> uniform(-1, 1);
    double bed = 0;
    double burst = 0, ring = 0, phase = 0, step = 0, pan = 0;
    const double burstDecay = std::pow(10.0, -3 / (0.08 * sampleRate));
    const double ringDecay = std::pow(10.0, -3 / (0.7 * sampleRate));
    const auto hitEvery = static_cast<std::size_t>(sampleRate / 4);
    for (std::size_t i = 0; i < frames; ++i) {
        if (i % hitEvery == 0) {
            burst = 0.5 + 0.5 * std::abs(uniform(random));
            ring = 0.8;
            pan = uniform(random);
            step = 2 * std::numbers::pi * 110 * std::exp2(2 + 2 * uniform(random)) / sampleRate;
        }
        phase += step;
        bed = 0.97 * bed + uniform(random);
        const double noise = uniform(random);
        for (std::size_t c = 0; c < x.size(); ++c) {
            const double side = 1 + (c % 2 == 0 ? 0.4 : -0.4) * pan;
            x[c][i] = side * (burst * noise + ring * std::sin(phase)) + 0.002 * bed;
        }
        burst *= burstDecay;
        ring *= ringDecay;
    }
    double peak = 0;
    for (const auto& channel : x)
        for (const double v : channel) peak = std::max(peak, std::abs(v));
    const double gain = std::pow(10.0, peakDb / 20) / peak;
    std::vector<std::vector<float>> y;
    for (const auto& channel : x) {
        y.emplace_back();
        for (const double v : channel) y.back().push_back(static_cast<float>(gain * v));
    }
    return y;
}

}  // namespace quillworks::peers
