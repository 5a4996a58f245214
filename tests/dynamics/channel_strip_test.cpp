// SPDX-License-Identifier: ISC
// The channel strip: neutral is a copy, curves are the analogue ones, dynamics do what they say.
#include "dynamics/channel_strip.h"

#include <complex>

#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 44100;
constexpr std::size_t kSecond = 44100;

template <typename T> class ChannelStrip : public ::testing::Test {};
TYPED_TEST_SUITE(ChannelStrip, Precisions);

template <typename T> EffectUnderTest<T> strip(int channels = 1)
{
    EffectUnderTest<T> fx("Channel Strip", kRate, channels);
    return fx;
}

TYPED_TEST(ChannelStrip, NeutralIsACopyAndSoIsACompressorThatHasNothingToDoAnyMore)
{
    using T = TypeParam;
    auto fx = strip<T>(2);
    fx.set("compon", 1).set("threshold", -30).set("release", 120).set("gateon", 1);
    fx.set("gatethreshold", -70).set("lowcut", 100).set("lmgain", 12).set("ingain", 6);
    fx.play({noise<T>(kSecond), noise<T>(kSecond, 2)});
    EXPECT_LT(fx.meter("reduction"), -6);
    fx.set("lowcut", 20).set("lmgain", 0).set("ingain", 0);
    const Channels<T> quiet{noise<T>(kSecond, 3, 0.02), noise<T>(kSecond, 4, 0.02)};
    fx.play(quiet);
    EXPECT_EQ(fx.play(quiet), quiet);
    EXPECT_EQ(fx.meter("reduction"), 0);
}

/// Gain in dB of an impulse through the strip.
template <typename T> double gainAt(EffectUnderTest<T>& fx, double frequency)
{
    const auto y = fx.prepare(1).run(impulse<T>(kSecond, 100, 0.5));
    return db(amplitudeAt(y, frequency, kRate, 0, kSecond) * double(kSecond) / 2 / 0.5);
}

TYPED_TEST(ChannelStrip, FiltersHaveTheCurvesOnTheirLabels)
{
    using T = TypeParam;
    struct Case {
        std::vector<std::pair<const char*, double>> settings;
        double frequency, gain, tolerance;  // Hz, dB
    };
    const Case cases[] = {
        {{{"lowcut", 100}}, 100, -3.01, 0.02},
        {{{"lowcut", 100}}, 25, -24.1, 0.1},
        {{{"lowcut", 100}, {"lowcutslope", 1}}, 100, -3.01, 0.02},
        {{{"lowcut", 100}, {"lowcutslope", 1}}, 50, -24.1, 0.1},
        {{{"lowgain", 12}, {"lowfreq", 200}}, 20, 12, 0.02},
        {{{"lowgain", 12}, {"lowfreq", 200}}, 200, 6, 0.02},
        {{{"lowgain", 12}, {"lowfreq", 200}, {"lowbell", 1}}, 20, 0.32, 0.05},
        {{{"lmgain", -15}, {"lmfreq", 400}, {"lmq", 6}}, 400, -15, 0.02},
        {{{"hmgain", 15}, {"hmfreq", 10000}, {"hmq", 0.9}}, 10000, 15, 0.02},
        {{{"hmgain", 15}, {"hmfreq", 10000}, {"hmq", 0.9}}, 20000, 5.71, 0.9},  // bilinear: 0.5
        {{{"highgain", -15}, {"highfreq", 10000}}, 20000, -14.3, 1.2},
        {{{"highgain", 10}, {"highbell", 1}}, 8000, 10, 0.02},
        {{{"highgain", 10}, {"eqon", 0}}, 8000, 0, 1e-5},
        {{{"lowgain", 6}, {"lmgain", 6}, {"hmgain", -6}, {"ingain", 3}, {"outgain", -5}},
         1,
         4,
         0.1},
    };
    for (const auto& c : cases) {
        auto fx = strip<T>();
        for (const auto& [key, value] : c.settings) fx.set(key, value);
        EXPECT_NEAR(gainAt(fx, c.frequency), c.gain, c.tolerance)
            << c.settings.front().first << " at " << c.frequency;
    }
}

