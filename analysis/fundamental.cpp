// SPDX-License-Identifier: ISC
#include "analysis/fundamental.h"

#include <algorithm>
#include <cmath>

namespace quillworks {

void Fundamental::prepare(int n)
{
    if (n == window_) return;
    window_ = n;
    fft_.setSize(0);
}

std::optional<double> Fundamental::period(const float* x)
{
    const auto n = static_cast<std::size_t>(window_);
    const std::size_t longest = 2 * n / 3;
    if (fft_.length() == 0) {
        fft_.setSize(static_cast<std::uint32_t>(n + longest), FftPlanning::Repeatable);
        work_.resize(fft_.length());
        spectrum_.resize(fft_.length());
        difference_.resize(longest + 2);
    }
    if (!fft_.isReady()) return {};
    // A steady offset is no part of the period.
    double mean = 0;
    for (std::size_t i = 0; i < n; ++i) mean += double(x[i]);
    mean /= static_cast<double>(n);
    double energy = 0;
    for (std::size_t i = 0; i < n; ++i) {
        work_[i] = static_cast<float>(double(x[i]) - mean);
        energy += double(work_[i]) * double(work_[i]);
    }
    std::fill(work_.begin() + static_cast<std::ptrdiff_t>(n), work_.end(), 0.0f);
    if (energy < 1e-12 * static_cast<double>(n)) return {};
    const std::vector<float> signal(work_.begin(), work_.begin() + static_cast<std::ptrdiff_t>(n));
    fft_.forward(work_.data(), spectrum_.data());
    spectrum_[0] *= spectrum_[0];
    spectrum_[1] *= spectrum_[1];
    for (std::size_t k = 2; k < spectrum_.size(); k += 2) {
        spectrum_[k] = spectrum_[k] * spectrum_[k] + spectrum_[k + 1] * spectrum_[k + 1];
        spectrum_[k + 1] = 0;
    }
    fft_.inverse(spectrum_.data(), work_.data());
    // The energy of the two stretches that a lag compares.
    double both = 2 * energy;
    for (std::size_t lag = 0; lag < difference_.size(); ++lag) {
        difference_[lag] = both > 0 ? static_cast<float>(2 * double(work_[lag]) / both) : 0.0f;
        const double first = double(signal[lag]), last = double(signal[n - 1 - lag]);
        both -= first * first + last * last;
    }
    // The highest point of every stretch above zero, the one around lag 0 left out.
    std::vector<std::size_t> peaks;
    std::size_t at = 1;
    while (at <= longest && difference_[at] > 0) ++at;
    for (bool isAbove = false; at <= longest; ++at) {
        if (difference_[at] <= 0) {
            isAbove = false;
            continue;
        }
        // What rises beyond the longest lag has its maximum there.
        if (!isAbove)
            peaks.push_back(at);
        else if (difference_[at] > difference_[peaks.back()])
            peaks.back() = at;
        isAbove = true;
    }
    if (!peaks.empty() && peaks.back() == longest) peaks.pop_back();
    float highest = 0;
    for (const auto peak : peaks) highest = std::max(highest, difference_[peak]);
    if (highest < 0.5f) return {};
    for (const auto peak : peaks) {
        if (difference_[peak] < 0.8f * highest) continue;
        const double before = double(difference_[peak - 1]), here = double(difference_[peak]),
                     after = double(difference_[peak + 1]);
        const double bend = before - 2 * here + after;
        return static_cast<double>(peak) + (bend < 0 ? 0.5 * (before - after) / bend : 0);
    }
    return {};
}

}  // namespace quillworks
