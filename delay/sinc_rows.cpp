// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "delay/sinc_rows.cpp"
#include "dsp/simd.h"
//
#include "delay/sinc_rows.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

constexpr int kBatch = 4;  // points read side by side

#if HWY_TARGET == HWY_SCALAR

/// out[p] = sum of the lanes of v[p].
template <class D, class V> void storeSums(D, const V (&v)[kBatch], float* out)
{
    for (int p = 0; p < kBatch; ++p) out[p] = hn::GetLane(v[p]);
}

#else

using Sums = hn::FixedTag<float, kBatch>;

/// The lanes of v added up until kBatch are left.
template <class D> HWY_INLINE hn::Vec<Sums> folded(D, hn::Vec<D> v)
{
    if constexpr (hn::MaxLanes(D()) > kBatch) {
        const hn::Half<D> half;
        return folded(half, hn::Add(hn::LowerHalf(half, v), hn::UpperHalf(half, v)));
    } else {
        return v;
    }
}

HWY_INLINE hn::Vec<Sums> pairSums(hn::Vec<Sums> a, hn::Vec<Sums> b)
{
    const Sums d;
    return hn::Add(hn::ConcatEven(d, b, a), hn::ConcatOdd(d, b, a));
}

template <class D, class V> HWY_INLINE void storeSums(D d, const V (&v)[kBatch], float* out)
{
    const auto first = pairSums(folded(d, v[0]), folded(d, v[1]));
    const auto second = pairSums(folded(d, v[2]), folded(d, v[3]));
    hn::StoreU(pairSums(first, second), Sums(), out);
}

#endif

/// The taps of a point are interpolated between two rows once and serve all channels. A batch that
/// is not full repeats its last point, so that a point's result does not depend on its place.
template <int channels>
void readSincOf(const float* const* lines, const float* rows, const SincPoint* points, int n,
                float* const* out)
{
    constexpr int kTaps = SincRows::kTaps;
    const hn::CappedTag<float, kTaps> d;
    using V = hn::Vec<decltype(d)>;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));
    for (int i = 0; i < n; i += kBatch) {
        V sum[channels][kBatch];
        for (int p = 0; p < kBatch; ++p) {
            const SincPoint point = points[i + p < n ? i + p : n - 1];
            const int row = static_cast<int>(point.row);
            const float* const below = rows + row * kTaps;
            const float* const above = below + kTaps;
            const auto fraction = hn::Set(d, point.row - static_cast<float>(row));
            for (int c = 0; c < channels; ++c) sum[c][p] = hn::Zero(d);
            for (int t = 0; t < kTaps; t += kLanes) {
                const auto from = hn::LoadU(d, below + t);
                const auto tap = hn::MulAdd(fraction, hn::Sub(hn::LoadU(d, above + t), from), from);
                for (int c = 0; c < channels; ++c) {
                    const auto x = hn::LoadU(d, lines[c] + point.start + t);
                    sum[c][p] = hn::MulAdd(tap, x, sum[c][p]);
                }
            }
        }
        for (int c = 0; c < channels; ++c) {
            if (i + kBatch <= n) {
                storeSums(d, sum[c], out[c] + i);
            } else {
                float last[kBatch];
                storeSums(d, sum[c], last);
                for (int p = 0; i + p < n; ++p) out[c][i + p] = last[p];
            }
        }
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

#include "dsp/midpoint_filter.h"

namespace quillworks {
namespace {

HWY_EXPORT(readSincAny);
const auto chosenReader = SIMD_CHOOSE(readSincAny);

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
