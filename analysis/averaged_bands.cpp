// SPDX-License-Identifier: ISC
#include "analysis/averaged_bands.h"

#include <algorithm>

#include "dsp/rate_factor.h"
#include "vnk/speaker_arrangement.h"

namespace quillworks {

void AveragedBands::prepare(int signals, bool isLoudest, int fraction, double sampleRate)
{
    bank_.prepare(signals, sampleRate, fraction);
    signals_ = signals;
    isLoudest_ = isLoudest;
    rate_ = sampleRate;
    grid_ = 256 * rateFactor(sampleRate);
    held_.assign(static_cast<std::size_t>(isLoudest ? 1 : signals), {});
    bank_.setAverage(averageSeconds_);
    setHold(holdSeconds_);
}

void AveragedBands::release() noexcept
{
    bank_.release();
    held_ = std::vector<HeldPowers>();
}

void AveragedBands::setAverage(double seconds) noexcept
{
    if (seconds == averageSeconds_) return;
    averageSeconds_ = seconds;
    bank_.setAverage(seconds);
}

void AveragedBands::setHold(double seconds) noexcept
{
    holdSeconds_ = seconds;
    for (auto& held : held_) held.setTime(seconds * rate_, rate_);
}

void AveragedBands::restart() noexcept
{
    bank_.clearAverages();
    for (auto& held : held_) held.restart();
}

void AveragedBands::take(const float* const* x, int n, std::int64_t first)
{
    const float* part[VNK::kMaxChannels];
    for (int done = 0; done < n;) {
        const auto phase = static_cast<int>((first + done) % grid_);
        const int run = std::min(n - done, grid_ - phase);
        for (int s = 0; s < signals_; ++s) part[s] = x[s] + done;
        bank_.process(part, run);
        done += run;
        if (phase + run == grid_) hold();
    }
}

template <class F> AveragedBands::Powers AveragedBands::powersOf(std::size_t curve, F&& power) const
{
    const int from = isLoudest_ ? 0 : static_cast<int>(curve);
    const int to = isLoudest_ ? signals_ : from + 1;
    Powers powers(bands().size());
    for (int s = from; s < to; ++s)
        for (std::size_t b = 0; b < powers.size(); ++b)
            powers[b] = std::max(powers[b], 2 * power(s, static_cast<int>(b)));
    return powers;
}

void AveragedBands::hold()
{
    for (std::size_t c = 0; c < held_.size(); ++c)
        held_[c].advance(powersOf(c, [&](int s, int b) { return bank_.takeHighest(s, b); }), grid_);
}

AveragedBands::Powers AveragedBands::curve(std::size_t i) const
{
    return powersOf(i, [&](int s, int b) { return bank_.power(s, b); });
}

}  // namespace quillworks
