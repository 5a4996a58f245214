// SPDX-License-Identifier: ISC
#include "probe.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillhost {
namespace {

constexpr int kBlock = 480;  // ten periods of 1 kHz

ChainSetup setupFor(const Effect& effect)
{
    ChainSetup setup;
    setup.sampleRate = Probe::kRate;
    setup.block = kBlock;
    setup.precision = VNK::Precision::Double;
    const auto usual = effect.usualLayouts();
    setup.input = usual.input;
    setup.output = usual.output;
    return setup;
}

double toGain(double decibel)
{
    return std::pow(10, decibel / 20);
}

}  // namespace

Probe::Probe(const Effect& effect)
    : chain_({effect}, setupFor(effect)), planes_(chain_.planeChannels(), kBlock)
{}

double Probe::steadyLevel(double level)
{
    constexpr int kHalfPeriod = 24;  // frames of 1 kHz
    constexpr int kWindow = 20;      // blocks: 0.2 s
    constexpr int kMostWindows = 50;
    constexpr double kSteady = 0.002;  // dB from one window to the next, twice
    chain_.restart();
    const double amplitude = toGain(level);
    double last = 1000;
    for (int window = 0, steady = 0; window < kMostWindows; ++window) {
        double power = 0;
        for (int b = 0; b < kWindow; ++b) {
            for (int c = 0; c < planes_.channels(); ++c)
                for (int i = 0; i < kBlock; ++i)
                    planes_[c][i] = i / kHalfPeriod % 2 ? -amplitude : amplitude;
            chain_.run<double>(planes_, nullptr, kBlock);
            for (int i = 0; i < kBlock; ++i) power += planes_[0][i] * planes_[0][i];
        }
        const double now = 10 * std::log10(std::max(power / (kWindow * kBlock), 1e-20));
        steady = std::abs(now - last) < kSteady ? steady + 1 : 0;
        last = now;
        if (steady == 2) break;
    }
    return last;
}

std::complex<double> Probe::response(double frequency)
{
    constexpr double kAmplitude = 0.01;  // -40 dB: below where most curves bend
    chain_.restart();
    const double omega = 2 * std::numbers::pi * frequency / kRate;
    const auto delay = static_cast<double>(chain_.latency());
    const double periods = std::max(8.0, std::round(0.2 * frequency));
    const auto length = static_cast<std::int64_t>(std::llround(periods * kRate / frequency));
    const auto settle = static_cast<std::int64_t>(std::clamp(answerSeconds(), 0.5, 2.0) * kRate);
    std::complex<double> out, in;
    for (std::int64_t at = 0; at < settle + length; at += kBlock) {
        for (int c = 0; c < planes_.channels(); ++c)
            for (int i = 0; i < kBlock; ++i)
                planes_[c][i] = kAmplitude * std::sin(omega * static_cast<double>(at + i));
        chain_.run<double>(planes_, nullptr, kBlock);
        for (int i = 0; i < kBlock; ++i) {
            const std::int64_t n = at + i - settle;
            if (n < 0 || n >= length) continue;
            // Hann window: what is left of other frequencies does not leak in.
            const double t = (static_cast<double>(n) + 0.5) / static_cast<double>(length);
            const double window = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * t);
            const double phase = omega * static_cast<double>(at + i);
            const auto turn = std::polar(window, -phase);
            in += turn * (kAmplitude * std::sin(phase));
            out += turn * planes_[0][i];
        }
    }
    return out / in * std::polar(1.0, omega * delay);
}

template <class Signal> std::vector<std::vector<float>> Probe::play(double seconds, Signal signal)
{
    chain_.restart();
    const auto length = static_cast<std::int64_t>(seconds * kRate);
    std::vector<std::vector<float>> out(static_cast<std::size_t>(channels()));
    for (std::int64_t at = 0; at < length; at += kBlock) {
        for (int c = 0; c < planes_.channels(); ++c)
            for (int i = 0; i < kBlock; ++i) planes_[c][i] = signal(at + i);
        chain_.run<double>(planes_, nullptr, kBlock);
        for (int c = 0; c < channels(); ++c)
            for (int i = 0; i < kBlock && at + i < length; ++i)
                out[static_cast<std::size_t>(c)].push_back(static_cast<float>(planes_[c][i]));
    }
    return out;
}

std::vector<std::vector<float>> Probe::impulse(double seconds)
{
    return play(seconds, [](std::int64_t i) { return i == 0 ? 1.0 : 0.0; });
}

std::vector<std::vector<float>> Probe::step(double seconds)
{
    return play(seconds, [](std::int64_t) { return 0.5; });
}

double Probe::answerSeconds() const
{
    constexpr double kShortest = 0.5, kLongest = 5;
    const auto limit = static_cast<std::int64_t>(kLongest * kRate);
    return std::max(kShortest, static_cast<double>(chain_.tail(limit)) / kRate);
}

}  // namespace quillhost
