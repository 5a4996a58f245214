// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "delay/sinc_rows.cpp"
#include "dsp/simd.h"
//
#include "delay/sinc_rows.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// The taps of a point are interpolated between two rows once and serve all channels.
template <int channels>
void readSincOf(const float* const* lines, const float* rows, const SincPoint* points, int n,
                float* const* out)
{
    constexpr int kTaps = SincRows::kTaps;
    const hn::CappedTag<float, kTaps> d;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));
    const float* const left = lines[0];
    const float* const right = lines[channels - 1];
    for (int i = 0; i < n; ++i) {
        const int row = static_cast<int>(points[i].row);
        const float* const below = rows + row * kTaps;
        const float* const above = below + kTaps;
        const auto fraction = hn::Set(d, points[i].row - static_cast<float>(row));
        const float* const l = left + points[i].start;
        const float* const r = right + points[i].start;
        auto sumLeft = hn::Zero(d), sumRight = hn::Zero(d);
        for (int t = 0; t < kTaps; t += kLanes) {
            const auto from = hn::LoadU(d, below + t);
            const auto tap = hn::MulAdd(fraction, hn::Sub(hn::LoadU(d, above + t), from), from);
            sumLeft = hn::MulAdd(tap, hn::LoadU(d, l + t), sumLeft);
            if constexpr (channels == 2) sumRight = hn::MulAdd(tap, hn::LoadU(d, r + t), sumRight);
        }
        out[0][i] = hn::GetLane(hn::SumOfLanes(d, sumLeft));
        if constexpr (channels == 2) out[1][i] = hn::GetLane(hn::SumOfLanes(d, sumRight));
    }
}

void readSincAny(const float* const* lines, int channels, const float* rows,
                 const SincPoint* points, int n, float* const* out)
{
    if (channels == 1)
        readSincOf<1>(lines, rows, points, n, out);
    else
        readSincOf<2>(lines, rows, points, n, out);
}

}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {
namespace {

HWY_EXPORT(readSincAny);
const auto chosenReader = SIMD_CHOOSE(readSincAny);

/// Modified Bessel function of order 0, by its series.
double bessel0(double x)
{
    double sum = 1, term = 1;
    for (int k = 1; term > 1e-18 * sum; ++k) {
        term *= x * x / (4.0 * k * k);
        sum += term;
    }
    return sum;
}

double sinc(double x)
{
    const double angle = std::numbers::pi * x;
    return x == 0 ? 1 : std::sin(angle) / angle;
}

}  // namespace

const SincRows& SincRows::shared()
{
    static const SincRows rows;
    return rows;
}

SincRows::SincRows()
    // One row more than there are: the row above the last one is read, times 0.
    : taps_(static_cast<std::size_t>((kCuts * kRows + 1) * kTaps))
{
    constexpr double kBeta = 8, kHalfWidth = kTaps / 2;
    for (int phase = 0; phase < kRows; ++phase) {
        double distance[kTaps], window[kTaps];
        for (int t = 0; t < kTaps; ++t) {
            distance[t] = t - kBefore - double(phase) / kPhases;
            const double edge = distance[t] / kHalfWidth;
            window[t] = bessel0(kBeta * std::sqrt(std::max(0.0, 1 - edge * edge)));
        }
        for (int j = 0; j < kCuts; ++j) {
            const double cut = std::exp2(-j / 4.0);
            double tap[kTaps], sum = 0;
            for (int t = 0; t < kTaps; ++t) {
                tap[t] = window[t] * sinc(cut * distance[t]);
                // The zeros of the widest sinc fall on samples, and are to be none but 0 there.
                if (j == 0 && phase % kPhases == 0 && distance[t] != 0) tap[t] = 0;
                sum += tap[t];
            }
            float* const row = &taps_[static_cast<std::size_t>((j * kRows + phase) * kTaps)];
            for (int t = 0; t < kTaps; ++t) row[t] = static_cast<float>(tap[t] / sum);
        }
    }
}

const float* SincRows::below(float limit) const noexcept
{
    const int j =
        limit >= 1 ? 0
                   : std::min(kCuts - 1,
                              static_cast<int>(std::ceil(-4 * std::log2(std::max(limit, 1e-3f)))));
    return &taps_[static_cast<std::size_t>(j * kRows * kTaps)];
}

void readSinc(const float* const* lines, int channels, const float* rows, const SincPoint* points,
              int n, float* const* out) noexcept
{
    chosenReader(lines, channels, rows, points, n, out);
}

}  // namespace quillworks
#endif
