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

/// Rows of a table on both sides of a place.
struct Neighbours {
    const double *from, *to;
    double share;

    HWY_INLINE Neighbours(const double* table, int taps, double place)
        : from(table + std::ptrdiff_t{static_cast<int>(place)} * taps),
          to(from + taps),
          share(place - static_cast<int>(place))
    {}
    /// Values k .. between them. (The difference this way round, with what is loaded once.)
    HWY_INLINE hn::Vec<Tag> between(hn::Vec<Tag> part, int k) const
    {
        const auto a = hn::LoadU(Tag(), from + k);
        return hn::NegMulAdd(hn::Sub(a, hn::LoadU(Tag(), to + k)), part, a);
    }
};

/// Of one or two channels. Two sums each: neither waits for the other.
template <int channels>
HWY_INLINE void readChannels(const double* table, const DigitiserEdges& edges,
                             const double* const* x, double* const* out)
{
    const Tag d;
    using V = hn::Vec<Tag>;
    for (int i = 0; i < edges.count; ++i) {
        const Neighbours row(table, kEdgeTaps, edges.place[i]);
        const V share = hn::Set(d, row.share);
        const std::ptrdiff_t first = edges.frame[i] - (kEdgeTaps - 1);
        V a[channels], b[channels];
        for (int c = 0; c < channels; ++c) a[c] = b[c] = hn::Zero(d);
        const auto tapsAt = [&](int k) HWY_ATTR { return row.between(share, k); };
        for (int k = 0; k < kEdgeTaps; k += 2 * kLanes) {
            const V even = tapsAt(k), odd = tapsAt(k + kLanes);
            for (int c = 0; c < channels; ++c) {
                const double* const from = x[c] + first + k;
                a[c] = hn::MulAdd(even, hn::LoadU(d, from), a[c]);
                b[c] = hn::MulAdd(odd, hn::LoadU(d, from + kLanes), b[c]);
            }
        }
        for (int c = 0; c < channels; ++c)
            out[c][i] = hn::GetLane(hn::SumOfLanes(d, hn::Add(a[c], b[c])));
    }
}

void read(const double* table, const DigitiserEdges& edges, const double* const* x, int channels,
          double* const* out)
{
    int c = 0;
    for (; c + 2 <= channels; c += 2) readChannels<2>(table, edges, x + c, out + c);
    if (c < channels) readChannels<1>(table, edges, x + c, out + c);
}

/// Row i, at rows + i kRowStride + kRowMargin, for `count` edges; the margins stay.
HWY_INLINE void layRows(const double* table, const double* place, int count, double* rows)
{
    const Tag d;
    rows += kRowMargin;
    for (int i = 0; i < count; ++i, rows += kRowStride) {
        const Neighbours row(table, kStepTaps, place[i]);
        const auto share = hn::Set(d, row.share);
#pragma GCC unroll 8
        for (int k = 0; k < kEdgeTaps; k += kLanes) {
            hn::StoreU(row.between(share, k), d, rows + k);
        }
        for (int k = kEdgeTaps; k < kStepTaps; ++k)
            rows[k] = row.from[k] + row.share * (row.to[k] - row.from[k]);
    }
}

/// Frames are added up in registers, group by group: steps that overlap, shifted by a frame or two,
/// would wait for each other in memory.
template <int channels>
HWY_INLINE void drawChannels(const double* rows, const int* frame, int first, int count,
                             const double* const* step, double* const* sums)
{
    constexpr int kGroup = 16;
    static_assert(kDrawnFrames % kGroup == 0 && kRowMargin >= kGroup - 1);
    static_assert(kRowStride >= kRowMargin + kStepTaps + kGroup - 1);
    const Tag d;
    using V = hn::Vec<Tag>;
    constexpr int kVectors = kGroup / kLanes;
    frame += first;
    int begin = 0, end = 0;  // steps that reach into the group
    for (int at = (frame[0] + 1) / kGroup * kGroup; at < kDrawnFrames; at += kGroup) {
        while (begin < count && frame[begin] + kStepTaps < at) ++begin;
        while (end < count && frame[end] + 1 < at + kGroup) ++end;
        if (begin == count) return;
        if (begin == end) continue;
        V sum[channels][kVectors];
        for (int c = 0; c < channels; ++c)
            for (int v = 0; v < kVectors; ++v) sum[c][v] = hn::LoadU(d, sums[c] + at + v * kLanes);
        for (int i = begin; i < end; ++i) {
            const double* const row = rows + i * kRowStride + kRowMargin + at - frame[i] - 1;
            V height[channels];
            for (int c = 0; c < channels; ++c) height[c] = hn::Set(d, step[c][first + i]);
            for (int v = 0; v < kVectors; ++v) {
                const V values = hn::LoadU(d, row + v * kLanes);
                for (int c = 0; c < channels; ++c)
                    sum[c][v] = hn::MulAdd(height[c], values, sum[c][v]);
            }
        }
        for (int c = 0; c < channels; ++c)
            for (int v = 0; v < kVectors; ++v) hn::StoreU(sum[c][v], d, sums[c] + at + v * kLanes);
    }
}

void draw(const double* table, const DigitiserEdges& edges, const double* const* step, int channels,
          double* const* sums, double* rows)
{
    for (int first = 0; first < edges.count; first += kRowsAtOnce) {
        const int count = HWY_MIN(kRowsAtOnce, edges.count - first);
        layRows(table, edges.place + first, count, rows);
        int c = 0;
        for (; c + 2 <= channels; c += 2)
            drawChannels<2>(rows, edges.frame, first, count, step + c, sums + c);
        if (c < channels) drawChannels<1>(rows, edges.frame, first, count, step + c, sums + c);
    }
}

DigitiserKernels kernels()
{
    return {read, draw};
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
