// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/oversampler.cpp"
#include "dsp/simd.h"
//
#include "dsp/midpoint-inl.h"
#include "dsp/oversampler.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// What came with the last n samples becomes the past.
template <typename T, class Line>
HWY_INLINE void forget(const Line* line, const Line* end, T* x, int n)
{
    const PairTag<T> d;
    for (; line != end; ++line)
        for (int i = 0; i < line->count; i += static_cast<int>(hn::MaxLanes(d)))
            hn::StoreU(hn::LoadU(d, x + line->past + n + i), d, x + line->past + i);
}

/// Each filter for n samples, rounded up to whole vectors. No sample depends on its place.
template <typename T, class Filter, class Pair>
HWY_INLINE void filter(const Filter* f, const Filter* end, const Pair* pairs, T* x, int n)
{
    const PairTag<T> d;
    using V = hn::Vec<PairTag<T>>;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));
    const V half = hn::Set(d, T(0.5));
    for (; f != end; ++f) {
        const Pair *const first = pairs + f->begin, *const last = pairs + f->end;
        int i = 0;
        for (; i + 4 * kLanes <= n; i += 4 * kLanes) {  // the sums wait for no other
            V a = hn::Zero(d), b = a, c = a, e = a;
            for (const Pair* p = first; p != last; ++p) {
                const V tap = hn::Set(d, p->tap);
                const T *l = x + p->left + i, *r = x + p->right + i;
                a = hn::MulAdd(tap, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), a);
                l += kLanes, r += kLanes;
                b = hn::MulAdd(tap, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), b);
                l += kLanes, r += kLanes;
                c = hn::MulAdd(tap, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), c);
                l += kLanes, r += kLanes;
                e = hn::MulAdd(tap, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), e);
            }
            if (f->even >= 0) {
                const T* even = x + f->even + i;
                a = hn::Mul(half, hn::Add(a, hn::LoadU(d, even)));
                b = hn::Mul(half, hn::Add(b, hn::LoadU(d, even + kLanes)));
                c = hn::Mul(half, hn::Add(c, hn::LoadU(d, even + 2 * kLanes)));
                e = hn::Mul(half, hn::Add(e, hn::LoadU(d, even + 3 * kLanes)));
            }
            T* const out = x + f->out + i;
            hn::StoreU(a, d, out);
            hn::StoreU(b, d, out + kLanes);
            hn::StoreU(c, d, out + 2 * kLanes);
            hn::StoreU(e, d, out + 3 * kLanes);
        }
        for (; i < n; i += kLanes) {
            V a = hn::Zero(d);
            for (const Pair* p = first; p != last; ++p)
                a = hn::MulAdd(
                    hn::Set(d, p->tap),
                    hn::Add(hn::LoadU(d, x + p->left + i), hn::LoadU(d, x + p->right + i)), a);
            if (f->even >= 0) a = hn::Mul(half, hn::Add(a, hn::LoadU(d, x + f->even + i)));
            hn::StoreU(a, d, x + f->out + i);
        }
    }
}

#define QUILLWORKS_OVERSAMPLER(T, suffix)                                                          \
    void forget##suffix(const Oversampler<T>::Line* line, const Oversampler<T>::Line* end, T* x,   \
                        int n)                                                                     \
    {                                                                                              \
        forget(line, end, x, n);                                                                   \
    }                                                                                              \
    void filter##suffix(const Oversampler<T>::Filter* f, const Oversampler<T>::Filter* end,        \
                        const Oversampler<T>::Pair* pairs, T* x, int n)                            \
    {                                                                                              \
        filter(f, end, pairs, x, n);                                                               \
    }
QUILLWORKS_OVERSAMPLER(float, Float)
QUILLWORKS_OVERSAMPLER(double, Double)

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>

#include "dsp/midpoint_filter.h"

