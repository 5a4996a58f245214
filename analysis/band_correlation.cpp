// SPDX-License-Identifier: ISC
#include "analysis/band_correlation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/rate_factor.h"

namespace quillworks {

std::vector<Band> correlationBands(int fraction, double sampleRate)
{
    constexpr double kLowest = 31, kHighest = 16500;  // around the exact 31.62 Hz and 15.85 kHz
    auto bands = bandsOf(fraction, sampleRate, kLowest);
    std::erase_if(bands, [](const Band& band) { return band.centre > kHighest; });
    return bands;
}

void BandCorrelation::prepare(double sampleRate, int fraction)
{
    constexpr int kLength = 8192;
    rate_ = sampleRate;
    bands_ = correlationBands(fraction, sampleRate);
    frames_.prepare(2, kLength * rateFactor(sampleRate), WindowShape::Hann);
    for (auto& spectrum : spectra_) spectrum.resize(static_cast<std::size_t>(frames_.length()));
    clear();
}

void BandCorrelation::release() noexcept
{
    frames_.release();
    for (auto& spectrum : spectra_) spectrum = std::vector<float>();
    bands_ = std::vector<Band>();
    averages_ = std::vector<Sums>();
}

void BandCorrelation::clear() noexcept
{
    isFirst_ = true;
    averages_.clear();
}

void BandCorrelation::take(const float* const* x, int n)
{
    frames_.take(x, n, [this] { add(); });
}

void BandCorrelation::add()
{
    constexpr double kFewBins = 250;  // Hz; below, a second at least
    for (int c = 0; c < 2; ++c) frames_.transform(c, spectra_[c].data());
    averages_.resize(bands_.size());
    const double perBin = rate_ / frames_.length();
    const auto bin = [](const std::vector<float>& spectrum, std::size_t k) {
        return std::complex<double>(double(spectrum[2 * k]), double(spectrum[2 * k + 1]));
    };
    for (std::size_t b = 0; b < bands_.size(); ++b) {
        const Band& band = bands_[b];
        // The bins whose middle lies in the band, so that none is in two.
        const auto from = static_cast<std::size_t>(std::ceil(band.lower / perBin));
        const auto to =
            std::max(from + 1, static_cast<std::size_t>(std::ceil(band.upper / perBin)));
        Sums now;
        for (std::size_t k = from; k < to; ++k) {
            const auto x = bin(spectra_[0], k), y = bin(spectra_[1], k);
            now.cross += x * std::conj(y);
            now.left += std::norm(x);
            now.right += std::norm(y);
        }
        const double seconds = band.centre < kFewBins ? std::max(seconds_, 1.0) : seconds_;
        const double part = isFirst_ ? 1 : 1 - std::exp(-frames_.hop() / (rate_ * seconds));
        Sums& average = averages_[b];
        average.cross += part * (now.cross - average.cross);
        average.left += part * (now.left - average.left);
        average.right += part * (now.right - average.right);
    }
    isFirst_ = false;
}

std::vector<BandCorrelation::Value> BandCorrelation::values() const
{
    constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
    constexpr double kQuiet = 1e-8, kBelowLoudest = 1e-5;  // powers
    // A full-scale sine, by Parseval over the bins of positive frequencies.
    const double full = frames_.length() * frames_.windowSquares() / 4;
    double left = kQuiet * full, right = left;
    for (const Sums& s : averages_) {
        left = std::max(left, kBelowLoudest * s.left);
        right = std::max(right, kBelowLoudest * s.right);
    }
    std::vector<Value> values;
    for (const Sums& s : averages_) {
        const double both = s.left * s.right;
        const bool isValid = s.left >= left && s.right >= right;
        if (both > 0)
            values.push_back({std::clamp(s.cross.real() / std::sqrt(both), -1.0, 1.0),
                              std::min(std::norm(s.cross) / both, 1.0), isValid});
        else
            values.push_back({kNothing, kNothing, false});
    }
    return values;
}

}  // namespace quillworks
