// SPDX-License-Identifier: ISC
#include "analysis/strict_loudness.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks {
namespace {

constexpr double kBinsPerLu = 100;
constexpr int kBins = 8000;
constexpr int kHop = 10;  // readings between gating blocks, and between values of the range

/// LUFS, or not-a-number for what is below every floor.
double reported(double power)
{
    const double lufs = loudnessOf(power);
    return lufs > kNoLoudness ? lufs : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace

PowerBins::PowerBins() : bins_(kBins) {}

void PowerBins::clear() noexcept
{
    std::fill(bins_.begin(), bins_.end(), Bin{});
}

void PowerBins::add(double power) noexcept
{
    const double lufs = loudnessOf(power);
    if (!(lufs >= kAbsoluteGate)) return;
    const double place = std::min((lufs - kAbsoluteGate) * kBinsPerLu, kBins - 1.0);
    auto& bin = bins_[static_cast<std::size_t>(place)];
    bin.sum += power;
    ++bin.count;
}

double PowerBins::mean(double gate) const noexcept
{
    double sum = 0, n = 0;
    for (const auto& bin : bins_)
        if (bin.count > 0 && bin.reaches(gate)) {
            sum += bin.sum;
            n += bin.count;
        }
    return n > 0 ? sum / n : 0;
}

double PowerBins::quantile(double fraction, double gate) const noexcept
{
    double n = 0;
    for (const auto& bin : bins_)
        if (bin.reaches(gate)) n += bin.count;
    if (n == 0) return 0;
    double rank = std::floor(fraction * (n - 1) + 0.5);
    for (const auto& bin : bins_) {
        if (bin.count == 0 || !bin.reaches(gate)) continue;
        if (rank < bin.count) return bin.sum / bin.count;
        rank -= bin.count;
    }
    return 0;
}

void StrictLoudness::prepare(double sampleRate, int channels)
{
    sampleRate_ = sampleRate;
    sums_.assign(static_cast<std::size_t>(channels), 0);
    reset();
}

void StrictLoudness::reset() noexcept
{
    std::fill(sums_.begin(), sums_.end(), 0);
    segments_.fill(0);
    reading_ = position_ = 0;
    next_ = std::max<std::int64_t>(1, instant(1));
    momentary_ = shortTerm_ = kAbsoluteGate;
    restart();
}

void StrictLoudness::restart() noexcept
{
    isOver_ = false;
    momentaryMax_ = shortTermMax_ = 0;
    blocks_.clear();
    shortTerms_.clear();
}

void StrictLoudness::add(int channel, const PowerQuanta& squares) noexcept
{
    auto& sum = sums_[static_cast<std::size_t>(channel)];
    if (squares.fitsOnTopOf(sum)) {
        for (int i = 0; i < squares.n; ++i) sum += squares.q[i];
    } else {
        for (int i = 0; i < squares.n; ++i) sum += std::min(squares.q[i], PowerQuanta::kFull - sum);
    }
}

void StrictLoudness::advance(int n, std::span<const double> weights) noexcept
{
    position_ += n;
    if (position_ < next_) return;
    read(weights);
    next_ = std::max(position_ + 1, instant(reading_ + 1));
}

void StrictLoudness::read(std::span<const double> weights) noexcept
{
    double power = 0;
    for (std::size_t c = 0; c < sums_.size(); ++c) {
        power += static_cast<double>(sums_[c]) / PowerQuanta::kPerUnit * weights[c];
        sums_[c] = 0;
    }
    segments_[static_cast<std::size_t>(reading_ % kShortTerm)] = power;
    ++reading_;
    const bool isHop = reading_ % kHop == 0;
    if (reading_ >= kMomentary && !isOver_) {
        const double momentary = windowPower(kMomentary);
        momentary_ = loudnessOf(momentary);
        momentaryMax_ = std::max(momentaryMax_, momentary);
        if (isHop) blocks_.add(momentary);
    }
    if (reading_ >= kShortTerm) {
        const double shortTerm = windowPower(kShortTerm);
        if (isHop) shortTerms_.add(shortTerm);
        if (isOver_) return;
        shortTerm_ = loudnessOf(shortTerm);
        shortTermMax_ = std::max(shortTermMax_, shortTerm);
    }
}

double StrictLoudness::windowPower(int readings) const noexcept
{
    double sum = 0;
    const auto last = static_cast<int>((reading_ - 1) % kShortTerm);
    const int inFront = std::min(readings, last + 1);
    for (int i = last + 1 - inFront; i <= last; ++i) sum += segments_[static_cast<std::size_t>(i)];
    for (int i = kShortTerm - (readings - inFront); i < kShortTerm; ++i)
        sum += segments_[static_cast<std::size_t>(i)];
    return sum / double(instant(reading_) - instant(reading_ - readings));
}

StrictLoudness::Results StrictLoudness::evaluate() const noexcept
{
    Results r;
    r.momentaryMax = reported(momentaryMax_);
    r.shortTermMax = reported(shortTermMax_);
    r.integrated = reported(blocks_.mean(blocks_.mean() / 10));  // 10 LU below the mean
    const double gate = shortTerms_.mean() / 100;                // 20 LU below
    r.rangeLow = reported(shortTerms_.quantile(0.10, gate));
    r.rangeHigh = reported(shortTerms_.quantile(0.95, gate));
    r.range = r.rangeHigh - r.rangeLow;
    return r;
}

}  // namespace quillworks
