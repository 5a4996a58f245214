// SPDX-License-Identifier: ISC
#include "analysis/histogram_loudness.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace quillworks {

void HistogramLoudness::prepare(double sampleRate, int channels)
{
    const auto samples = [fs = static_cast<float>(sampleRate)](float seconds) {
        return std::max(1, static_cast<int>(fs * seconds + 0.5f));
    };
    hop_ = samples(0.1f);
    momentaryLength_ = samples(0.4f);
    shortTermLength_ = samples(3.0f);
    // A window that is no whole number of hops begins within one, always at the same place.
    const auto beginning = [this](int length) {
        const int within = length % hop_;
        return within == 0 ? hop_ : hop_ - within;
    };
    ends_[0] = beginning(momentaryLength_);
    ends_[1] = beginning(shortTermLength_);
    ends_[2] = hop_;
    std::sort(std::begin(ends_), std::end(ends_));
    parts_ = static_cast<int>(std::unique(std::begin(ends_), std::end(ends_)) - ends_);
    channelCount_ = static_cast<std::size_t>(channels);
    kept_ =
        static_cast<std::size_t>(parts_) * (static_cast<std::size_t>(shortTermLength_ / hop_) + 1);
    sums_.assign(channelCount_ * kept_, 0);
    reset();
}

void HistogramLoudness::reset() noexcept
{
    std::fill(sums_.begin(), sums_.end(), 0);
    at_ = 0;
    part_ = sinceHop_ = 0;
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
    auto& sum = sums_[static_cast<std::size_t>(channel) * kept_ + at_];
    if (squares.fitsOnTopOf(sum))
        sum = std::accumulate(squares.q, squares.q + squares.n, sum);
    else
        for (int i = 0; i < squares.n; ++i) sum += std::min(squares.q[i], PowerQuanta::kFull - sum);
}

void HistogramLoudness::advance(int n, std::span<const double> weights) noexcept
{
    sinceHop_ += n;
    if (sinceHop_ < ends_[part_]) return;
    if (++part_ == parts_) {
        part_ = sinceHop_ = 0;
        read(weights);
    }
    at_ = at_ + 1 == kept_ ? 0 : at_ + 1;
    for (std::size_t c = 0; c < channelCount_; ++c) sums_[c * kept_ + at_] = 0;
}

double HistogramLoudness::power(std::size_t channel, int length) const noexcept
{
    const std::int64_t* const sums = sums_.data() + channel * kept_;
    std::int64_t sum = 0;
    int part = parts_;  // counted back from the end of the hop
    std::size_t at = at_;
    for (int left = length; left > 0;) {
        sum += std::min(sums[at], PowerQuanta::kFull - sum);
        --part;
        left -= ends_[part] - (part > 0 ? ends_[part - 1] : 0);
        if (part == 0) part = parts_;
        at = at > 0 ? at - 1 : kept_ - 1;
    }
    return static_cast<double>(sum) * (1 / PowerQuanta::kPerUnit / length);
}

void HistogramLoudness::read(std::span<const double> weights) noexcept
{
    double momentary = 0, shortTerm = 0;
    for (std::size_t c = 0; c < channelCount_; ++c) {
        momentary += power(c, momentaryLength_) * weights[c];
        shortTerm += power(c, shortTermLength_) * weights[c];
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