TYPED_TEST(ChannelStrip, CompressesByItsCurveWithoutDistortingASteadyTone)
{
    using T = TypeParam;
    auto fx = strip<T>();
    fx.set("compon", 1).set("threshold", -24).set("ratio", 4).set("release", 30).set("gain", 5);
    const auto y = fx.run(sine<T>(4 * kSecond, 60, kRate, std::pow(10, -8 / 20.0)));
    // 16 dB over at 4:1 are 12 dB of reduction.
    const auto level = [&](double f) { return amplitudeAt(y, f, kRate, 3 * kSecond, 4 * kSecond); };
    EXPECT_NEAR(db(level(60)), -8 - 12 + 5, 0.01);
    EXPECT_NEAR(fx.meter("reduction"), -12, 0.01);
    double power = 0;
    for (int k = 2; k < 20; ++k) power += level(60 * k) * level(60 * k);
    EXPECT_LT(db(std::sqrt(power) / level(60)), -100);
}

TYPED_TEST(ChannelStrip, OrderDecidesWhatTheDetectorsHear)
{
    using T = TypeParam;
    const auto reduction = [](int order, const char* key, double value) {
        auto fx = strip<T>();
        fx.set("compon", 1).set("threshold", -20).set("ratio", 20).set("order", order);
        fx.set("hmfreq", 1000).set(key, value).run(sine<T>(kSecond, 1000, kRate, 0.1));
        return fx.meter("reduction");
    };
    EXPECT_NEAR(reduction(0, "hmgain", 12), -11.4, 0.05);
    EXPECT_NEAR(reduction(1, "hmgain", 12), -0.7, 0.05);  // in the knee
    EXPECT_NEAR(reduction(1, "ingain", 12), -11.4, 0.05);
    EXPECT_NEAR(reduction(1, "lowcut", 1000), -0.0, 1e-6);  // ahead in both orders
}

TYPED_TEST(ChannelStrip, GateOpensForItsKeyAndComesInAsItHearsIt)
{
    using T = TypeParam;
    const auto loud = sine<T>(kSecond, 200, kRate, 0.1), quiet = sine<T>(kSecond, 200, kRate, 1e-3);
    auto fx = strip<T>();
    fx.set("gateon", 1).set("gatethreshold", -40).set("gaterange", -30).prepare(1);
    EXPECT_NEAR(peak(fx.run(quiet)), std::pow(10, -90 / 20.0), 1e-6);
    EXPECT_NEAR(fx.meter("gatereduction"), -30, 0.01);
    EXPECT_EQ(fx.run(loud).back(), loud.back());
    EXPECT_EQ(fx.meter("gatereduction"), 0);

    fx.set("gateon", 0).run(quiet);
    EXPECT_EQ(fx.run(quiet), quiet);
    fx.set("gateon", 1);
    EXPECT_EQ(fx.run(loud), loud) << "comes in closed while its key is over the threshold";
    fx.set("gateon", 0).run(loud);
    fx.set("gateon", 1);
    const auto closing = fx.run(quiet);
    EXPECT_EQ(closing[500], quiet[500]) << "does not listen first";
    EXPECT_NEAR(closing.back() / quiet.back(), std::pow(10, -30 / 20.0), 1e-4);
    EXPECT_LT(rms(closing, 1100, 1600), 0.05 * rms(quiet)) << "is not in after 25 ms";
}

TYPED_TEST(ChannelStrip, TurnsPolarityOver)
{
    using T = TypeParam;
    const auto x = noise<T>(kSecond);
    auto fx = strip<T>();
    const auto y = fx.set("polarity", 1).run(x);
    for (std::size_t i = 0; i < x.size(); ++i) ASSERT_EQ(y[i], -x[i]);
}

TYPED_TEST(ChannelStrip, AutomationDoesNotClick)
{
    using T = TypeParam;
    const auto x = sine<T>(4410, 440, kRate, 0.25);
    for (const char* key : {"lowcut", "lowcutslope", "eqon", "lowbell", "highbell", "order",
                            "gateon", "compon", "polarity", "ingain", "lmfreq", "hmq", "gain"}) {
        auto fx = strip<T>();
        fx.set("lowcut", 200).set("lowgain", 12).set("highgain", -12).set("lmgain", 6);
        fx.set("hmgain", -6).set("threshold", -30).set("gatethreshold", 0).prepare(1);
        if (key != std::string("compon")) fx.set("compon", 1);
        const auto y = fx.runWhileSwitching(key, x);
        // The loudest tone itself makes steps of 0.0629 times its peak.
        EXPECT_LT(largestStep(y), 0.09 * std::max(0.25, peak(y))) << key;
    }
}

}  // namespace
}  // namespace quillworks::test
