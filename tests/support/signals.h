// SPDX-License-Identifier: ISC
// Test signals and the measures taken of them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace quillworks::test {

template <typename T> using Signal = std::vector<T>;            // one channel
template <typename T> using Channels = std::vector<Signal<T>>;  // channel by channel

inline constexpr std::uint32_t kSeed = 20240607;

/// White noise, uniform in +-peak.
template <typename T>
Signal<T> noise(std::size_t frames, std::uint32_t seed = kSeed, double peak = 0.5)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-peak, peak);
    Signal<T> x(frames);
    for (auto& v : x) v = static_cast<T>(uniform(random));
    return x;
}

template <typename T>
Signal<T> sine(std::size_t frames, double frequency, double sampleRate, double peak = 1,
               double phase = 0)
{
    Signal<T> x(frames);
    for (std::size_t i = 0; i < frames; ++i)
        x[i] = static_cast<T>(
            peak * std::sin(2 * std::numbers::pi * frequency * double(i) / sampleRate + phase));
    return x;
}

template <typename T> Signal<T> constant(std::size_t frames, double value)
{
    return Signal<T>(frames, static_cast<T>(value));
}

template <typename T> Signal<T> impulse(std::size_t frames, std::size_t at = 0, double height = 1)
{
    Signal<T> x(frames, T(0));
    x[at] = static_cast<T>(height);
    return x;
}

template <typename To, typename From> Signal<To> as(const Signal<From>& x)
{
    return Signal<To>(x.begin(), x.end());
}

template <typename T> double peak(const Signal<T>& x)
{
    double p = 0;
    for (const T v : x) p = std::max(p, std::abs(double(v)));
    return p;
}

/// RMS of frames from .. to (to = 0: the end).
template <typename T> double rms(const Signal<T>& x, std::size_t from = 0, std::size_t to = 0)
{
    if (to == 0) to = x.size();
    double sum = 0;
    for (std::size_t i = from; i < to; ++i) sum += double(x[i]) * double(x[i]);
    return std::sqrt(sum / double(std::max<std::size_t>(1, to - from)));
}

inline double db(double x)
{
    return 20 * std::log10(std::max(x, 1e-20));
}

/// Largest difference in dB relative to full scale; -400 for none.
template <typename A, typename B> double peakDifferenceDb(const Signal<A>& a, const Signal<B>& b)
{
    if (a.size() != b.size()) return 999;
    double d = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double e = std::abs(double(a[i]) - double(b[i]));
        if (!(e <= d)) d = e;
    }
    return std::isnan(d) ? 999 : db(d);
}

template <typename A, typename B>
double peakDifferenceDb(const Channels<A>& a, const Channels<B>& b)
{
    double worst = a.size() == b.size() ? -400 : 999;
    for (std::size_t c = 0; c < std::min(a.size(), b.size()); ++c)
        worst = std::max(worst, peakDifferenceDb(a[c], b[c]));
    return worst;
}

/// Largest change from one sample to the next: what a click is told by.
template <typename T>
double largestStep(const Signal<T>& x, std::size_t from = 0, std::size_t to = std::size_t(-1))
{
    double largest = 0;
    for (std::size_t i = from + 1; i < std::min(to, x.size()); ++i)
        largest = std::max(largest, std::abs(double(x[i]) - double(x[i - 1])));
    return largest;
}

template <typename T> bool isFinite(const Signal<T>& x, std::size_t from = 0)
{
    return std::all_of(x.begin() + static_cast<std::ptrdiff_t>(from), x.end(),
                       [](T v) { return std::isfinite(v); });
}

/// Amplitude and phase-free level of one frequency: magnitude of the Fourier sum over frames
/// from .. to, so that a sine of peak 1 gives 1. Exact for whole periods.
template <typename T>
double amplitudeAt(const Signal<T>& x, double frequency, double sampleRate, std::size_t from,
                   std::size_t to)
{
    double re = 0, im = 0;
    for (std::size_t i = from; i < to; ++i) {
        const double w = 2 * std::numbers::pi * frequency * double(i) / sampleRate;
        re += double(x[i]) * std::cos(w);
        im += double(x[i]) * std::sin(w);
    }
    return 2 * std::hypot(re, im) / double(to - from);
}

}  // namespace quillworks::test
