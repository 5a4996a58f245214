// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/tap_reader.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "dsp/tap_reader.h"

#ifndef QUILLWORKS_TAP_POINTS
#define QUILLWORKS_TAP_POINTS
namespace quillworks {
namespace {

/// What of one or two lines a kernel reads.
template <typename T> struct TapSource {
    const T* lines[2];
    int channels;
    int newest, capacity, valid;  // place of the newest sample, samples in the ring and since clear
    const T* rows;
    int phases;
};

constexpr int kBatch = 8;  // points read side by side at most

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR

template <int batch, typename T, class D, class V> void storeSums(D, const V* v, T* out)
{
    for (int p = 0; p < batch; ++p) out[p] = hn::GetLane(v[p]);
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

// Within 128 bits, so that shuffles stay cheap on every processor.
template <typename T> using SumsTag = hn::FixedTag<T, 16 / sizeof(T)>;

/// Sums of the lanes of each v[p], p below 16 / sizeof(T).
template <typename T, class D, class V> HWY_INLINE hn::Vec<SumsTag<T>> sumsOf(D, const V* v)
{
    using Sums = SumsTag<T>;
    const auto first = pairSums<Sums>(folded<Sums>(D(), v[0]), folded<Sums>(D(), v[1]));
    if constexpr (hn::MaxLanes(Sums()) == 2)
        return first;
    else
        return pairSums<Sums>(first,
                              pairSums<Sums>(folded<Sums>(D(), v[2]), folded<Sums>(D(), v[3])));
}

/// out[p] = sum of the lanes of v[p].
template <int batch, typename T, class D, class V>
HWY_INLINE void storeSums(D d, const V* v, T* out)
{
    constexpr int kLanes = 16 / sizeof(T);
    for (int p = 0; p < batch; p += kLanes) hn::StoreU(sumsOf<T>(d, v + p), SumsTag<T>(), out + p);
}

#endif

/// Where to read for a batch of points: index of the first tap in the line, the row below and how
/// far on to the next.
template <typename T> struct TapPoints {
    HWY_ALIGN std::int32_t start[kBatch], row[kBatch];
    HWY_ALIGN T fraction[kBatch];
};

/// False if a point has taps that are no samples.
template <int taps, int batch, typename T>
HWY_INLINE bool findPoints(const TapSource<T>& source, const double* distances, TapPoints<T>& to)
{
    const hn::CappedTag<double, batch> d;
    const hn::Rebind<std::int32_t, decltype(d)> di;
    const hn::Rebind<T, decltype(d)> dt;
    const auto capacity = hn::Set(di, source.capacity);
    auto oldest = hn::Set(di, 0), newest = hn::Set(di, taps);
    for (std::size_t i = 0; i < batch; i += hn::Lanes(d)) {
        const auto distance = hn::LoadU(d, distances + i);
        // The sample before the point, and how far the point lies beyond it.
        const auto whole = hn::Ceil(distance);
        const auto place = hn::Mul(hn::Sub(whole, distance), hn::Set(d, source.phases));
        const auto age = hn::Add(hn::DemoteTo(di, whole), hn::Set(di, taps / 2 - 1));
        oldest = hn::Max(oldest, age);
        newest = hn::Min(newest, age);
        const auto start = hn::Sub(hn::Set(di, source.newest), age);
        hn::Store(hn::Add(start, hn::IfThenElseZero(hn::Lt(start, hn::Zero(di)), capacity)), di,
                  to.start + i);
        if constexpr (sizeof(T) == 4) {
            const auto fine = hn::DemoteTo(dt, place);
            const auto row = hn::ConvertTo(di, fine);
            hn::Store(row, di, to.row + i);
            hn::Store(hn::Sub(fine, hn::ConvertTo(dt, row)), dt, to.fraction + i);
        } else {
            const auto row = hn::DemoteTo(di, place);
            hn::Store(row, di, to.row + i);
            hn::Store(hn::Sub(place, hn::PromoteTo(dt, row)), dt, to.fraction + i);
        }
    }
    return hn::AllTrue(di, hn::And(hn::Lt(oldest, hn::Set(di, source.valid)),
                                   hn::Gt(newest, hn::Set(di, taps - 2))));
}

/// Reads `batch` points, or the n that there are; false if one has taps that are no samples. The
/// taps of a point are interpolated between two rows once and serve all channels. A batch that is
/// not full repeats its last point, so that a point's result does not depend on its place.
template <int taps, int channels, int batch, typename T>
HWY_INLINE bool readBatch(const TapSource<T>& source, const double* distances, int n, T* const* out,
                          int to)
{
    // The largest power of two that divides the taps: whole vectors.
    const hn::CappedTag<T, (taps & -taps)> d;
    using V = hn::Vec<decltype(d)>;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));
    double last[batch];
    if (n < batch) {
        for (int p = 0; p < batch; ++p) last[p] = distances[p < n ? p : n - 1];
        distances = last;
    }
    TapPoints<T> points;
    if (!findPoints<taps, batch>(source, distances, points)) return false;
    // As many points at a time as one store takes: their sums stay in registers.
    constexpr int kPoints = 16 / sizeof(T) < batch ? 16 / sizeof(T) : batch;
    T rest[channels][batch];
    for (int first = 0; first < batch; first += kPoints) {
        V sum[channels][kPoints];
        for (int p = 0; p < kPoints; ++p) {
            const T* const below = source.rows + points.row[first + p] * taps;
            const T* const above = below + taps;
            const auto fraction = hn::Set(d, points.fraction[first + p]);
            for (int c = 0; c < channels; ++c) sum[c][p] = hn::Zero(d);
            for (int t = 0; t < taps; t += kLanes) {
                const auto from = hn::LoadU(d, below + t);
                const auto tap = hn::MulAdd(fraction, hn::Sub(hn::LoadU(d, above + t), from), from);
                for (int c = 0; c < channels; ++c) {
                    const T* const line = source.lines[c] + points.start[first + p] + t;
                    sum[c][p] = hn::MulAdd(tap, hn::LoadU(d, line), sum[c][p]);
                }
            }
        }
        for (int c = 0; c < channels; ++c)
            storeSums<kPoints>(d, sum[c], (n < batch ? rest[c] : out[c] + to) + first);
    }
    if (n < batch)
        for (int c = 0; c < channels; ++c)
            for (int p = 0; p < n; ++p) out[c][to + p] = rest[c][p];
    return true;
}

/// Reads points until a batch has taps that are no samples; returns how many.
template <int taps, int channels, typename T>
HWY_INLINE int readOf(const TapSource<T>& source, const double* distances, int n, T* const* out)
{
    int i = 0;
    for (; n - i > kBatch / 2; i += kBatch)
        if (!readBatch<taps, channels, kBatch>(source, distances + i, n - i, out, i)) return i;
    if (i < n && !readBatch<taps, channels, kBatch / 2>(source, distances + i, n - i, out, i))
        return i;
    return n;
}

template <int taps, typename T>
HWY_INLINE int readAny(const TapSource<T>& source, const double* distances, int n, T* const* out)
{
    return source.channels == 1 ? readOf<taps, 1>(source, distances, n, out)
                                : readOf<taps, 2>(source, distances, n, out);
}

#define QUILLWORKS_READER(T, taps, name)                                                           \
    int name(const TapSource<T>& source, const double* distances, int n, T* const* out)            \
    {                                                                                              \
        return readAny<taps>(source, distances, n, out);                                           \
    }
QUILLWORKS_READER(float, 32, readFloat32)

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

HWY_EXPORT(readFloat32);

template <typename T> using Reader = int (*)(const TapSource<T>&, const double*, int, T* const*);
template <typename T, int taps> const Reader<T> chosenReader = nullptr;
template <> const Reader<float> chosenReader<float, 32> = SIMD_CHOOSE(readFloat32);

/// A point some of whose taps are no samples: before the clear, or newer than the newest, where
/// the first row has a 0. A line of its own is made of them.
template <typename T, int taps>
void readEdge(const LongLine<T>& line, int channel, TapSource<T> source, double distance,
              T* const* out) noexcept
{
    constexpr int kBefore = taps / 2 - 1;
    const int whole = static_cast<int>(std::ceil(distance)), age = whole + kBefore;
    const int newest = std::max(0, age - taps + 1);
    T around[2][taps]{};
    for (int c = 0; c < source.channels; ++c) {
        line.copy(channel + c, around[c], age, age - newest + 1);
        source.lines[c] = around[c];
    }
    // In that line the newest tap has the distance 0.
    source.newest = source.capacity = source.valid = taps;
    --source.newest;
    const double within = distance - whole + taps / 2;
    chosenReader<T, taps>(source, &within, 1, out);
}

}  // namespace

template <typename T, int taps>
void readBetween(const LongLine<T>& line, int channel, int channels, TapRows<T> rows,
                 const double* distances, int n, T* const* out) noexcept
{
    const TapSource<T> source{{line.start(channel), line.start(channel + channels - 1)},
                              channels,
                              line.place(0),
                              line.capacity(),
                              line.valid(),
                              rows.rows,
                              rows.phases};
    for (int i = 0; i < n;) {
        T* to[2] = {out[0] + i, out[channels - 1] + i};
        i += chosenReader<T, taps>(source, distances + i, n - i, to);
        const int end = std::min(n, i + kBatch);
        for (; i < end; ++i) {
            T* const one[2] = {out[0] + i, out[channels - 1] + i};
            readEdge<T, taps>(line, channel, source, distances[i], one);
        }
    }
}
template void readBetween<float, 32>(const LongLine<float>&, int, int, TapRows<float>,
                                     const double*, int, float* const*) noexcept;

}  // namespace quillworks
#endif
