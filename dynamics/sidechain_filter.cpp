// SPDX-License-Identifier: ISC
#include "dynamics/sidechain_filter.h"

#include <algorithm>

namespace quillworks {

void SidechainFilter::prepare(double sampleRate, int channels)
{
    sampleRate_ = sampleRate;
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
    if (lowCutOn_)
        for (int i = 0; i < 2; ++i)
            lowCutSection_[i] = SvfCoefficients::at(lowCut, sampleRate_, kButterworth4Q[i]);
    if (highCutOn_) highCutSection_ = SvfCoefficients::at(highCut, sampleRate_, kButterworthQ);
    for (auto& channel : channels_) {
        if (!lowCutOn_) channel.lowCut[0] = channel.lowCut[1] = {};
        if (!highCutOn_) channel.highCut = {};
    }
}

void SidechainFilter::next(GridSlice slice) noexcept
{
    if (!slice.begins()) return;
    isFading_ = isParallel_ != wantsParallel_;
    if (!isFading_) return;
    isParallel_ = wantsParallel_;
    for (auto& channel : channels_) channel.fadingHighCut = channel.highCut;
}

void SidechainFilter::run(int channel, double* x, GridSlice slice) noexcept
{
    auto& state = channels_[static_cast<std::size_t>(channel)];
    if (isFading_)
        crossFade(state, x, slice);
    else if (isParallel_)
        parallel(state, x, slice.frames);
    else
        series(state, x, slice.frames);
}

void SidechainFilter::lowCut(Channel& channel, double* x, int n) const noexcept
{
    if (!lowCutOn_) return;
    SvfState first = channel.lowCut[0], second = channel.lowCut[1];
    for (int i = 0; i < n; ++i)
        x[i] = second.highPass(lowCutSection_[1], first.highPass(lowCutSection_[0], x[i]));
    channel.lowCut[0] = first;
    channel.lowCut[1] = second;
}

void SidechainFilter::highCut(SvfState& state, double* x, int n) const noexcept
{
    if (!highCutOn_) return;
    SvfState s = state;
    for (int i = 0; i < n; ++i) x[i] = s.lowPass(highCutSection_, x[i]);
    state = s;
}

void SidechainFilter::series(Channel& channel, double* x, int n) const noexcept
{
    if (!(lowCutOn_ && highCutOn_)) {
        lowCut(channel, x, n);
        return highCut(channel.highCut, x, n);
    }
    // All three sections in one loop overlap their waiting times.
    SvfState first = channel.lowCut[0], second = channel.lowCut[1], third = channel.highCut;
    for (int i = 0; i < n; ++i) {
        const double high =
            second.highPass(lowCutSection_[1], first.highPass(lowCutSection_[0], x[i]));
        x[i] = third.lowPass(highCutSection_, high);
    }
    channel.lowCut[0] = first;
    channel.lowCut[1] = second;
    channel.highCut = third;
}

void SidechainFilter::parallel(Channel& channel, double* x, int n) const noexcept
{
    double low[kSubBlock];
    std::copy(x, x + n, low);
    lowCut(channel, x, n);
    highCut(channel.highCut, low, n);
    for (int i = 0; i < n; ++i) x[i] = (x[i] + low[i]) * 0.5;
}

void SidechainFilter::crossFade(Channel& channel, double* x, GridSlice slice) const noexcept
{
    // The low-cut hears the same in both forms; the high-cut runs once for each.
    const int n = slice.frames;
    double low[kSubBlock], band[kSubBlock];
    std::copy(x, x + n, low);
    lowCut(channel, x, n);
    std::copy(x, x + n, band);
    highCut(isParallel_ ? channel.fadingHighCut : channel.highCut, band, n);
    highCut(isParallel_ ? channel.highCut : channel.fadingHighCut, low, n);
    for (int i = 0; i < n; ++i) {
        const double reject = (x[i] + low[i]) * 0.5;
        const double rise = double(slice.phase + i + 1) / kSubBlock;
        const double w = isParallel_ ? rise : 1 - rise;
        x[i] = band[i] + (reject - band[i]) * w;
    }
}

}  // namespace quillworks
