// SPDX-License-Identifier: ISC
#include "analysis/loudness_histogram.h"

#include <cmath>

namespace quillworks {
namespace {

constexpr double kCalibration = -0.691;  // ITU-R BS.1770: a 997 Hz sine reads its level

constexpr double kLowestPower = 3.1622778e-5, kHighestPower = 15.848933;

/// What each bin of BlockHistogram stands for.
struct BlockBins {
    std::array<double, BlockHistogram::kBins> power, lufs;

    BlockBins() noexcept
    {
        for (std::size_t i = 0; i < power.size(); ++i) {
            power[i] = std::pow(10.0, (-90 + 0.05 * double(i)) / 20);
            lufs[i] = loudnessOf(power[i]);
        }
    }
};
const BlockBins kBlockBins;

constexpr double kRangeFrom = -72, kRangeTo = 10, kRangeWidth = kRangeTo - kRangeFrom;
constexpr double kPercentile10 = 0.099999994, kPercentile5 = 0.049999997;

constexpr double centre(std::size_t bin)
{
    return (double(bin) + 0.5) * kRangeWidth / RangeHistogram::kBins + kRangeFrom;
}

}  // namespace

double loudnessOf(double power) noexcept
{
    return power > 0 ? 10 * std::log10(power) + kCalibration : kNoLoudness;
}

void BlockHistogram::add(double power) noexcept
{
    int bin = 0;
    if (power > kHighestPower)
        bin = kBins - 1;
    else if (power >= kLowestPower)
        bin = static_cast<int>((20 * std::log10(power) + 90) * 20);
    counts_.add(bin);
}

double BlockHistogram::integrated() const noexcept
{
    if (counts_.total() == 0) return kNoLoudness;
    double sum = 0;
    for (std::size_t i = 0; i < kBins; ++i) sum += counts_[i] * kBlockBins.power[i];
    const double gate = loudnessOf(sum / counts_.total()) - 10;
    double gated = 0, n = 0;
    for (std::size_t i = kBins; i-- > 0 && kBlockBins.lufs[i] > gate;) {
        n += counts_[i];
        gated += counts_[i] * kBlockBins.power[i];
    }
    return n >= 1 ? loudnessOf(gated / n) : kNoLoudness;
}

void RangeHistogram::add(double lufs) noexcept
{
    int bin = 0;
    if (lufs > kRangeTo)
        bin = kBins - 1;
    else if (lufs >= kRangeFrom)
        bin = static_cast<int>((lufs - kRangeFrom) * kBins / kRangeWidth + 0.5);
    counts_.add(bin);
}

RangeHistogram::Range RangeHistogram::range() const noexcept
{
    if (counts_.total() < kFewest) return {};
    double sum = 0;
    for (std::size_t i = 0; i < kBins; ++i) sum += counts_[i] * centre(i);
    const double gate = sum / counts_.total() - 20;
    std::size_t first = 0;
    std::uint32_t n = counts_.total();
    while (first < kBins - 1 && centre(first) < gate) n -= counts_[first++];

    const auto least = [n](double fraction) { return static_cast<std::uint32_t>(n * fraction); };
    Range range{centre(0), centre(0), 0};
    std::uint32_t passed = 0;
    for (std::size_t i = first; i < kBins; ++i)
        if ((passed += counts_[i]) > least(kPercentile10)) {
            range.low = centre(i);
            break;
        }
    passed = 0;
    for (std::size_t i = kBins; i-- > 0;)
        if ((passed += counts_[i]) > least(kPercentile5)) {
            range.high = centre(i);
            break;
        }
    range.width = range.high - range.low;
    return range;
}

}  // namespace quillworks
