// SPDX-License-Identifier: ISC
// The scope: what its traces begin with, and what is read from them.
#include <numbers>
#include <optional>

#include "tests/support/display_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> struct ScopeUnderTest : DisplayUnderTest<T> {
    explicit ScopeUnderTest(double rate = 48000) : DisplayUnderTest<T>("Scope", rate) {}
    Shown trace() { return this->shown("trace"); }
};

double instantOf(const Shown& trace)
{
    return trace.value.at("start") + trace.value.at("offset");
}

template <typename T> class Scope : public ::testing::Test {};
TYPED_TEST_SUITE(Scope, Precisions);

TYPED_TEST(Scope, ReadsTonesAndTriggersBetweenTheSamples)
{
    constexpr double kPeak = 0.8, kPi = std::numbers::pi;
    for (const double rate : {48000.0, 192000.0})
        for (const double f : {20.0, 51.0, 440.0, 5000.0, 15000.0}) {
            SCOPED_TRACE(::testing::Message() << f << " Hz at " << rate);
            ScopeUnderTest<TypeParam> fx(rate);
            fx.set("time", std::max(10.0, 9000 / f)).set("level", 30).prepare();
            fx.show(sine<TypeParam>(std::size_t(rate), f, rate, kPeak));
            EXPECT_NEAR(fx.meter("frequency") / f, 1, 1e-4);
            EXPECT_NEAR(fx.meter("peaktopeak") / (2 * kPeak), 1, 1e-3);
            EXPECT_NEAR(fx.meter("rms") / (kPeak / std::sqrt(2.0)), 1, 1e-3);
            EXPECT_NEAR(fx.meter("dc"), 0, 1e-3 * kPeak);
            EXPECT_NEAR(fx.meter("dutycycle"), 50, 0.2);
            const auto trace = fx.trace();
            const double slope = 2 * kPi * f / rate, phase = instantOf(trace) * slope;
            EXPECT_NEAR((kPeak * std::sin(phase) - 0.3) / (kPeak * slope * std::cos(phase)), 0,
                        0.005);
            EXPECT_GT(std::cos(phase), 0);
        }
    ScopeUnderTest<TypeParam> fx;
    Signal<TypeParam> x(48000);
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = TypeParam(i % 4 < 2 ? 1 : -1);
    fx.prepare();
    fx.show(x);
    EXPECT_NEAR(fx.meter("maximum"), std::sqrt(2.0), 0.01);
}

/// A tone of several crossings a period, which an edge alone does not hold still.
template <typename T> Signal<T> buzz(std::size_t n)
{
    Signal<T> x(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double t = 2 * std::numbers::pi * 110 * double(i) / 48000;
        x[i] = T(0.5 * std::sin(t) + 0.4 * std::sin(3 * t + 1) + 0.3 * std::sin(5 * t + 2));
    }
    return x;
}

TYPED_TEST(Scope, ShowsTheSameAtEveryBlockLength)
{
    const auto x = buzz<TypeParam>(30000);
    for (int mode = 0; mode <= 5; ++mode) {
        std::optional<Shown> first;
        for (const int block : {30000, 1024, 61}) {
            ScopeUnderTest<TypeParam> fx;
            fx.set("trigger", mode).set("time", 7).set("beats", 0.0625).prepare(1, 30000);
            fx.show(x, block);
            const auto shown = fx.trace();
            if (!first) first = shown;
            EXPECT_EQ(shown, *first) << mode << " " << block;
        }
    }
}

TYPED_TEST(Scope, HoldsAPeriodStill)
{
    const double period = 48000.0 / 110;
    std::optional<double> phase;
    const auto x = buzz<TypeParam>(96000);
    ScopeUnderTest<TypeParam> steady;
    steady.set("trigger", 4).set("time", 15).set("level", 10).prepare();
    for (std::size_t at = 0; at < x.size(); at += 4000) {
        steady.show(Signal<TypeParam>(x.begin() + std::ptrdiff_t(at),
                                      x.begin() + std::ptrdiff_t(at) + 4000));
        if (at < 8000) continue;
        const double now = std::fmod(instantOf(steady.trace()), period);
        if (!phase) phase = now;
        EXPECT_NEAR(std::remainder(now - *phase, period), 0, 0.02) << at;
    }
}

TYPED_TEST(Scope, ASingleShotWaitsUntilItIsArmed)
{
    ScopeUnderTest<TypeParam> fx;
    fx.set("trigger", 3).set("time", 5).set("level", 70).prepare();
    Signal<TypeParam> click(24000, 0);
    click[10000] = 1;
    fx.show(Signal<TypeParam>(24000, 0));
    EXPECT_EQ(fx.meter("triggerstate"), 0);
    EXPECT_TRUE(std::isnan(fx.meter("maximum")));
    fx.show(click);
    EXPECT_EQ(fx.meter("triggerstate"), 3);
    EXPECT_NEAR(instantOf(fx.trace()), 34000, 1);
    fx.set("level", 60);
    fx.show(click);
    EXPECT_NEAR(instantOf(fx.trace()), 34000, 1) << "taken once";
    fx.set("arm", 1);
    fx.show(click);
    EXPECT_NEAR(instantOf(fx.trace()), 82000, 1);
    fx.displays->setDisplaysOpen(false);
    EXPECT_TRUE(std::isnan(fx.meter("maximum"))) << "nobody looks";
}

TEST(ScopeFreeze, StandsStillAndCountsBadSamples)
{
    ScopeUnderTest<float> fx;
    fx.set("time", 10).prepare();
    fx.show(sine<float>(9600, 1000, 48000, 0.5));
    const auto before = fx.trace();
    fx.set("freeze", 1);
    fx.show(sine<float>(9600, 500, 48000, 1));
    EXPECT_EQ(fx.trace().list, before.list);
    fx.set("freeze", 0);
    Signal<float> bad(4800, 0.25f);
    bad[100] = std::numeric_limits<float>::infinity();
    fx.run(bad);
    fx.displays->updateDisplays();
    EXPECT_EQ(fx.meter("bad"), 1);
    EXPECT_EQ(fx.meter("lost"), 0);
    // Nobody came for longer than the ring holds.
    for (int i = 0; i < 20; ++i) fx.run(Signal<float>(48000, 0.25f), 4800);
    fx.displays->updateDisplays();
    EXPECT_EQ(fx.meter("lost"), 1);
    fx.set("resethold", 1);
    fx.displays->updateDisplays();
    EXPECT_EQ(fx.meter("lost") + fx.meter("bad"), 0);
}

}  // namespace
}  // namespace quillworks::test
