// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/true_peak_level.cpp"
#include "dsp/simd.h"
//
#include <cmath>
#include <numbers>

#include "dynamics/true_peak_level.h"

#ifndef QUILLWORKS_TRUE_PEAK_FILTERS
#define QUILLWORKS_TRUE_PEAK_FILTERS
namespace quillworks {
namespace {

/// Half of a symmetric filter that gives the point midway between two samples.
template <int size> struct Midpoint {
    float tap[size];  // from the nearest pair of samples on
};

struct Filters {
    Midpoint<40> longHalf;
    Midpoint<8> shortHalf;
    Midpoint<6> quarter;
    Midpoint<3> eighth;
};

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

// Eight lanes at most: the blocks are short, and unaligned loads of whole cache lines cost double.
using D = hn::CappedTag<float, 8>;
using V = hn::Vec<D>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

HWY_INLINE V at(const float* x)
{
    return hn::LoadU(D(), x);
}

/// out[i] = sum of h[k] (x[i - k] + x[i + 1 + k]) for `n` values, rounded up to whole vectors.
template <int size>
HWY_INLINE void halves(const Midpoint<size>& h, const float* x, float* out, int n)
{
    const D d;
    int i = 0;
    for (; i + 4 * kLanes <= n; i += 4 * kLanes) {  // four at a time: the sums wait for no other
        V a = hn::Zero(d), b = a, c = a, e = a;
        for (int k = 0; k < size; ++k) {
            const V gain = hn::Set(d, h.tap[k]);
            const float *l = x + i - k, *r = x + i + 1 + k;
            a = hn::MulAdd(gain, hn::Add(at(l), at(r)), a);
            b = hn::MulAdd(gain, hn::Add(at(l + kLanes), at(r + kLanes)), b);
            c = hn::MulAdd(gain, hn::Add(at(l + 2 * kLanes), at(r + 2 * kLanes)), c);
            e = hn::MulAdd(gain, hn::Add(at(l + 3 * kLanes), at(r + 3 * kLanes)), e);
        }
        hn::StoreU(a, d, out + i);
        hn::StoreU(b, d, out + i + kLanes);
        hn::StoreU(c, d, out + i + 2 * kLanes);
        hn::StoreU(e, d, out + i + 3 * kLanes);
    }
    for (; i < n; i += kLanes) {
        V a = hn::Zero(d);
        for (int k = 0; k < size; ++k)
            a = hn::MulAdd(hn::Set(d, h.tap[k]), hn::Add(at(x + i - k), at(x + i + 1 + k)), a);
        hn::StoreU(a, d, out + i);
    }
}

/// The sums of the pairs around a point, nearest first, weighted.
template <int size, class... Pairs> HWY_INLINE V weigh(const Midpoint<size>& h, Pairs... pairs)
{
    static_assert(sizeof...(pairs) == size);
    V sum = hn::Zero(D());
    int k = 0;
    ((sum = hn::MulAdd(hn::Set(D(), h.tap[k++]), pairs, sum)), ...);
    return sum;
}

HWY_INLINE V pair(const float* a, const float* b)
{
    return hn::Add(at(a), at(b));
}

/// Points at i + 1/4 of a chain, from the samples and the points midway.
HWY_INLINE void firsts(const Midpoint<6>& h, const float* x, const float* m, float* out, int n)
{
    for (int i = 0; i < n; i += kLanes, x += kLanes, m += kLanes)
        hn::StoreU(weigh(h, pair(x, m), pair(m - 1, x + 1), pair(x - 1, m + 1), pair(m - 2, x + 2),
                         pair(x - 2, m + 2), pair(m - 3, x + 3)),
                   D(), out + i);
}

/// Points at i + 3/4.
HWY_INLINE void thirds(const Midpoint<6>& h, const float* x, const float* m, float* out, int n)
{
    for (int i = 0; i < n; i += kLanes, x += kLanes, m += kLanes)
        hn::StoreU(weigh(h, pair(m, x + 1), pair(x, m + 1), pair(m - 1, x + 2), pair(x - 1, m + 2),
                         pair(m - 2, x + 3), pair(x - 2, m + 3)),
                   D(), out + i);
}

/// The safe level of a point that the two chains see as a and b.
HWY_INLINE V joined(V a, V b)
{
    return hn::MulAdd(hn::Set(D(), 0.6f), hn::Abs(hn::Sub(a, b)), hn::Max(hn::Abs(a), hn::Abs(b)));
}

struct Points {
    const float *half, *first, *third;
};

/// level[0 .. lanes) becomes the larger of itself and v.
HWY_INLINE void raise(double* level, V v)
{
    const hn::CappedTag<double, 4> wide;
    const hn::Rebind<float, decltype(wide)> narrow;
    HWY_ALIGN float here[kLanes];
    hn::Store(v, D(), here);
    for (int i = 0; i < kLanes; i += static_cast<int>(hn::MaxLanes(wide))) {
        const auto raised = hn::PromoteTo(wide, hn::LoadU(narrow, here + i));
        hn::StoreU(hn::Max(hn::LoadU(wide, level + i), raised), wide, level + i);
    }
}

void raiseLevels(const Filters& f, TruePeakLevel::Channel& channel, const double* samples,
                 int frames, double* const* level)
{
    using Level = TruePeakLevel;
    using Chain = Level::Chain;
    constexpr int kReach = Level::kBehind + Level::kAhead + 2 * Level::kPadding;
    HWY_ALIGN float single[kReach + Level::kMaxFrames];
    const float* x = single + Level::kBehind;
    const int size = Level::kBehind + frames + Level::kAhead;
    for (int i = 0; i < size; ++i) single[i] = static_cast<float>(samples[i - Level::kBehind]);
    // Points that the frames need and the call before did not: the midway ones end three frames
    // later than the quarters, and those one frame later than the eighths.
    const int halvesKept = channel.goesOn ? Chain::kHalves : 0;
    const int kept = channel.goesOn ? Chain::kQuarters : 0;
    const int newHalves = frames + Chain::kHalves - halvesKept;
    const int newQuarters = frames + Chain::kQuarters - kept;
    Points points[2];
    for (int c = 0; c < 2; ++c) {
        Chain& chain = channel.chains[c];
        const float* const m = chain.half + 3;  // of frame 0
        const float* const from = x - 3 + halvesKept;
        if (c == 0)
            halves<40>(f.longHalf, from, chain.half + halvesKept, newHalves);
        else
            halves<8>(f.shortHalf, from, chain.half + halvesKept, newHalves);
        firsts(f.quarter, x + kept, m + kept, chain.first + kept, newQuarters);
        thirds(f.quarter, x - 1 + kept, m - 1 + kept, chain.third + kept, newQuarters);
        points[c] = {m, chain.first, chain.third + 1};
    }
    for (int i = 0; i < frames; i += kLanes, x += kLanes) {
        V eighth[4][2];
        for (int c = 0; c < 2; ++c) {
            const float *m = points[c].half + i, *p = points[c].first + i, *t = points[c].third + i;
            const auto& h = f.eighth;
            eighth[0][c] = weigh(h, pair(x, p), pair(t - 1, m), pair(m - 1, t));
            eighth[1][c] = weigh(h, pair(p, m), pair(x, t), pair(t - 1, x + 1));
            eighth[2][c] = weigh(h, pair(m, t), pair(p, x + 1), pair(x, p + 1));
            eighth[3][c] = weigh(h, pair(t, x + 1), pair(m, p + 1), pair(p, m + 1));
        }
        const auto& [a, b] = points;
        const V own[4] = {hn::Abs(at(x)), joined(at(a.first + i), at(b.first + i)),
                          joined(at(a.half + i), at(b.half + i)),
                          joined(at(a.third + i), at(b.third + i))};
        for (int p = 0; p < 4; ++p) {
            raise(level[p] + i, hn::Max(own[p], joined(eighth[p][0], eighth[p][1])));
        }
    }
    for (Chain& chain : channel.chains) {
        for (int i = 0; i < Chain::kHalves; ++i) chain.half[i] = chain.half[frames + i];
        chain.first[0] = chain.first[frames];
        chain.third[0] = chain.third[frames];
    }
    channel.goesOn = true;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(raiseLevels);
namespace {

void (*const chosenRaise)(const Filters&, TruePeakLevel::Channel&, const double*, int,
                          double* const*) = SIMD_CHOOSE(raiseLevels);

/// Modified Bessel function of order 0, by its series.
double bessel0(double x)
{
    double sum = 1, term = 1;
    for (int k = 1; k < 40; ++k) {
        term *= x * x / (4.0 * k * k);
        sum += term;
    }
    return sum;
}

/// Kaiser-windowed sinc, a gain of 1 for a constant.
template <int size> Midpoint<size> midpoint(double beta)
{
    double tap[size], sum = 0;
    for (int k = 0; k < size; ++k) {
        const double t = k + 0.5, x = std::numbers::pi * t;
        const double u = t / size;
        sum += tap[k] = std::sin(x) / x * bessel0(beta * std::sqrt(1 - u * u)) / bessel0(beta);
    }
    Midpoint<size> h;
    for (int k = 0; k < size; ++k) h.tap[k] = static_cast<float>(tap[k] / (2 * sum));
    return h;
}

const Filters kFilters = {midpoint<40>(8), midpoint<8>(4), midpoint<6>(8), midpoint<3>(6)};

}  // namespace

void TruePeakLevel::prepare(int channels)
{
    channels_.resize(static_cast<std::size_t>(channels));
    reset();
}

void TruePeakLevel::reset() noexcept
{
    for (auto& c : channels_) c = Channel{};
}

void TruePeakLevel::raise(int channel, const double* x, int frames, double* const* level) noexcept
{
    chosenRaise(kFilters, channels_[static_cast<std::size_t>(channel)], x, frames, level);
}

void TruePeakLevel::pass() noexcept
{
    for (auto& c : channels_) c.goesOn = false;
}

}  // namespace quillworks
#endif
