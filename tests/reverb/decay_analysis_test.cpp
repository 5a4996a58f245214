// SPDX-License-Identifier: ISC
// What is told of a response, against responses of known decay.
#include "reverb/decay_analysis.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

#include "tests/support/signals.h"

namespace quillworks {
namespace {

/// Gaussian noise whose level falls by 60 dB in `t60` seconds over a floor of `floorDb` re its
/// start, behind `delay` samples of that floor.
std::vector<double> room(double t60, double seconds, double floorDb, double fs,
                         std::size_t delay = 0, unsigned seed = test::kSeed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> gauss;
    std::vector<double> h(delay + static_cast<std::size_t>(seconds * fs));
    const double floor = std::pow(10, floorDb / 20);
    for (std::size_t i = 0; i < h.size(); ++i) {
        if (i >= delay) h[i] = gauss(random) * std::pow(10, -3 * double(i - delay) / fs / t60);
        h[i] += floor * gauss(random);
    }
    return h;
}

TEST(DecayAnalysis, FindsDecayFloorAndCrossingOfEveryOctave)
{
    struct Case {
        double t60, seconds, floorDb, fs;
    };
    for (const auto& [t60, seconds, floorDb, fs] : {Case{0.4, 1.5, -60, 48000},
                                                    {2, 4, -50, 48000},
                                                    {8, 12, -70, 44100},
                                                    {1, 2, -45, 8000},
                                                    {1.2, 2, -80, 192000}}) {
        const auto h = room(t60, seconds, floorDb, fs);
        const auto whole = BandDecay(h, fs / 2, fs);
        EXPECT_NEAR(10 * std::log10(whole.noise()), floorDb, 0.3);
        EXPECT_NEAR(whole.crossing(), -floorDb / 60 * t60, 0.06 * t60);
        for (int k = 0; k < kOctaves; ++k) {
            const double centre = octaveCentre(k);
            if (!hasOctave(centre, fs)) continue;
            const auto t = BandDecay::ofOctave(h, centre, fs).reverberationTime();
            ASSERT_TRUE(t) << t60 << " s, " << centre << " Hz";
            // Noise in a band of B Hz tells T within about 1/sqrt(B T) of its value.
            EXPECT_NEAR(*t / t60, 1, 0.02 + 1.6 / std::sqrt(0.7 * centre * t60))
                << t60 << " s, " << centre << " Hz";
        }
    }
}

TEST(DecayAnalysis, FitsTimeAndDensityFromAnyTimeOnWithFloorWithoutAndWhenCutShort)
{
    const double fs = 48000, t60 = 2.5;
    struct Case {
        double seconds, floorDb;
    };
    for (const auto& [seconds, floorDb] : {Case{5, -60}, {3, -300}, {0.5, -300}, {1.2, -300}}) {
        const auto decay = BandDecay(room(t60, seconds, floorDb, fs), fs / 2, fs);
        const auto line = decay.fit(0.1, 0, 25);
        ASSERT_TRUE(line);
        EXPECT_NEAR(line->t60, t60, seconds < 1 ? 0.15 * t60 : 0.03 * t60) << seconds;
        EXPECT_NEAR(10 * std::log10(line->density), -60 * 0.1 / t60, 0.4) << seconds;
    }
}

TEST(DecayAnalysis, ReadsTheClarityOfAnExponentialDecay)
{
    const double fs = 48000;
    for (const double t60 : {0.3, 1.0, 3.0}) {
        // e^(13.8 * 0.08 / T) - 1 of early to late energy.
        const double expected = 10 * std::log10(std::expm1(6 * std::log(10) * 0.08 / t60));
        double sum = 0;
        for (unsigned seed = 1; seed <= 8; ++seed)
            sum += clarity(room(t60, 2 * t60, -70, fs, 480, seed), 480, 1000, fs).value_or(99);
        EXPECT_NEAR(sum / 8, expected, 0.5) << t60;
    }
    std::vector<std::vector<double>> paths{room(1, 2, -65, fs), room(1, 2, -65, fs, 0, 7)};
    const auto figures = roomFigures(paths, fs);
    EXPECT_NEAR(figures.t30, 1, 0.05);
    EXPECT_NEAR(figures.c80, 10 * std::log10(std::expm1(6 * std::log(10) * 0.08)), 1);
}

TEST(DecayAnalysis, WhatHasNoDecayHasNoFigures)
{
    const double fs = 48000;
    const auto steady = test::noise<double>(48000);
    std::vector<double> growing = room(1, 1, -300, fs);
    std::reverse(growing.begin(), growing.end());
    for (const auto& h : {std::vector<double>{},
                          {1.0},
                          std::vector<double>(4800),
                          steady,
                          growing,
                          test::impulse<double>(48000, 100)}) {
        const auto decay = BandDecay(h, fs / 2, fs);
        EXPECT_FALSE(decay.reverberationTime()) << h.size();
        EXPECT_GE(decay.noise(), 0);
        EXPECT_TRUE(std::isfinite(decay.crossing()));
    }
    const std::vector<std::vector<double>> none{std::vector<double>(100)};
    EXPECT_TRUE(std::isnan(roomFigures(none, fs).t30));
    EXPECT_TRUE(std::isnan(roomFigures(none, fs).c80));
    EXPECT_EQ(firstSound(std::vector<double>(100)), 100u);
    EXPECT_EQ(firstSound(std::vector<double>{0, 0.09, 0, 0.11, -1}), 3u);
}

}  // namespace
}  // namespace quillworks
