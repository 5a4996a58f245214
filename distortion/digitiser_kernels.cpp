// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "distortion/digitiser_kernels.cpp"
#include "dsp/simd.h"
//
#include <hwy/highway.h>

#include <cstddef>

#include "distortion/digitiser_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
using Tag = hn::CappedTag<double, 4>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(Tag()));

void layRows(const double* table, int taps, const double* place, int count, double* rows)
{
    const Tag d;
    rows += kRowMargin;
    for (int i = 0; i < count; ++i, rows += kRowStride) {
        const int below = static_cast<int>(place[i]);
        const double share = place[i] - below;
        const double* const from = table + std::ptrdiff_t{below} * taps;
        const double* const to = from + taps;
        const auto fraction = hn::Set(d, share);
#pragma GCC unroll 8
        for (int k = 0; k < kEdgeTaps; k += kLanes) {
            const auto a = hn::LoadU(d, from + k);
            hn::StoreU(hn::MulAdd(fraction, hn::Sub(hn::LoadU(d, to + k), a), a), d, rows + k);
        }
        for (int k = kEdgeTaps; k < taps; ++k) rows[k] = from[k] + share * (to[k] - from[k]);
    }
}

void read(const double* x, const int* frame, const double* rows, int count, double* out)
{
    const Tag d;
    rows += kRowMargin;
    for (int i = 0; i < count; ++i, rows += kRowStride) {
        const double* const from = x + frame[i] - (kEdgeTaps - 1);
        auto a = hn::Zero(d), b = a;  // two sums: neither waits for the other
        for (int k = 0; k < kEdgeTaps; k += 2 * kLanes) {
            a = hn::MulAdd(hn::LoadU(d, rows + k), hn::LoadU(d, from + k), a);
            b = hn::MulAdd(hn::LoadU(d, rows + k + kLanes), hn::LoadU(d, from + k + kLanes), b);
        }
        out[i] = hn::GetLane(hn::SumOfLanes(d, hn::Add(a, b)));
    }
}

/// Frames are added up in registers, group by group: steps that overlap, shifted by a frame or two,
/// would wait for each other in memory.
void draw(double* sums, const int* frame, const double* rows, const double* step, int count)
{
    constexpr int kGroup = 16;
    static_assert(kDrawnFrames % kGroup == 0 && kRowMargin >= kGroup - 1);
    static_assert(kRowStride >= kRowMargin + kStepTaps + kGroup - 1);
    const Tag d;
    using V = hn::Vec<Tag>;
    constexpr int kVectors = kGroup / kLanes;
    int first = 0, end = 0;  // steps that reach into the group
    for (int at = 0; at < kDrawnFrames; at += kGroup) {
        while (first < count && frame[first] + kStepTaps < at) ++first;
        while (end < count && frame[end] + 1 < at + kGroup) ++end;
        if (first == end) continue;
        V sum[kVectors];
        for (int v = 0; v < kVectors; ++v) sum[v] = hn::LoadU(d, sums + at + v * kLanes);
        for (int i = first; i < end; ++i) {
            const double* const row = rows + i * kRowStride + kRowMargin + at - frame[i] - 1;
            const auto height = hn::Set(d, step[i]);
            for (int v = 0; v < kVectors; ++v)
                sum[v] = hn::MulAdd(height, hn::LoadU(d, row + v * kLanes), sum[v]);
        }
        for (int v = 0; v < kVectors; ++v) hn::StoreU(sum[v], d, sums + at + v * kLanes);
    }
}

DigitiserKernels kernels()
{
    return {layRows, read, draw};
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {
HWY_EXPORT(kernels);
}  // namespace

const DigitiserKernels digitiserKernels = SIMD_CHOOSE(kernels)();

}  // namespace quillworks
#endif
