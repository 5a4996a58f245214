// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/tap_reader.cpp"
#include "dsp/simd.h"
//
#include "dsp/tap_reader.h"

#ifndef QUILLWORKS_TAP_POINTS
#define QUILLWORKS_TAP_POINTS
namespace quillworks {
namespace {

/// Where to read: index of the first tap in the line, the row below and how far on to the next.
template <typename T> struct TapPoint {
    int start, row;
    T fraction;
};

constexpr int kBatch = 8;  // points read side by side

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR

template <typename T, class D, class V> void storeSums(D, const V* v, T* out)
{
    for (int p = 0; p < kBatch; ++p) out[p] = hn::GetLane(v[p]);
}

#else

/// The lanes of v added up until those of `Sums` are left.
template <class Sums, class D> HWY_INLINE hn::Vec<Sums> folded(D, hn::Vec<D> v)
{
    if constexpr (hn::MaxLanes(D()) > hn::MaxLanes(Sums())) {
        const hn::Half<D> half;
        return folded<Sums>(half, hn::Add(hn::LowerHalf(half, v), hn::UpperHalf(half, v)));
    } else {
        return v;
    }
}

template <class Sums> HWY_INLINE hn::Vec<Sums> pairSums(hn::Vec<Sums> a, hn::Vec<Sums> b)
{
    const Sums d;
    return hn::Add(hn::ConcatEven(d, b, a), hn::ConcatOdd(d, b, a));
}

/// out[p] = sum of the lanes of v[p].
template <typename T, class D, class V> HWY_INLINE void storeSums(D, const V* v, T* out)
{
    // Within 128 bits, so that shuffles stay cheap on every processor.
    using Sums = hn::FixedTag<T, 16 / sizeof(T)>;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(Sums()));
    for (int p = 0; p < kBatch; p += kLanes) {
        const auto first = pairSums<Sums>(folded<Sums>(D(), v[p]), folded<Sums>(D(), v[p + 1]));
        if constexpr (kLanes == 2) {
            hn::StoreU(first, Sums(), out + p);
        } else {
            const auto second =
                pairSums<Sums>(folded<Sums>(D(), v[p + 2]), folded<Sums>(D(), v[p + 3]));
            hn::StoreU(pairSums<Sums>(first, second), Sums(), out + p);
        }
    }
}

#endif

/// The taps of a point are interpolated between two rows once and serve all channels. A batch that
/// is not full repeats its last point, so that a point's result does not depend on its place.
template <int taps, int channels, typename T>
HWY_INLINE void readOf(const T* const* lines, const T* rows, const TapPoint<T>* points, int n,
                       T* const* out)
{
    // The largest power of two that divides the taps: whole vectors.
    const hn::CappedTag<T, (taps & -taps)> d;
    using V = hn::Vec<decltype(d)>;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));
    for (int i = 0; i < n; i += kBatch) {
        V sum[channels][kBatch];
        for (int p = 0; p < kBatch; ++p) {
            const TapPoint<T> point = points[i + p < n ? i + p : n - 1];
            const T* const below = rows + point.row * taps;
            const T* const above = below + taps;
            const auto fraction = hn::Set(d, point.fraction);
            V now[channels];
            for (int c = 0; c < channels; ++c) now[c] = hn::Zero(d);
            for (int t = 0; t < taps; t += kLanes) {
                const auto from = hn::LoadU(d, below + t);
                const auto tap = hn::MulAdd(fraction, hn::Sub(hn::LoadU(d, above + t), from), from);
                for (int c = 0; c < channels; ++c)
                    now[c] = hn::MulAdd(tap, hn::LoadU(d, lines[c] + point.start + t), now[c]);
            }
            for (int c = 0; c < channels; ++c) sum[c][p] = now[c];
        }
        for (int c = 0; c < channels; ++c) {
            if (i + kBatch <= n) {
                storeSums(d, sum[c], out[c] + i);
            } else {
                T last[kBatch];
                storeSums(d, sum[c], last);
                for (int p = 0; i + p < n; ++p) out[c][i + p] = last[p];
            }
        }
    }
}

