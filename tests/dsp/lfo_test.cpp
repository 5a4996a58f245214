// SPDX-License-Identifier: ISC
#include "dsp/lfo.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>

namespace quillworks {
namespace {

std::array<float, LfoTable::kSteps> someSteps()
{
    std::array<float, LfoTable::kSteps> steps;
    for (std::size_t i = 0; i < steps.size(); ++i)
        steps[i] = std::cos(static_cast<float>(i * i)) * 0.9f;
    return steps;
}

TEST(Lfo, ShapesGoThroughTheirCorners)
{
    struct Corner {
        LfoShape shape;
        std::size_t index;
        float value;
    };
    const Corner corners[] = {
        {LfoShape::Triangle, 0, 0},
        {LfoShape::Triangle, 1, 1 / 64.0f},
        {LfoShape::Triangle, 64, 1},
        {LfoShape::Triangle, 65, 63 / 64.0f},
        {LfoShape::Triangle, 128, 0},
        {LfoShape::Triangle, 129, -1 / 64.0f},
        {LfoShape::Triangle, 192, -1},
        {LfoShape::Triangle, 255, -1 / 64.0f},
        {LfoShape::Triangle, 256, 0},
        {LfoShape::Sawtooth, 0, -1},
        {LfoShape::Sawtooth, 128, 0},
        {LfoShape::Sawtooth, 255, 0.9921875f},
        {LfoShape::Sawtooth, 256, -1},
        {LfoShape::Square, 0, 1},
        {LfoShape::Square, 127, 1},
        {LfoShape::Square, 128, -1},
        {LfoShape::Square, 255, -1},
        {LfoShape::Square, 256, 1},
        {LfoShape::Sine, 0, 0},
        {LfoShape::Sine, 64, 1},
        {LfoShape::Sine, 192, -1},
        {LfoShape::Sine, 1, 0.02454122852f},
        {LfoShape::Sine, 32, 0.70710678f},
    };
    for (const auto& c : corners) {
        LfoTable table;
        table.select(c.shape);
        const int shape = static_cast<int>(c.shape);
        EXPECT_EQ(table.wave()[c.index], c.value) << "shape " << shape << " at " << c.index;
        EXPECT_EQ(table.wave16()[c.index], static_cast<int>(double(c.value) * 32767))
            << "shape " << shape << " at " << c.index;
    }
}

TEST(Lfo, SineIsWithinItsInterpolationErrorEverywhere)
{
    LfoTable table;
    table.select(LfoShape::Sine);
    double worst = 0;
    for (std::uint64_t phase = 0; phase < (1ull << 32); phase += 999983) {
        const double turn = static_cast<double>(phase) * std::exp2(-32);
        const double error =
            table.read(static_cast<std::uint32_t>(phase)) - std::sin(2 * std::numbers::pi * turn);
        worst = std::max(worst, std::abs(error));
    }
    EXPECT_LE(worst, 8e-5);  // (2 pi / 256)^2 / 8 of a chord below its arc
    EXPECT_GE(worst, 7e-5);
}

TEST(Lfo, LastIntervalLeadsToTheStartOfTheNextPeriod)
{
    LfoTable table;
    EXPECT_EQ(table.read(0xFF000000u), -1 / 64.0f);
    EXPECT_EQ(table.read(0xFF800000u), -1 / 128.0f);
    EXPECT_NEAR(table.read(0xFFFFFFFFu), 0, 1e-8);
    EXPECT_LT(table.read(0xFFFFFF00u), 0);
}

TEST(Lfo, StepsSoundAfterASelectionOrARebuildOnly)
{
    const auto steps = someSteps();
    for (const auto shape : {LfoShape::Steps, LfoShape::SmoothSteps}) {
        LfoTable table;
        table.setSteps(steps);
        EXPECT_EQ(table.wave()[64], 1) << "the triangle is still there";
        table.select(shape);
        for (std::size_t i = 0; i < 256; ++i) ASSERT_EQ(table.wave()[i], steps[i / 16]) << i;
        EXPECT_EQ(table.wave()[256], steps[0]);

        const auto before = table.wave();
        const auto before16 = table.wave16();
        std::array<float, LfoTable::kSteps> loud;
        loud.fill(-1);
        loud[3] = 2;  // beyond the range of the 16-bit wave
        table.setSteps(loud);
        table.select(shape);
        table.select(6);
        table.select(-1);
        EXPECT_EQ(table.shape(), shape);
        EXPECT_EQ(table.wave(), before);
        EXPECT_EQ(table.wave16(), before16);
        EXPECT_EQ(table.steps(), loud);
        table.rebuild();
        EXPECT_EQ(table.wave()[0], -1);
        EXPECT_EQ(table.wave16()[0], -32767);
        EXPECT_EQ(table.wave16()[48], 32767);
    }
}

TEST(Lfo, PhaseKeepsTimeAndWrapsAtItsPeriod)
{
    for (const double rate : {44100.0 / 32, 48000.0 / 32, 96000.0 / 32}) {
        LfoTable table;
        table.setControlRate(rate);
        LfoPhase phase;
        phase.increment = table.increment(1);
        const int updates = static_cast<int>(10 * rate);
        for (int i = 0; i < updates; ++i) phase.next();
        const double expected = std::fmod(updates / rate, 1);
        const double drift = std::remainder(phase.value * std::exp2(-32) - expected, 1);
        EXPECT_LE(std::abs(drift), 1e-4) << rate;
    }
}

TEST(Lfo, IncrementIsTruncatedLimitedAndRescaled)
{
    LfoTable table;
    table.setControlRate(1500);
    EXPECT_EQ(table.increment(1), 2863311u);  // 2^32 / 1500 = 2863311.53
    EXPECT_EQ(table.increment(750), 1u << 31);
    EXPECT_EQ(table.increment(1e9), 1u << 31);
    for (const double none : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(table.increment(none), 0u) << none;

    LfoPhase phase{7, 2863311};
    phase.rescale(1500, 3000);
    EXPECT_EQ(phase.increment, 1431655u);
    EXPECT_EQ(phase.value, 7u);
    EXPECT_EQ(phase.next(), 7u);
    EXPECT_EQ(phase.value, 1431662u);
    phase.increment = 1u << 31;
    phase.rescale(3000, 250);  // six whole periods per update
    EXPECT_EQ(phase.increment, 0u);
}

TEST(Lfo, SmoothStepsSettleInAThirtySecondOfAPeriod)
{
    LfoTable table;
    table.setControlRate(1500);
    EXPECT_EQ(table.smoothStepsHalfLife(1), 46);
    EXPECT_EQ(table.smoothStepsHalfLife(100), 1);
    EXPECT_EQ(std::exp2(-1 / table.smoothStepsHalfLife(0)), 1);
}

}  // namespace
}  // namespace quillworks
