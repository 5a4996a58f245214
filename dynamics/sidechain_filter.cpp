// SPDX-License-Identifier: ISC
#include "dynamics/sidechain_filter.h"

#include <algorithm>
#include <cstddef>

namespace quillworks {
namespace {

using Pair [[gnu::vector_size(16)]] = double;

/// Coefficients as wide as the signal: spread once per run and not for every sample.
template <class V> struct Spread {
    V a11, a12, a21, a22, b1, b2, l1, l2, lx, h1, h2, hx;

    static Spread of(const SvfCoefficients& c) noexcept
    {
        const V o{};
        return {o + c.a11, o + c.a12, o + c.a21, o + c.a22, o + c.b1, o + c.b2,
                o + c.l1,  o + c.l2,  o + c.lx,  o + c.h1,  o + c.h2, o + c.hx};
    }
};

}  // namespace

void SidechainFilter::prepare(double sampleRate, int channels, int highCutOrder)
{
    sampleRate_ = sampleRate;
    highCutSections_ = highCutOrder / 2;
    channels_.resize(static_cast<std::size_t>(channels));
    reset();
}

void SidechainFilter::reset() noexcept
{
    std::fill(channels_.begin(), channels_.end(), Channel{});
    isParallel_ = wantsParallel_;
    isFading_ = false;
}

void SidechainFilter::tune(double lowCut, double highCut, bool isParallel) noexcept
{
    lowCutOn_ = lowCut > kLowest && lowCut <= kHighest;
    highCutOn_ = highCut >= kLowest && highCut < kHighest;
    wantsParallel_ = isParallel;
    const double* const highCutQ = highCutSections_ == 1 ? &kButterworthQ : kButterworth4Q;
    if (lowCutOn_)
        for (int i = 0; i < kSections; ++i)
            lowCutSection_[i] = SvfCoefficients::at(lowCut, sampleRate_, kButterworth4Q[i]);
    if (highCutOn_)
        for (int i = 0; i < highCutSections_; ++i)
            highCutSection_[i] = SvfCoefficients::at(highCut, sampleRate_, highCutQ[i]);
    for (auto& channel : channels_) {
        if (!lowCutOn_) std::fill_n(channel.lowCut, kSections, SvfState{});
        if (!highCutOn_) std::fill_n(channel.highCut, kSections, SvfState{});
    }
}

void SidechainFilter::next(GridSlice slice) noexcept
{
    if (!slice.begins()) return;
    isFading_ = isParallel_ != wantsParallel_;
    if (!isFading_) return;
    isParallel_ = wantsParallel_;
    for (auto& channel : channels_) std::copy_n(channel.highCut, kSections, channel.fadingHighCut);
}

void SidechainFilter::run(int channel, double* x, GridSlice slice) noexcept
{
    filter(channels_[static_cast<std::size_t>(channel)], x, slice);
}

void SidechainFilter::runPair(int channel, double* x, double* y, GridSlice slice) noexcept
{
    Channel* const one = &channels_[static_cast<std::size_t>(channel)];
    States<Pair> both;
    const auto each = [&](auto&& f) {
        for (int i = 0; i < kSections; ++i) {
            f(both.lowCut[i], one[0].lowCut[i], one[1].lowCut[i]);
            f(both.highCut[i], one[0].highCut[i], one[1].highCut[i]);
            f(both.fadingHighCut[i], one[0].fadingHighCut[i], one[1].fadingHighCut[i]);
        }
    };
    each([](auto& pair, const SvfState& a, const SvfState& b) {
        pair = {Pair{a.z1, b.z1}, Pair{a.z2, b.z2}};
    });
    Pair xy[kSubBlock];
    for (int i = 0; i < slice.frames; ++i) xy[i] = Pair{x[i], y[i]};
    filter(both, xy, slice);
    for (int i = 0; i < slice.frames; ++i) x[i] = xy[i][0], y[i] = xy[i][1];
    each([](const auto& pair, SvfState& a, SvfState& b) {
        a = {pair.z1[0], pair.z2[0]};
        b = {pair.z1[1], pair.z2[1]};
    });
}

template <class V> void SidechainFilter::filter(States<V>& s, V* x, GridSlice slice) const noexcept
{
    if (isFading_)
        crossFade(s, x, slice);
    else if (isParallel_)
        parallel(s, x, slice.frames);
    else
        cuts(s.lowCut, s.highCut, x, slice.frames);
}

/// The sections of both cuts in one loop, which overlaps their waiting times.
template <int low, int high, class V>
void SidechainFilter::cascade(SvfStateOf<V>* lowCut, SvfStateOf<V>* highCut, V* x,
                              int n) const noexcept
{
    SvfStateOf<V> l[kSections], h[kSections];  // in registers
    Spread<V> lc[kSections], hc[kSections];
    for (int s = 0; s < low; ++s) l[s] = lowCut[s], lc[s] = Spread<V>::of(lowCutSection_[s]);
    for (int s = 0; s < high; ++s) h[s] = highCut[s], hc[s] = Spread<V>::of(highCutSection_[s]);
    for (int i = 0; i < n; ++i) {
        V y = x[i];
        for (int s = 0; s < low; ++s) y = l[s].highPass(lc[s], y);
        for (int s = 0; s < high; ++s) y = h[s].lowPass(hc[s], y);
        x[i] = y;
    }
    for (int s = 0; s < low; ++s) lowCut[s] = l[s];
    for (int s = 0; s < high; ++s) highCut[s] = h[s];
}

/// Low-cut and high-cut in series; one that is not given, or off, is left out.
template <class V>
void SidechainFilter::cuts(SvfStateOf<V>* low, SvfStateOf<V>* high, V* x, int n) const noexcept
{
    const bool hasLow = low && lowCutOn_;
    switch (high && highCutOn_ ? highCutSections_ : 0) {
    case 0:
        if (hasLow) cascade<2, 0>(low, high, x, n);
        break;
    case 1:
        hasLow ? cascade<2, 1>(low, high, x, n) : cascade<0, 1>(low, high, x, n);
        break;
    default:
        hasLow ? cascade<2, 2>(low, high, x, n) : cascade<0, 2>(low, high, x, n);
    }
}

template <class V> void SidechainFilter::parallel(States<V>& s, V* x, int n) const noexcept
{
    constexpr SvfStateOf<V>* none = nullptr;
    V low[kSubBlock];
    std::copy(x, x + n, low);
    cuts(s.lowCut, none, x, n);
    cuts(none, s.highCut, low, n);
    for (int i = 0; i < n; ++i) x[i] = (x[i] + low[i]) * 0.5;
}

template <class V>
void SidechainFilter::crossFade(States<V>& s, V* x, GridSlice slice) const noexcept
{
    // The low-cut hears the same in both forms; the high-cut runs once for each.
    constexpr SvfStateOf<V>* none = nullptr;
    const int n = slice.frames;
    V low[kSubBlock], band[kSubBlock];
    std::copy(x, x + n, low);
    cuts(s.lowCut, none, x, n);
    std::copy(x, x + n, band);
    cuts(none, isParallel_ ? s.fadingHighCut : s.highCut, band, n);
    cuts(none, isParallel_ ? s.highCut : s.fadingHighCut, low, n);
    for (int i = 0; i < n; ++i) {
        const V reject = (x[i] + low[i]) * 0.5;
        const double rise = double(slice.phase + i + 1) / kSubBlock;
        const double w = isParallel_ ? rise : 1 - rise;
        x[i] = band[i] + (reject - band[i]) * w;
    }
}

}  // namespace quillworks
