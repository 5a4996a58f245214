// SPDX-License-Identifier: ISC
// The search, built for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/fine_true_peak.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <array>
#include <cmath>

#include "dsp/fine_true_peak.h"
#include "dsp/midpoint-inl.h"
#include "dsp/midpoint_filter.h"

#ifndef QUILLWORKS_FINE_TRUE_PEAK_FILTERS
#define QUILLWORKS_FINE_TRUE_PEAK_FILTERS
namespace quillworks {
namespace {

struct FineFilters {
    static constexpr int kNear = 12;  // taps that rule most chunks out

    FineFilters() noexcept
    {
        double sum = 0;
        for (std::size_t k = kNear; k < half.size(); ++k)
            sum += 2 * double(half[k]) * double(half[k]);
        farNorm = static_cast<float>(std::sqrt(sum));
    }
    std::array<float, 40> half = midpointTaps<float, 40>(6);
    float farNorm;  // root of the sum of the squares of the taps beyond the near ones
    std::array<float, 6> quarter = midpointTaps<float, 6>(8);
    std::array<float, 3> eighth = midpointTaps<float, 3>(5);
};

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D = PairTag<float>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

HWY_INLINE hn::Vec<D> at(const float* x)
{
    return hn::LoadU(D(), x);
}

// Shares of the largest known below which a chunk's points leave no room for a larger maximum:
// cos(pi/4), cos(pi/8) and cos(pi/16) less what the filters may be off.
constexpr float kAtTwice = 0.70f, kAtFourTimes = 0.915f, kAtEightTimes = 0.975f;

constexpr int kChunk = 32;  // samples looked at together
constexpr int kPadding = kLanes + 8;
using Points = float[kChunk + 8 + kPadding];

float peakOf(const float* x, int n)
{
    const D d;
    auto largest = hn::Zero(d);
    int i = 0;
    for (; i + kLanes <= n; i += kLanes) largest = hn::Max(largest, hn::Abs(at(x + i)));
    float peak = hn::GetLane(hn::MaxOfLanes(d, largest));
    for (; i < n; ++i) peak = std::max(peak, std::abs(x[i]));
    return peak;
}

float normOf(const float* x, int n)
{
    const D d;
    auto a = hn::Zero(d), b = a;
    int i = 0;
    for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
        a = hn::MulAdd(at(x + i), at(x + i), a);
        b = hn::MulAdd(at(x + i + kLanes), at(x + i + kLanes), b);
    }
    float sum = hn::GetLane(hn::SumOfLanes(d, hn::Add(a, b)));
    for (; i < n; ++i) sum += x[i] * x[i];
    return std::sqrt(sum);
}

/// The largest of the parabolas through each crest of z[1 .. n) and its neighbours that comes near
/// `known`, or that.
float crestOf(const float* z, int n, float known)
{
    for (int i = 1; i < n; ++i) {
        const float now = std::abs(z[i]);
        if (now < kAtEightTimes * known) continue;
        const float before = std::copysign(1.0f, z[i]) * z[i - 1],
                    after = std::copysign(1.0f, z[i]) * z[i + 1];
        if (now < before || now < after || !(before + after < 2 * now)) continue;
        const float slope = after - before, bend = 2 * now - before - after;
        known = std::max(known, now + 0.125f * slope * slope / bend);
    }
    return known;
}

/// The last stage, from the points midway and the quarters, of which m[0], p[0] and t[0] belong to
/// x[0] and those before and after are there.
float eightfoldPeak(const FineFilters& f, const float* x, const float* m, const float* p,
                    const float* t, int n, float known)
{
    constexpr int kPhases = 8;
    HWY_ALIGN float z[kPhases * (kChunk + kPadding)];  // from the frame before x[0] on
    for (int i = -1; i <= n; i += kLanes) {
        const float* const four[4] = {x + i, p + i, m + i, t + i};
        const float* const h = f.eighth.data();
        HWY_ALIGN float lane[4][kLanes];
        hn::Store(midpointAt<4, 0, 3>(h, four, 0), D(), lane[0]);
        hn::Store(midpointAt<4, 1, 3>(h, four, 0), D(), lane[1]);
        hn::Store(midpointAt<4, 2, 3>(h, four, 0), D(), lane[2]);
        hn::Store(midpointAt<4, 3, 3>(h, four, 0), D(), lane[3]);
        const int count = std::min(kLanes, n + 1 - i);
        for (int l = 0; l < count; ++l) {
            float* const to = z + kPhases * (i + 1 + l);
            const int at = i + l;
            const float points[kPhases] = {x[at], lane[0][l], p[at], lane[1][l],
                                           m[at], lane[2][l], t[at], lane[3][l]};
            std::copy_n(points, kPhases, to);
        }
    }
    return crestOf(z + kPhases - 1, kPhases * n + 1, known);
}

/// The larger of `known` and the peak from x[0] to x[n].
float chunkPeak(const FineFilters& f, const float* x, int n, float known)
{
    constexpr int kFirst = 4;  // points are there from this many samples before x[0] on
    constexpr int kBehind = FineTruePeak::kBehind, kAhead = FineTruePeak::kAhead;
    // Most chunks are ruled out by the nearest taps, for the others cannot add more than the
    // product of their norm and the signal's (Cauchy and Schwarz).
    HWY_ALIGN Points half = {}, first = {}, third = {};  // the last vectors read beyond what counts
    midpoints(f.half.data(), FineFilters::kNear, x, half, n);
    const float rest = f.farNorm * normOf(x - kBehind, kBehind + n + kAhead);
    const float bound = std::max(peakOf(x, n + 1), peakOf(half, n) + rest);
    if (bound < kAtTwice * known) return known;
    midpoints(f.half.data(), static_cast<int>(f.half.size()), x - kFirst, half, n + kFirst + 3);
    const float* const m = half + kFirst;
    const float twice = std::max(peakOf(x, n + 1), peakOf(m - 1, n + 1));
    known = std::max(known, twice);
    if (twice < kAtTwice * known) return known;

    const float* const two[2] = {x - 1, m - 1};
    midpoints<2, 0, 6>(f.quarter.data(), two, first + kFirst - 1, n + 2);
    midpoints<2, 1, 6>(f.quarter.data(), two, third + kFirst - 1, n + 1);
    const float *const p = first + kFirst, *const t = third + kFirst;
    const float fourTimes = std::max({twice, peakOf(p - 1, n + 2), peakOf(t - 1, n + 1)});
    known = std::max(known, fourTimes);
    if (fourTimes < kAtFourTimes * known) return known;
    return eightfoldPeak(f, x, m, p, t, n, known);
}

float finePeak(const FineFilters& f, const float* x, int n, float known)
{
    for (int done = 0; done < n; done += kChunk)
        known = chunkPeak(f, x + done, std::min(kChunk, n - done), known);
    return known;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(finePeak);
namespace {

float (*const chosenPeak)(const FineFilters&, const float*, int, float) = SIMD_CHOOSE(finePeak);

const FineFilters kFilters;

}  // namespace

void FineTruePeak::prepare(int maxFrames)
{
    buffer_.assign(static_cast<std::size_t>(kHistory + std::max(maxFrames, kAhead) + kSlack), 0.0f);
}

void FineTruePeak::reset() noexcept
{
    std::fill(buffer_.begin(), buffer_.end(), 0.0f);
}

float FineTruePeak::advance(int n, float known) noexcept
{
    const float peak = chosenPeak(kFilters, input() - kAhead, n, known);
    std::copy_n(buffer_.begin() + n, kHistory, buffer_.begin());
    return peak;
}

float FineTruePeak::finish(float known) noexcept
{
    std::fill_n(input(), kAhead, 0.0f);
    return advance(kAhead, known);
}

}  // namespace quillworks
#endif
