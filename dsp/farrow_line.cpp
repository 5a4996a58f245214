// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/farrow_line.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "dsp/farrow_line.h"

#ifndef QUILLWORKS_FARROW_RINGS
#define QUILLWORKS_FARROW_RINGS
namespace quillworks {
namespace {

constexpr int kReach = FarrowLine<float>::kReach, kOrder = FarrowLine<float>::kOrder;
constexpr int kHalf = kOrder / 2;  // coefficients that are odd, and that are even but for the first

/// The filters behind the coefficients. Those of odd powers are odd around the sample, those of
/// even ones even; the first is the sample itself.
template <typename T> struct FarrowFilters {
    T middle[kHalf];            // powers 2, 4, 6
    T pairs[kReach][2][kHalf];  // of the samples nearby first: powers 1, 3, 5 and 2, 4, 6
};

/// Where a kernel reads.
template <typename T> struct FarrowRings {
    const T* start;               // the first coefficient of the first channel
    std::ptrdiff_t stride;        // from a coefficient to the next
    std::ptrdiff_t channels;      // from a channel to the next
    int capacity, newest, valid;  // samples in a ring, where the newest is, those since the clear
};

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

template <typename T> using Lanes = hn::CappedTag<T, 8>;

/// A vector in a register. g++ would rather load it anew for each use; filters that wait for their
/// loads alone lose a quarter by that.
template <class D> HWY_INLINE hn::Vec<D> loadedOnce(D d, const hn::TFromD<D>* from)
{
    auto v = hn::LoadU(d, from);
#if defined(__x86_64__) && !defined(__clang__)
    asm("" : "+x"(v.raw));
#endif
    return v;
}

/// The coefficients around n samples from x[c][0] on; up to a vector more is read and written.
template <int channels, typename T>
HWY_INLINE void filterOf(const FarrowFilters<T>& filters, const T* const* x, int n,
                         std::ptrdiff_t stride, T* const* to)
{
    const Lanes<T> d;
    using V = hn::Vec<decltype(d)>;
    for (int i = 0; i < n; i += static_cast<int>(hn::Lanes(d))) {
        V odd[channels][kHalf], even[channels][kHalf];
        const T* at[channels];
        for (int c = 0; c < channels; ++c) {
            at[c] = x[c] + i;
            const auto here = hn::LoadU(d, at[c]);
            hn::StoreU(here, d, to[c] + i);
            for (int k = 0; k < kHalf; ++k) {
                odd[c][k] = hn::Zero(d);
                even[c][k] = hn::Mul(here, hn::Set(d, filters.middle[k]));
            }
        }
        for (int t = 0; t < kReach; ++t) {
            const auto& pair = filters.pairs[t];
            V before[channels], after[channels];
            for (int c = 0; c < channels; ++c) {
                before[c] = loadedOnce(d, at[c] - 1 - t);
                after[c] = loadedOnce(d, at[c] + 1 + t);
            }
            V difference[channels], sum[channels];
            for (int c = 0; c < channels; ++c) {
                difference[c] = hn::Sub(after[c], before[c]);
                sum[c] = hn::Add(after[c], before[c]);
            }
            for (int k = 0; k < kHalf; ++k) {
                const auto by = hn::Set(d, pair[0][k]);
                for (int c = 0; c < channels; ++c)
                    odd[c][k] = hn::MulAdd(difference[c], by, odd[c][k]);
            }
            for (int k = 0; k < kHalf; ++k) {
                const auto by = hn::Set(d, pair[1][k]);
                for (int c = 0; c < channels; ++c) even[c][k] = hn::MulAdd(sum[c], by, even[c][k]);
            }
        }
        for (int c = 0; c < channels; ++c) {
            T* const out = to[c] + i;
            for (int k = 0; k < kHalf; ++k) {
                hn::StoreU(odd[c][k], d, out + (2 * k + 1) * stride);
                hn::StoreU(even[c][k], d, out + (2 * k + 2) * stride);
            }
        }
    }
}

template <typename T>
HWY_INLINE void filterAny(const FarrowFilters<T>& filters, const T* const* x, int channels, int n,
                          std::ptrdiff_t stride, T* const* to)
{
    // Two channels share the loads of the filters, but with 16 wide registers their sums have no
    // room.
    constexpr bool kHasRoom = HWY_TARGET != HWY_AVX2;
    if (kHasRoom && channels == 2) return filterOf<2>(filters, x, n, stride, to);
    for (int c = 0; c < channels; ++c) filterOf<1>(filters, x + c, n, stride, to + c);
}

/// The sample that is nearest to a place.
HWY_INLINE std::int64_t nearest(std::int64_t place)
{
    return (place + TapGlide::kOne / 2) >> 32;
}

/// The polynomials of consecutive samples at `phase`, -0.5 .. 0.5 of a sample from each.
template <class D, typename T>
HWY_INLINE hn::Vec<D> polynomials(D d, const T* plane, std::ptrdiff_t stride, hn::Vec<D> phase)
{
    auto y = hn::LoadU(d, plane + kOrder * stride);
    for (int k = kOrder - 1; k >= 0; --k)
        y = hn::MulAdd(y, phase, hn::LoadU(d, plane + k * stride));
    return y;
}

/// Where in a ring the sample `at` lies, which is negative, the newest of all being -1.
template <typename T>
HWY_INLINE std::ptrdiff_t placeOf(const FarrowRings<T>& rings, std::int64_t at)
{
    const auto place = static_cast<std::ptrdiff_t>(rings.newest + kReach + 1 + at);
    return place < 0 ? place + rings.capacity : place;
}

/// A vector of points, of which n count, where they do not meet the samples one after the other, or
/// some lie before the clear: polynomials of all samples that are met, each at its points.
template <class D, typename T>
HWY_NOINLINE hn::Vec<D> scattered(D d, const FarrowRings<T>& rings, const T* ring,
                                  std::int64_t first, std::int64_t step, int n, hn::Vec<D> phase)
{
    auto y = hn::Zero(d);
    const auto before = [&](int lane)
                            HWY_ATTR { return hn::FirstN(d, static_cast<std::size_t>(lane)); };
    const std::int64_t oldest = -kReach - rings.valid;
    for (int i = 0; i < n;) {
        const std::int64_t start = nearest(first + i * step) - i;
        int end = i + 1;
        while (end < n && nearest(first + end * step) - end == start) ++end;
        const std::int64_t none = oldest - start - i;
        if (none > 0) {
            y = hn::IfThenElseZero(before(i), y);
            i = none < end - i ? i + static_cast<int>(none) : end;
        }
        if (i < end) {
            const auto here = polynomials(d, ring + placeOf(rings, start), rings.stride, phase);
            y = hn::IfThenElse(before(i), y, here);
        }
        i = end;
    }
    return y;
}

/// The first n lanes of y, or `to` more by them times gains.
template <bool adds, class D, typename T>
HWY_INLINE void storeSome(D d, hn::Vec<D> y, const T* gains, int n, T* to)
{
    HWY_ALIGN T all[2][hn::MaxLanes(D())];
    const bool isFull = n == static_cast<int>(hn::Lanes(d));
    if constexpr (adds) {
        if (!isFull) {
            std::copy_n(gains, n, all[0]);
            std::copy_n(to, n, all[1]);
        }
        y = hn::MulAdd(y, hn::LoadU(d, isFull ? gains : all[0]),
                       hn::LoadU(d, isFull ? to : all[1]));
    }
    if (isFull) return hn::StoreU(y, d, to);
    hn::Store(y, d, all[0]);
    std::copy_n(all[0], n, to);
}

/// How far points lie from the samples that are nearest: of the digits below a sample, read as a
/// signed number, the upper half lies before the next one.
template <class D> HWY_INLINE hn::Vec<D> phasesOf(D d, hn::Vec<hn::Rebind<std::int32_t, D>> digits)
{
    const auto half = hn::Set(d, hn::TFromD<D>(0x1p-32));
    if constexpr (sizeof(hn::TFromD<D>) == 4)
        return hn::Mul(hn::ConvertTo(d, digits), half);
    else
        return hn::Mul(hn::PromoteTo(d, digits), half);
}

/// Points that lie `step` apart from `first` on, in 2^-32 of a sample; the newest sample is at -1.
template <bool adds, typename T>
HWY_INLINE void followOf(const FarrowRings<T>& rings, const T* ring, std::int64_t first,
                         std::int64_t step, int n, const T* gains, T* out)
{
    const Lanes<T> d;
    const hn::Rebind<std::int32_t, decltype(d)> di;
    const auto lanes = static_cast<int>(hn::Lanes(d));
    const auto low = [](std::int64_t x) { return static_cast<std::int32_t>(x); };
    auto digits =
        hn::Add(hn::Set(di, low(first)), hn::Mul(hn::Iota(di, 0), hn::Set(di, low(step))));
    const auto further = hn::Set(di, low(step * lanes));
    const std::int64_t start = nearest(first), end = first + (n - 1) * step;
    const bool isWhole = nearest(first < end ? first : end) >= -kReach - rings.valid;
    int i = 0;
    if (isWhole && nearest(end) - start == n - 1) {
        // One sample after the other, as far as the ring goes.
        const std::ptrdiff_t place = placeOf(rings, start), room = rings.capacity - place;
        const int whole = static_cast<int>(n < room ? n : room) / lanes * lanes;
        for (; i < whole; i += lanes, digits = hn::Add(digits, further)) {
            auto y = polynomials(d, ring + place + i, rings.stride, phasesOf(d, digits));
            if constexpr (adds) y = hn::MulAdd(y, hn::LoadU(d, gains + i), hn::LoadU(d, out + i));
            hn::StoreU(y, d, out + i);
        }
        first += whole * step;
    }
    for (; i < n; i += lanes, first += lanes * step, digits = hn::Add(digits, further)) {
        const auto phase = phasesOf(d, digits);
        const int count = n - i < lanes ? n - i : lanes;
        const std::int64_t from = nearest(first);
        const bool isRun = isWhole && nearest(first + (count - 1) * step) - from == count - 1;
        const auto y = isRun ? polynomials(d, ring + placeOf(rings, from), rings.stride, phase)
                             : scattered(d, rings, ring, first, step, count, phase);
        storeSome<adds>(d, y, adds ? gains + i : nullptr, count, out + i);
    }
}

template <typename T>
HWY_INLINE void followAll(const FarrowRings<T>& rings, const typename FarrowLine<T>::Tap* taps,
                          std::size_t count, int n)
{
    for (std::size_t i = 0; i < count; ++i) {
        const auto& tap = taps[i];
        const T* const ring = rings.start + tap.channel * rings.channels;
        const std::int64_t first = -TapGlide::kOne - tap.glide.first, step = -tap.glide.step;
        if (tap.gains)
            followOf<true>(rings, ring, first, step, n, tap.gains, tap.out);
        else
            followOf<false>(rings, ring, first, step, n, tap.gains, tap.out);
    }
}

#define QUILLWORKS_FARROW(T, filterName, followName)                                               \
    void filterName(const FarrowFilters<T>& filters, const T* const* x, int channels, int n,       \
                    std::ptrdiff_t stride, T* const* to)                                           \
    {                                                                                              \
        filterAny(filters, x, channels, n, stride, to);                                            \
    }                                                                                              \
    void followName(const FarrowRings<T>& rings, const FarrowLine<T>::Tap* taps,                   \
                    std::size_t count, int n)                                                      \
    {                                                                                              \
        followAll(rings, taps, count, n);                                                          \
    }
QUILLWORKS_FARROW(float, filterFloat, followFloat)
QUILLWORKS_FARROW(double, filterDouble, followDouble)

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <array>
#include <cmath>
#include <numbers>

#include "dsp/kaiser.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

HWY_EXPORT(filterFloat);
HWY_EXPORT(filterDouble);
HWY_EXPORT(followFloat);
HWY_EXPORT(followDouble);

template <typename T>
using Filter = void (*)(const FarrowFilters<T>&, const T* const*, int, int, std::ptrdiff_t,
                        T* const*);
template <typename T> const Filter<T> chosenFilter = nullptr;
template <> const Filter<float> chosenFilter<float> = SIMD_CHOOSE(filterFloat);
template <> const Filter<double> chosenFilter<double> = SIMD_CHOOSE(filterDouble);

template <typename T>
using Follower = void (*)(const FarrowRings<T>&, const typename FarrowLine<T>::Tap*, std::size_t,
                          int);
template <typename T> const Follower<T> chosenFollower = nullptr;
template <> const Follower<float> chosenFollower<float> = SIMD_CHOOSE(followFloat);
template <> const Follower<double> chosenFollower<double> = SIMD_CHOOSE(followDouble);

/// Coefficients of a parabola through three points.
std::array<double, 3> parabola(const std::array<double, 3>& x, const std::array<double, 3>& y)
{
    const double a = (y[1] - y[0]) / (x[1] - x[0]);
    const double b = ((y[2] - y[1]) / (x[2] - x[1]) - a) / (x[2] - x[0]);
    return {y[0] - x[0] * (a - b * x[1]), a - b * (x[0] + x[1]), b};
}

/// Polynomials in the phase through a windowed sinc, tap by tap: even and odd parts meet it where
/// polynomials of Chebyshev have their zeros.
template <typename T> FarrowFilters<T> designed()
{
    constexpr double kBeta = 9.8;  // weighs 15 kHz against 18 kHz at 48 kHz
    const KaiserWindow window(kBeta);
    const auto kernel = [&](double t) { return sinc(t) * window(t / (kReach + 0.5)); };
    const auto tap = [&](int t, double phase) {
        double sum = 0;
        for (int i = -kReach; i <= kReach; ++i) sum += kernel(phase - i);
        return kernel(phase - t) / sum;
    };
    const auto fitted = [&](int t, bool isOdd) {
        std::array<double, 3> squares, values;
        for (int i = 0; i < 3; ++i) {
            const double zeros = isOdd ? kOrder : kOrder + 1;
            const double phase = 0.5 * std::cos(std::numbers::pi * (i + 0.5) / zeros);
            const double after = tap(t, phase), before = tap(t, -phase);
            const double value = isOdd ? (after - before) / (2 * phase)
                                       : ((after + before) / 2 - (t == 0)) / (phase * phase);
            squares[static_cast<std::size_t>(i)] = phase * phase;
            values[static_cast<std::size_t>(i)] = value;
        }
        return parabola(squares, values);
    };
    FarrowFilters<T> filters;
    const auto keep = [](const std::array<double, 3>& from, T* to) {
        std::transform(from.begin(), from.end(), to, [](double x) { return static_cast<T>(x); });
    };
    keep(fitted(0, false), filters.middle);
    for (int t = 1; t <= kReach; ++t) {
        keep(fitted(t, true), filters.pairs[t - 1][0]);
        keep(fitted(t, false), filters.pairs[t - 1][1]);
    }
    return filters;
}

template <typename T> const FarrowFilters<T>& filters()
{
    static const FarrowFilters<T> all = designed<T>();
    return all;
}

}  // namespace

template <typename T> void FarrowLine<T>::prepare(int channels, int capacity)
{
    filters<T>();
    // An odd number of alignments apart: rings do not compete for one set of the cache.
    constexpr std::ptrdiff_t kUnit = AlignedBytes::kAlignment / sizeof(T);
    // What is written past the end of what counts is the oldest in the ring.
    capacity_ = capacity + 2 * kVector;
    stride_ = ((capacity_ + kBehind + kUnit - 1) / kUnit | 1) * kUnit;
    planes_.requireUncleared(static_cast<std::size_t>(stride_ * channels * kPlanes));
    history_.require(static_cast<std::size_t>(channels * kHistory));
    channels_ = channels;
    next_ = 0;
    clear();
}

template <typename T> void FarrowLine<T>::clear() noexcept
{
    valid_ = 0;
    filled_ = 2 * kReach;
    for (int c = 0; c < channels_; ++c) vec::clear(history(c), filled_);
}

template <typename T> void FarrowLine<T>::advance(int n) noexcept
{
    for (int c = 0; c < channels_; c += 2) {
        const int other = std::min(c + 1, channels_ - 1);
        const T* const x[2] = {history(c) + filled_ - kReach, history(other) + filled_ - kReach};
        T* const to[2] = {plane(c) + next_, plane(other) + next_};
        chosenFilter<T>(filters<T>(), x, other - c + 1, n, stride_, to);
    }
    if (next_ < kVector || next_ + n > capacity_)
        for (int c = 0; c < channels_; ++c) wrap(c, n);
    next_ += n < capacity_ - next_ ? n : n - capacity_;
    valid_ = std::min(valid_ + n, capacity_);
    filled_ += n;
    if (filled_ + kLongest + kVector <= kHistory) return;
    for (int c = 0; c < channels_; ++c)
        vec::copy(history(c), history(c) + filled_ - 2 * kReach, 2 * kReach);
    filled_ = 2 * kReach;
}

/// Of n samples written at next_: what lies behind the end of a ring goes to its start, too, and
/// what lies at the start behind the end.
template <typename T> void FarrowLine<T>::wrap(int channel, int n) noexcept
{
    const int past = next_ + n - capacity_, begun = std::min(next_ + n, kVector) - next_;
    for (int k = 0; k < kPlanes; ++k) {
        T* const ring = plane(channel) + k * stride_;
        if (past > 0) vec::copy(ring, ring + capacity_, past);
        if (begun > 0) vec::copy(ring + capacity_ + next_, ring + next_, begun);
    }
}

template <typename T> void FarrowLine<T>::read(std::span<const Tap> taps, int n) const noexcept
{
    const FarrowRings<T> rings{planes_.data(),
                               stride_,
                               kPlanes * stride_,
                               capacity_,
                               next_ == 0 ? capacity_ - 1 : next_ - 1,
                               valid_};
    chosenFollower<T>(rings, taps.data(), taps.size(), n);
}

template class FarrowLine<float>;
template class FarrowLine<double>;

}  // namespace quillworks
#endif