namespace quillworks {
namespace {

HWY_EXPORT(forgetFloat);
HWY_EXPORT(forgetDouble);
HWY_EXPORT(filterFloat);
HWY_EXPORT(filterDouble);

template <typename T> struct Builds {
    using Way = Oversampler<T>;
    void (*forget)(const typename Way::Line*, const typename Way::Line*, T*, int);
    void (*filter)(const typename Way::Filter*, const typename Way::Filter*,
                   const typename Way::Pair*, T*, int);
};
template <typename T> const Builds<T> chosen{};
template <>
const Builds<float> chosen<float> = {SIMD_CHOOSE(forgetFloat), SIMD_CHOOSE(filterFloat)};
template <>
const Builds<double> chosen<double> = {SIMD_CHOOSE(forgetDouble), SIMD_CHOOSE(filterDouble)};

constexpr int kPadding = 8;  // whole vectors are read and written

int quotientUp(int a, int b)
{
    return (a + b - 1) / b;
}

/// The even filter from its inner pair of taps on: a sinc of half the bandwidth with 2 `half` taps
/// under a Kaiser window (beta 8), convolved with the treble that `alpha` asks for.
template <typename T> std::array<T, 32> evenTaps(int half, double alpha)
{
    const KaiserWindow window(8);
    double tap[33]{}, sum = 0;  // tap k lies k + 1/2 from the middle
    for (int k = 0; k < half; ++k) sum += tap[k] = sinc((k + 0.5) / 2) * window((k + 0.5) / half);
    std::array<T, 32> taps{};
    for (int k = 0; k <= half; ++k) {
        const double inner = tap[k == 0 ? 0 : k - 1], outer = tap[k + 1];
        const double raised = (1 + 2 * alpha) * tap[k] - alpha * (inner + outer);
        taps[std::size_t(k)] = static_cast<T>(raised / (2 * sum));
    }
    return taps;
}

}  // namespace

/// Place of the new line's samples of this call.
template <typename T> int Oversampler<T>::addLine(int past)
{
    lines_.push_back({size_, past});
    size_ += past + kSubBlock + kPadding;
    return size_ - kSubBlock - kPadding;
}

/// The points after sample `index` of a signal kept in phases: sample 0 is x[0], 1 is x[1] and so
/// on, the next frame's behind.
template <typename T>
template <std::size_t size>
void Oversampler<T>::addFilter(const Phases& x, int index, const std::array<T, size>& taps,
                               int count, int even, int out)
{
    const int phases = static_cast<int>(x.size());
    const auto place = [&](int i) {
        const int phase = (i % phases + phases) % phases;
        return x[static_cast<std::size_t>(phase)] + (i - phase) / phases;
    };
    const int begin = static_cast<int>(pairs_.size());
    for (int k = 0; k < count; ++k)
        pairs_.push_back(
            {place(index - k), place(index + 1 + k), taps[static_cast<std::size_t>(k)]});
    filters_.push_back({begin, begin + count, even, out});
}

template <typename T>
template <std::size_t size>
auto Oversampler<T>::doubled(Phases x, const std::array<T, size>& taps) -> Phases
{
    // The last point of a frame needs `size` samples from the ones to come.
    const int phases = static_cast<int>(x.size()), delay = (phases - 1 + int(size)) / phases;
    for (int& place : x) place -= delay;
    latency_ += delay;
    Phases all;
    for (int p = 0; p < phases; ++p) {
        all.push_back(x[static_cast<std::size_t>(p)]);
        all.push_back(addLine(8));
        addFilter(x, p, taps, size, -1, all.back());
    }
    return all;
}

template <typename T> auto Oversampler<T>::halvedEvenly(const Phases& x, double alpha) -> Phases
{
    const int phases = static_cast<int>(x.size());
    const int half = phases == 8 ? 9 : phases == 4 ? 13 : 31;
    const auto taps = evenTaps<T>(half, alpha);
    // With the shaper's half sample a whole number of the higher rate, made one of the lower.
    const int delay = quotientUp(half, phases);
    latency_ += delay;
    Phases fewer;
    for (int p = 0; p < phases; p += 2) {
        fewer.push_back(addLine(phases == 4 ? 32 : 8));
        addFilter(x, p - delay * phases, taps, half + 1, -1, fewer.back());
    }
    return fewer;
}

template <typename T>
template <std::size_t size>
auto Oversampler<T>::halved(Phases x, const std::array<T, size>& taps) -> Phases
{
    const int phases = static_cast<int>(x.size()) / 2, delay = (phases - 2 + int(size)) / phases;
    latency_ += delay;
    Phases odd, fewer;
    for (int p = 0; p < phases; ++p) odd.push_back(x[static_cast<std::size_t>(2 * p + 1)] - delay);
    for (int p = 0; p < phases; ++p) {
        fewer.push_back(addLine(phases == 2 ? 32 : 8));
        addFilter(odd, p - 1, taps, size, x[static_cast<std::size_t>(2 * p)] - delay, fewer.back());
    }
    return fewer;
}

template <typename T> void Oversampler<T>::prepare(int factor, double alpha)
{
    const auto first = midpointTaps<T, 16>(8);
    const auto second = midpointTaps<T, 5>(8);
    const auto third = midpointTaps<T, 3>(7);
    lines_.clear();
    pairs_.clear();
    filters_.clear();
    factor_ = factor;
    latency_ = size_ = n_ = 0;

    in_ = addLine(32);
    Phases x{in_}, shaped;
    if (factor >= 2) x = doubled(x, first);
    if (factor >= 4) x = doubled(x, second);
    if (factor >= 8) x = doubled(x, third);
    upFilters_ = static_cast<int>(filters_.size());
    for (int p = 0; p < factor; ++p) shaped.push_back(addLine(factor == 2 ? 32 : 8));
    Phases y = shaped;
    if (factor >= 2) y = halvedEvenly(y, alpha);
    if (factor >= 8) y = halved(y, second);
    if (factor >= 4) y = halved(y, first);
    out_ = y[0];

    samples_.require(static_cast<std::size_t>(size_));
    reset();
    for (std::size_t p = 0; p < x.size(); ++p) {
        up_[p] = samples_.data() + x[p];
        shaped_[p] = samples_.data() + shaped[p];
    }
}

template <typename T> const T* const* Oversampler<T>::up(const T* x, int n) noexcept
{
    T* const samples = samples_.data();
    chosen<T>.forget(lines_.data(), lines_.data() + lines_.size(), samples, n_);
    n_ = n;
    std::copy_n(x, n, samples + in_);
    chosen<T>.filter(filters_.data(), filters_.data() + upFilters_, pairs_.data(), samples, n);
    return up_;
}

template <typename T> void Oversampler<T>::down(T* out) noexcept
{
    T* const samples = samples_.data();
    chosen<T>.filter(filters_.data() + upFilters_, filters_.data() + filters_.size(), pairs_.data(),
                     samples, n_);
    std::copy_n(samples + out_, n_, out);
}

template class Oversampler<float>;
template class Oversampler<double>;

}  // namespace quillworks
#endif
