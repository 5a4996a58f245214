// SPDX-License-Identifier: ISC
// The formulas that displays draw, held against known figures.
#include <gtest/gtest.h>

#include <cmath>

#include "editors/displays/axis.h"
#include "editors/displays/filter_response.h"
#include "editors/displays/reflections.h"
#include "editors/displays/static_gain.h"
#include "editors/displays/waves.h"

namespace quillworks::editors {
namespace {

TEST(DisplayCurves, StaticGainsMeetTheirLines)
{
    EXPECT_DOUBLE_EQ(compressed(-40, -24, 4, 6), -40);
    EXPECT_NEAR(compressed(0, -24, 4, 6), -18, 1e-9);
    EXPECT_NEAR(compressed(-24, -24, 4, 6), -24 - 0.75 * 0.75, 1e-9);  // slope times knee over 8
    EXPECT_NEAR(compressed(-21.0001, -24, 4, 6), compressed(-20.9999, -24, 4, 6), 1e-3);
    EXPECT_NEAR(expanded(-50, -40, 1, -60), -60, 1e-9);
    EXPECT_NEAR(expanded(-100, -40, 3, -20), -120, 1e-9);  // no more than the range
}

TEST(DisplayCurves, BandsAreChangedOnBothSidesWithinTheirRange)
{
    const BandLaw law{-24, 4, 0, -48, 0.5, 12, 1, 3};
    EXPECT_NEAR(banded(-36, law), -33, 1e-3);                 // between both
    EXPECT_NEAR(banded(-16, law), -24 + 8 / 4.0 + 3, 1e-2);   // four become one
    EXPECT_NEAR(banded(0, law), -12 + 3, 1e-9);               // no more than the range
    EXPECT_NEAR(banded(-58, law), -58 + 0.5 * 10 + 3, 1e-9);  // what is soft is raised
    EXPECT_NEAR(banded(-16, {-24, 0.5, 0, -60, 1, 18, 0.5, 0}), -16 + 4, 1e-2);
}

TEST(DisplayCurves, FiltersMeetTheirPrototypes)
{
    for (const int order : {2, 4}) {
        EXPECT_NEAR(toDecibel(lowCut(100, 100, order)), -3.0103, 1e-3) << order;
        EXPECT_NEAR(toDecibel(highCut(8000, 1000, order)), -18.06 * order / 2 * 2, 0.2) << order;
        EXPECT_NEAR(toDecibel(lowCut(10000, 100, order)), 0, 1e-3) << order;
    }
    EXPECT_NEAR(toDecibel(bell(1000, 1000, 9, 2)), 9, 1e-9);
    EXPECT_NEAR(toDecibel(lowShelf(1, 200, 6)), 6, 1e-3);
    EXPECT_NEAR(toDecibel(highShelf(100000, 2000, -6)), -6, 1e-2);
    EXPECT_NEAR(toDecibel(highShelf(10, 2000, -6)), 0, 1e-3);
    EXPECT_NEAR(toDecibel(resonantCuts(1000, 1e-3, 1e9, 1)), 0, 1e-3);
    // One notch for two stages, at the corner; the first of a comb at half its frequency.
    EXPECT_LT(toDecibel(phaser(700, 700, 2, 0, 0.5)), -100);
    EXPECT_LT(toDecibel(comb(250, {0.002, 0, 20000, false, 0.5})), -100);
    EXPECT_NEAR(toDecibel(comb(500, {0.002, 0, 20000, false, 0.5})), 0, 1e-6);
}

TEST(DisplayCurves, AnAxisWithoutDecadesHasNoLinesInsteadOfEndlessOnes)
{
    EXPECT_TRUE(frequencyTicks({0, 1, true}).empty());
    EXPECT_EQ(frequencyTicks({20, 20000, true}).size(), 28u);
}

TEST(DisplayCurves, WavesAndShapesHaveTheirLandmarks)
{
    for (const auto wave : {ModulationWave::Triangle, ModulationWave::Sine}) {
        EXPECT_NEAR(modulationWave(wave, 0), 0, 1e-12);
        EXPECT_NEAR(modulationWave(wave, 1.25), 1, 1e-12);
        EXPECT_NEAR(modulationWave(wave, 0.75), -1, 1e-12);
    }
    for (const auto curve : {ShaperCurve::Warm, ShaperCurve::Soft, ShaperCurve::Hard,
                             ShaperCurve::Tube, ShaperCurve::Fold}) {
        EXPECT_NEAR(shaped(curve, 1e-4) / 1e-4, 1, 1e-3);
        EXPECT_LE(shaped(curve, 100), 1);
    }
    EXPECT_EQ(quantised(QuantiserLaw::MidTread, 3, 0.1), 0);
    EXPECT_EQ(quantised(QuantiserLaw::MidRise, 1, 0.1), 0.5);
    EXPECT_EQ(quantised(QuantiserLaw::MuLaw, 24, 0.3), 0.3);
}

TEST(DisplayCurves, ReflectionsComeAfterTheSoundAndSofter)
{
    for (const auto& r : reflectionsOf(2, 20, 0.5, 2)) {
        EXPECT_GT(r.seconds, 0);
        EXPECT_LT(r.decibels, 0);
    }
}

TEST(DisplayAxes, FiguresAreRoundAndSigned)
{
    EXPECT_EQ(figure(-12.04, 1), "\u221212.0");
    EXPECT_EQ(figure(-0.01, 1), "0.0");
    EXPECT_EQ(figure(3, 0, true), "+3");
    EXPECT_EQ(shortFrequency(1200), "1.2k");
    EXPECT_EQ(frequencyText(440), "440 Hz");
    EXPECT_EQ(shortTime(0.0125), "12.5 ms");
    const auto ticks = linearTicks({-60, 0, false}, 5, true);
    ASSERT_EQ(ticks.size(), 6u);
    EXPECT_EQ(ticks.front().text, "\u221260");
    EXPECT_TRUE(ticks.back().isMain);
}

}  // namespace
}  // namespace quillworks::editors
