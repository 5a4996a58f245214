// SPDX-License-Identifier: ISC
#include "analysis/spectrum_peaks.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"

namespace quillworks {
namespace {

/// level = top - u p^2 - v p^4, place = s p + t p^3.
struct LobeCorrection {
    bool interpolates;
    double u, v, s, t;
};
constexpr LobeCorrection kCorrections[] = {
    {true, 0.1629242, -0.1365152, 0.9837647, 0.0645470},  // Nuttall
    {true, 1.2248875, 0.2687745, 0.9190922, 0.3116485},   // Hann
    {false, 0, 0, 0, 0},                                  // flat top
    {false, 0, 0, 0, 0},                                  // rectangular
};

double decibels(double power)
{
    return 10 * std::log10(std::max(power, 1e-40));
}

bool isPeak(const std::vector<double>& p, std::size_t k)
{
    if (!(p[k] > p[k - 1] && p[k] >= p[k + 1] && p[k] > kSilence * kSilence)) return false;
    std::size_t left = k - 1, right = k + 1;
    while (left > 0 && p[left - 1] <= p[left]) --left;
    while (right + 1 < p.size() && p[right + 1] <= p[right]) ++right;
    return p[k] >= std::pow(10, 0.6) * std::min(p[left], p[right]);
}

}  // namespace

std::vector<SpectrumPeak> peaksOf(const std::vector<double>& powers,
                                  const std::vector<double>& weights, int length, double sampleRate,
                                  WindowShape window, std::size_t most)
{
    std::vector<std::size_t> bins;
    for (std::size_t k = 1; k + 1 < powers.size(); ++k)
        if (isPeak(powers, k)) bins.push_back(k);
    const auto isHigher = [&](std::size_t a, std::size_t b) {
        const double x = powers[a] * weights[a], y = powers[b] * weights[b];
        return x != y ? x > y : a < b;
    };
    const auto kept = std::min(most, bins.size());
    std::partial_sort(bins.begin(), bins.begin() + static_cast<std::ptrdiff_t>(kept), bins.end(),
                      isHigher);
    bins.resize(kept);

    const LobeCorrection& lobe = kCorrections[static_cast<int>(window)];
    std::vector<SpectrumPeak> peaks;
    for (const std::size_t k : bins) {
        double place = 0, level = decibels(powers[k]);
        if (lobe.interpolates) {
            // At 0 Hz and half the sample rate a bin is worth a quarter of the others.
            const bool isFirst = k == 1, isLast = k + 2 == powers.size();
            const double a = decibels(powers[k - 1] * (isFirst ? 4 : 1));
            const double c = decibels(powers[k + 1] * (isLast ? 4 : 1));
            // Beside 0 Hz the three may lie in a line, or bend upwards: they have no top then.
            const double bend = a - 2 * level + c;
            const double p = bend < 0 ? std::clamp((a - c) / (2 * bend), -1.0, 1.0) : 0;
            const double pp = p * p;
            level -= (a - c) * p / 4 + lobe.u * pp + lobe.v * pp * pp;
            place = lobe.s * p + lobe.t * p * pp;
        }
        peaks.push_back({(static_cast<double>(k) + place) * sampleRate / length, level});
    }
    return peaks;
}

}  // namespace quillworks
