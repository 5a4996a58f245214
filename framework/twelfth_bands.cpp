// SPDX-License-Identifier: ISC
#include "framework/twelfth_bands.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr double kLowest = 20;  // Hz
constexpr int kBands = 121, kPerOctave = 12;

}  // namespace

void TwelfthBands::prepare(std::size_t size, double sampleRate)
{
    sums_.assign(size / 2 + 2, 0);
    bands_.clear();
    for (int b = 0; b < kBands; ++b) {
        const double centre = kLowest * std::exp2(double(b) / kPerOctave);
        const double half = std::exp2(0.5 / kPerOctave),
                     bin = static_cast<double>(size) / sampleRate;
        if (centre * half < sampleRate / 2)
            bands_.push_back({centre, centre / half * bin, centre * half * bin});
    }
}

void TwelfthBands::clear() noexcept
{
    std::fill(sums_.begin(), sums_.end(), 0.0);
}

void TwelfthBands::add(const float* spectrum, double scale) noexcept
{
    for (std::size_t k = 1; k + 2 < sums_.size(); ++k) {
        const double re = double(spectrum[2 * k]), im = double(spectrum[2 * k + 1]);
        sums_[k + 1] += (re * re + im * im) * scale;
    }
}

void TwelfthBands::sum() noexcept
{
    for (std::size_t k = 1; k < sums_.size(); ++k) sums_[k] += sums_[k - 1];
}

double TwelfthBands::below(double bin) const noexcept
{
    const double at = std::clamp(bin + 0.5, 0.0, static_cast<double>(sums_.size()) - 1.001);
    const auto k = static_cast<std::size_t>(at);
    return sums_[k] + (at - static_cast<double>(k)) * (sums_[k + 1] - sums_[k]);
}

double TwelfthBands::power(std::size_t band) const noexcept
{
    return below(bands_[band].high) - below(bands_[band].low);
}

}  // namespace quillworks
