// SPDX-License-Identifier: ISC
#include "analysis/histogram_loudness.h"

#include <algorithm>

namespace quillworks {

void HistogramLoudness::prepare(double sampleRate, int channels)
{
    const auto samples = [fs = static_cast<float>(sampleRate)](float seconds) {
        return std::max(1, static_cast<int>(fs * seconds + 0.5f));
    };
    hop_ = samples(0.1f);
    channels_.resize(static_cast<std::size_t>(channels));
    for (auto& c : channels_) {
        c.momentary.reserve(samples(0.4f));
        c.momentary.setLength(samples(0.4f));
        c.shortTerm.reserve(samples(3.0f));
        c.shortTerm.setLength(samples(3.0f));
    }
    reset();
}

void HistogramLoudness::reset() noexcept
{
    for (auto& c : channels_) {
        c.momentary.clear();
        c.shortTerm.clear();
    }
    sinceHop_ = 0;
    restart();
}

void HistogramLoudness::restart() noexcept
{
    blocks_.clear();
    shortTerms_.clear();
    momentary_ = shortTerm_ = integrated_ = kAbsoluteGate;
    range_ = {};
    isCounted_ = true;
}

void HistogramLoudness::add(int channel, const PowerQuanta& squares) noexcept
{
    auto& c = channels_[static_cast<std::size_t>(channel)];
    c.momentary.add(squares);
    c.shortTerm.add(squares);
}

void HistogramLoudness::advance(int n, std::span<const double> weights) noexcept
{
    sinceHop_ += n;
    if (sinceHop_ < hop_) return;
    sinceHop_ = 0;
    read(weights);
}

void HistogramLoudness::read(std::span<const double> weights) noexcept
{
    double momentary = 0, shortTerm = 0;
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        momentary += channels_[c].momentary.power() * weights[c];
        shortTerm += channels_[c].shortTerm.power() * weights[c];
    }
    momentary_ = loudnessOf(momentary);
    shortTerm_ = loudnessOf(shortTerm);
    if (momentary_ > kAbsoluteGate) blocks_.add(momentary);
    if (shortTerm_ > kAbsoluteGate) shortTerms_.add(shortTerm_);
    isCounted_ |= momentary_ > kAbsoluteGate || shortTerm_ > kAbsoluteGate;
}

void HistogramLoudness::evaluate() noexcept
{
    if (!isCounted_) return;  // nothing new: the result would be the same
    isCounted_ = false;
    integrated_ = blocks_.integrated();
    range_ = shortTerms_.range();
}

}  // namespace quillworks
