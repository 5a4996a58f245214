// SPDX-License-Identifier: ISC
#include "dsp/resampler.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr int kCrossings = 96;
constexpr double kBeta = 12, kPassed = 0.96;
constexpr int kMostPhases = 2048;

/// The least denominator of `step` up to kMostPhases, 0 if it has none.
int denominatorOf(double step)
{
    for (int q = 1; q <= kMostPhases; ++q) {
        const double p = step * q;
        if (p > 0.5 && std::abs(p - std::round(p)) < 1e-12 * p) return q;
    }
    return 0;
}

SincDesign designFor(double step, int denominator)
{
    const double lower = std::min(1.0, 1 / step);  // rate, over that of the input
    // A wider kernel is smoother by as much, so its rows may lie further apart.
    const int phases = std::max(16, static_cast<int>(kMostPhases * lower));
    return {2 * static_cast<int>(std::ceil(kCrossings / lower)), denominator ? denominator : phases,
            kBeta, kPassed * lower};
}

/// Sum of row[k] x[k]; in partial sums, which make a vector.
template <typename T> double product(const double* row, const T* x, std::ptrdiff_t n)
{
    constexpr int kSums = 8;
    double sums[kSums]{};
    std::ptrdiff_t k = 0;
    for (; k + kSums <= n; k += kSums)
        for (int j = 0; j < kSums; ++j) sums[j] += row[k + j] * double(x[k + j]);
    for (; k < n; ++k) sums[0] += row[k] * double(x[k]);
    double sum = 0;
    for (const double s : sums) sum += s;
    return sum;
}

}  // namespace

Resampler::Resampler(double step) : Resampler(step, denominatorOf(step)) {}

Resampler::Resampler(double step, int denominator)
    : step_(step),
      numerator_(std::llround(step * denominator)),
      denominator_(denominator),
      table_(designFor(step, denominator))
{}

template <typename T>
void Resampler::read(const T* x, std::ptrdiff_t frames, std::int64_t first, T* out,
                     int n) const noexcept
{
    const std::ptrdiff_t taps = table_.taps();
    std::vector<double> between(denominator_ ? 0 : static_cast<std::size_t>(taps));
    for (int i = 0; i < n; ++i) {
        std::ptrdiff_t whole;
        const double* row = between.data();
        if (denominator_) {
            const std::int64_t at = (first + i) * numerator_;
            std::int64_t phase = at % denominator_;
            if (phase < 0) phase += denominator_;
            whole = (at - phase) / denominator_;
            row = table_.row(static_cast<int>(phase));
        } else {
            const double at = double(first + i) * step_, floor = std::floor(at);
            whole = static_cast<std::ptrdiff_t>(floor);
            table_.rowAt(at - floor, between.data());
        }
        const std::ptrdiff_t start = whole - taps / 2 + 1;
        const auto from = std::clamp<std::ptrdiff_t>(-start, 0, taps);
        const auto to = std::clamp<std::ptrdiff_t>(frames - start, from, taps);
        out[i] =
            to > from ? static_cast<T>(product(row + from, x + start + from, to - from)) : T(0);
    }
}
template void Resampler::read(const float*, std::ptrdiff_t, std::int64_t, float*,
                              int) const noexcept;
template void Resampler::read(const double*, std::ptrdiff_t, std::int64_t, double*,
                              int) const noexcept;

template <typename T> std::vector<T> resample(const std::vector<T>& x, double step)
{
    const Resampler resampler(step);
    // A whole number that the division misses by its rounding counts as that number.
    std::vector<T> y(static_cast<std::size_t>(std::ceil(double(x.size()) / step * (1 - 1e-15))));
    resampler.read(x.data(), std::ssize(x), 0, y.data(), static_cast<int>(y.size()));
    return y;
}
template std::vector<float> resample(const std::vector<float>&, double);
template std::vector<double> resample(const std::vector<double>&, double);

}  // namespace quillworks
