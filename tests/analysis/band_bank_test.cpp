// SPDX-License-Identifier: ISC
#include "analysis/band_bank.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/sanitised.h"
#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

constexpr double kForEver = std::numeric_limits<double>::infinity();

/// A breakpoint of class 1 in octaves from the centre, of a filter of one octave, and how much more
/// (or, in the pass band, at most) than its centre is attenuated there, in dB (IEC 61260-1:2014).
struct Limit {
    double octaves, attenuation;
};
constexpr Limit kMost[] = {{0, 0.4}, {0.125, 0.5}, {0.25, 0.7}, {0.375, 1.4}, {0.5, 5.3}};
constexpr Limit kLeast[] = {{0.5, 1.6}, {1, 16.6}, {2, 40.5}, {3, 60}, {4, 70}};

/// The distance from the centre, as log of a ratio, at which a filter of 1/fraction octave has a
/// breakpoint.
double breakpoint(double octaves, int fraction)
{
    const double g = std::pow(10, 0.3);
    return std::log1p((std::pow(g, 0.5 / fraction) - 1) / (std::sqrt(g) - 1) *
                      (std::pow(g, octaves) - 1));
}

/// Between two breakpoints the limit is a line; not-a-number outside of them all.
template <std::size_t n> double limitAt(const Limit (&limits)[n], double distance, int fraction)
{
    for (std::size_t i = 0; i + 1 < n; ++i) {
        const double from = breakpoint(limits[i].octaves, fraction),
                     to = breakpoint(limits[i + 1].octaves, fraction);
        if (distance >= from && distance < to)
            return limits[i].attenuation + (limits[i + 1].attenuation - limits[i].attenuation) *
                                               (distance - from) / (to - from);
    }
    return std::numeric_limits<double>::quiet_NaN();
}

/// How far inside the limits an attenuation lies, dB.
double margin(double attenuation, double distance, int fraction)
{
    const double edge = breakpoint(0.5, fraction);
    if (distance < edge)
        return std::min(attenuation + 0.4, limitAt(kMost, distance, fraction) - attenuation);
    const double least = limitAt(kLeast, distance, fraction);
    return attenuation - (std::isnan(least) ? kLeast[4].attenuation : least);
}

TEST(BandBank, EveryBandIsOfClassOneWithATenthOfADecibelToSpare)
{
    struct Case {
        double rate;
        int fraction;
    };
    for (const auto& [rate, fraction] :
         {Case{8000, 3}, Case{22050, 3}, Case{48000, 3}, Case{16000, 1}, Case{16000, 24}}) {
        BandBank bank;
        bank.prepare(1, rate, fraction);
        const auto n = static_cast<std::size_t>(rate / 2);
        // Tones of the lowest bands take too long for a test; of the finer bands, the topmost hear
        // what lies mirrored at half the sample rate.
        const double lowest = fraction > 3 ? 1000 : 120;
        const double highest = fraction > 3 ? 0.44 * rate : rate;
        for (double f = 20; f < rate / 2; f *= std::exp2(kIsSanitised ? 0.5 : 1.0 / 12)) {
            const double whole = 2 * std::round(f / 2);  // whole periods
            auto x = sine<float>(2 * n, whole, rate);
            for (std::size_t i = 0; i < n / 4; ++i)
                x[i] *= float(0.5 - 0.5 * std::cos(std::numbers::pi * double(i) / double(n / 4)));
            bank.begin();
            bank.setAverage(1);
            const float* const settling = x.data();
            const float* const steady = x.data() + n;
            bank.process(&settling, int(n));
            bank.setAverage(kForEver);
            bank.process(&steady, int(n));
            for (std::size_t b = 0; b < bank.bands().size(); ++b) {
                const double centre = bank.bands()[b].centre;
                if (centre < lowest || centre > highest) continue;
                const double attenuation = -10 * std::log10(2 * bank.power(0, int(b)) + 1e-12);
                EXPECT_GE(margin(attenuation, std::abs(std::log(whole / centre)), fraction), 0.1)
                    << "1/" << fraction << " at " << rate << ": " << centre << " for " << whole;
            }
        }
    }
}

TEST(BandBank, LevelsDoNotDependOnHowTheSignalIsDividedNorChannelsOnEachOther)
{
    const Channels<float> x = {noise<float>(20000, 1), noise<float>(20000, 2)};
    const auto powers = [&](std::size_t block, double average) {
        BandBank bank;
        bank.prepare(2, 44100, 6);
        bank.setAverage(average);
        for (std::size_t at = 0; at < x[0].size(); at += block) {
            const float* const part[] = {&x[0][at], &x[1][at]};
            bank.process(part, int(std::min(block, x[0].size() - at)));
        }
        std::vector<double> result;
        for (int c = 0; c < 2; ++c)
            for (int b = 0; b < int(bank.bands().size()); ++b) {
                result.push_back(bank.power(c, b));
                result.push_back(bank.takeHighest(c, b));
            }
        return result;
    };
    for (const double average : {0.03, kForEver})
        for (const std::size_t block : {std::size_t(1), std::size_t(61), std::size_t(4096)})
            EXPECT_EQ(powers(block, average), powers(20000, average)) << block;
    const auto both = powers(20000, kForEver);
    EXPECT_NE(both.front(), both[both.size() / 2]);
}

TEST(BandBank, CentresAreTheStandards)
{
    const auto centre = [](int fraction, double rate, std::size_t i) {
        return bandsOf(fraction, rate)[i].centre;
    };
    EXPECT_NEAR(centre(1, 48000, 0), 15.849, 1e-3);
    EXPECT_EQ(bandsOf(1, 48000).size(), 11u);
    EXPECT_EQ(bandsOf(3, 48000).size(), 32u);
    EXPECT_NEAR(bandsOf(3, 48000).back().centre, 19952.6, 0.1);
    EXPECT_NEAR(centre(6, 48000, 0), 16.788, 1e-3);
    EXPECT_NEAR(bandsOf(24, 48000).back().upper, 23714, 1);
}

}  // namespace
}  // namespace quillworks::test
