// SPDX-License-Identifier: ISC
#include "analysis/sonogram.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/decibel.h"

namespace quillworks {
namespace {

double decibels(double power)
{
    return gainToDb(std::sqrt(power));
}

}  // namespace

double Sonogram::frequencyAt(double low, double high, double row) noexcept
{
    return low * std::pow(high / low, row / (kRows - 1));
}

void Sonogram::prepare(int curves, int length, double sampleRate)
{
    curves_ = curves;
    length_ = length;
    rate_ = sampleRate;
    perColumn_ = static_cast<int>(std::ceil(4 * sampleRate / length / kMostColumns));
    highest_.assign(static_cast<std::size_t>(curves), {});
    clear();
    layOut();
}

void Sonogram::release() noexcept
{
    clear();
    columns_.shrink_to_fit();
    highest_ = std::vector<std::vector<double>>();
}

void Sonogram::clear() noexcept
{
    columns_.clear();
    begin();
}

void Sonogram::begin() noexcept
{
    time_ = 0;
    count_ = 0;
}

void Sonogram::layOut() noexcept
{
    const double perBin = rate_ / length_;
    for (int r = 0; r < kRows; ++r)
        rows_[static_cast<std::size_t>(r)] = {
            static_cast<int>(std::ceil(frequencyAt(low_, high_, r - 0.5) / perBin)),
            static_cast<int>(std::ceil(frequencyAt(low_, high_, r + 0.5) / perBin)) - 1,
            frequency(r) / perBin};
}

void Sonogram::setRange(double low, double high)
{
    if (low == low_ && high == high_) return;
    const double fromLow = low_, fromHigh = high_;
    low_ = low;
    high_ = high;
    layOut();
    stretch(fromLow, fromHigh);
}

void Sonogram::stretch(double fromLow, double fromHigh)
{
    constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();
    const double perOctave = (kRows - 1) / std::log(fromHigh / fromLow);
    std::array<double, kRows> places;
    for (int r = 0; r < kRows; ++r)
        places[static_cast<std::size_t>(r)] = std::log(frequency(r) / fromLow) * perOctave;
    std::vector<float> old(kRows);
    for (Column& column : columns_)
        for (int c = 0; c < curves_; ++c) {
            float* const rows = column.decibels.data() + c * kRows;
            std::copy_n(rows, kRows, old.data());
            for (std::size_t r = 0; r < kRows; ++r) {
                const double at = std::clamp(places[r], 0.0, kRows - 1.0);
                const auto i = std::min(static_cast<std::size_t>(at), std::size_t{kRows - 2});
                const auto part = static_cast<float>(at - static_cast<double>(i));
                const bool isThere = std::abs(places[r] - at) < 0.5;
                rows[r] = isThere ? old[i] + part * (old[i + 1] - old[i]) : kNothing;
            }
        }
}

float Sonogram::valueOf(const std::vector<double>& powers, int row) const noexcept
{
    const Row& bins = rows_[static_cast<std::size_t>(row)];
    const int end = static_cast<int>(powers.size()) - 1;
    if (bins.place > end) return std::numeric_limits<float>::quiet_NaN();
    const auto power = [&](int k) { return powers[static_cast<std::size_t>(std::min(k, end))]; };
    if (bins.first <= bins.last) {
        double highest = 0;
        for (int k = bins.first; k <= std::min(bins.last, end); ++k)
            highest = std::max(highest, power(k));
        return static_cast<float>(decibels(highest));
    }
    const int below = static_cast<int>(bins.place);
    const double low = decibels(power(below)), high = decibels(power(below + 1));
    return static_cast<float>(low + (bins.place - below) * (high - low));
}

void Sonogram::add(const std::vector<std::vector<double>>& powers, std::int64_t end)
{
    for (std::size_t c = 0; c < powers.size(); ++c) {
        if (count_ == 0) {
            highest_[c] = powers[c];
            continue;
        }
        for (std::size_t k = 0; k < powers[c].size(); ++k)
            highest_[c][k] = std::max(highest_[c][k], powers[c][k]);
    }
    time_ += (static_cast<double>(end) - length_ / 2.0) / rate_;
    ++count_;
    // Which transforms share a column depends on their numbers alone.
    if (end / (length_ / 4) % perColumn_ != 0) return;
    Column column{time_ / count_};
    for (const auto& curve : highest_)
        for (int r = 0; r < kRows; ++r) column.decibels.push_back(valueOf(curve, r));
    begin();
    columns_.push_back(std::move(column));
    const double columnsPerSecond = 4 * rate_ / length_ / perColumn_;
    while (static_cast<double>(columns_.size()) > kSeconds * columnsPerSecond) columns_.pop_front();
}

}  // namespace quillworks