template <int taps, typename T>
HWY_INLINE void readAny(const T* const* lines, int channels, const T* rows,
                        const TapPoint<T>* points, int n, T* const* out)
{
    if (channels == 1)
        readOf<taps, 1>(lines, rows, points, n, out);
    else
        readOf<taps, 2>(lines, rows, points, n, out);
}

#define QUILLWORKS_READER(T, taps, name)                                                           \
    void name(const T* const* lines, int channels, const T* rows, const TapPoint<T>* points,       \
              int n, T* const* out)                                                                \
    {                                                                                              \
        readAny<taps>(lines, channels, rows, points, n, out);                                      \
    }
QUILLWORKS_READER(float, 24, readFloat24)
QUILLWORKS_READER(double, 24, readDouble24)
QUILLWORKS_READER(float, 32, readFloat32)

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>

namespace quillworks {
namespace {

HWY_EXPORT(readFloat24);
HWY_EXPORT(readDouble24);
HWY_EXPORT(readFloat32);

template <typename T>
using Reader = void (*)(const T* const*, int, const T*, const TapPoint<T>*, int, T* const*);
template <typename T, int taps> const Reader<T> chosenReader = nullptr;
template <> const Reader<float> chosenReader<float, 24> = SIMD_CHOOSE(readFloat24);
template <> const Reader<double> chosenReader<double, 24> = SIMD_CHOOSE(readDouble24);
template <> const Reader<float> chosenReader<float, 32> = SIMD_CHOOSE(readFloat32);

/// A point some of whose taps are no samples: before the clear, or newer than the newest, where
/// the first row has a 0.
template <typename T, int taps>
void readEdge(const LongLine<T>& line, int channel, int channels, const T* rows, int age,
              TapPoint<T> point, T* const* out, int i) noexcept
{
    T around[2][taps];
    T* to[2];
    const int newest = std::max(0, age - taps + 1);
    for (int c = 0; c < channels; ++c) {
        std::fill_n(around[c], taps, T(0));
        line.copy(channel + c, around[c], age, age - newest + 1);
        to[c] = out[c] + i;
    }
    point.start = 0;
    const T* const lines[2] = {around[0], around[1]};
    chosenReader<T, taps>(lines, channels, rows, &point, 1, to);
}

}  // namespace

template <typename T, int taps>
void readBetween(const LongLine<T>& line, int channel, int channels, TapRows<T> rows,
                 const double* distances, int n, T* const* out) noexcept
{
    constexpr int kRun = 64, kBefore = taps / 2 - 1;
    const T* const lines[2] = {line.start(channel), line.start(channel + channels - 1)};
    for (int done = 0; done < n; done += kRun) {
        TapPoint<T> points[kRun];
        int age[kRun];
        const int run = std::min(kRun, n - done);
        int oldest = 0, newest = taps;
        for (int i = 0; i < run; ++i) {
            const double distance = distances[done + i];
            // The sample before the point, and how far the point lies beyond it.
            int whole = static_cast<int>(distance);
            whole += whole < distance;
            const T place = static_cast<T>((whole - distance) * rows.phases);
            const int row = static_cast<int>(place);
            age[i] = whole + kBefore;
            oldest = std::max(oldest, age[i]);
            newest = std::min(newest, age[i] - (taps - 1));
            points[i] = {line.place(age[i]), row, place - static_cast<T>(row)};
        }
        T* const to[2] = {out[0] + done, out[channels - 1] + done};
        if (oldest < line.valid() && newest >= 0) {
            chosenReader<T, taps>(lines, channels, rows.rows, points, run, to);
        } else {
            for (int i = 0; i < run; ++i)
                readEdge<T, taps>(line, channel, channels, rows.rows, age[i], points[i], to, i);
        }
    }
}
template void readBetween<float, 24>(const LongLine<float>&, int, int, TapRows<float>,
                                     const double*, int, float* const*) noexcept;
template void readBetween<double, 24>(const LongLine<double>&, int, int, TapRows<double>,
                                      const double*, int, double* const*) noexcept;
template void readBetween<float, 32>(const LongLine<float>&, int, int, TapRows<float>,
                                     const double*, int, float* const*) noexcept;

}  // namespace quillworks
#endif
