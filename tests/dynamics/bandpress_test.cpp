// SPDX-License-Identifier: ISC
// Bandpress: flat while it does nothing, exact on steady tones, and what its switches promise.
#include "dynamics/bandpress.h"

#include "dsp/random.h"
#include "dynamics/compressor.h"
#include "tests/dynamics/response.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr std::size_t kSecond = 48000;

template <typename T> class Bandpress : public ::testing::Test {};
TYPED_TEST_SUITE(Bandpress, Precisions);

/// All bands with the same threshold and ratio, no make-up.
template <typename T> EffectUnderTest<T> pressed(double threshold, double ratio, int channels = 1)
{
    EffectUnderTest<T> fx("Bandpress");
    for (const char* band : {"0", "1", "2"})
        fx.set(std::string("threshold") + band, threshold).set(std::string("ratio") + band, ratio);
    fx.set("auto", 0).prepare(channels);
    return fx;
}

TYPED_TEST(Bandpress, IsFlatWhileItDoesNothingAtEveryMix)
{
    using T = TypeParam;
    for (const double mix : {1.0, 0.5})
        for (const auto& [low, high] : {std::pair{160, 2500}, {1000, 1000}, {40, 12000}}) {
            Signal<T> impulse(kSecond);
            impulse[0] = T(0.01);  // below all thresholds
            auto fx = pressed<T>(0, mix < 1 ? 1 : 4);
            const auto y =
                fx.set("mix", mix).set("freqlow", low).set("freqhigh", high).run(impulse);
            for (double f = 20; f < 20000; f *= 1.3)
                EXPECT_NEAR(responseAt(y, f, kRate) + 40, 0, 0.001) << f << " Hz, mix " << mix;
        }
}

TYPED_TEST(Bandpress, SteadyTonesAreReducedAsTheCurveSaysWithoutDistortion)
{
    using T = TypeParam;
    // At -6 dB, threshold -24, ratio 4: 3/4 of what lies above, and of the knee where it begins.
    struct Case {
        double frequency, press, level, wanted;  // Hz, dB
    };
    for (const auto& s : {Case{40, 0, -6, -19.5}, Case{60, 0, -6, -19.5}, Case{700, 0, -6, -19.5},
                          Case{10000, 0, -6, -19.5}, Case{700, 12, -6, -28.5},
                          Case{700, 0, -24, -24 - 0.75 * 36 / 24}, Case{700, 0, -31, -31}}) {
        auto fx = pressed<T>(-24, 4);
        fx.set("release", 120).set("attack", 10).set("press", s.press);
        const int band = s.frequency < 200 ? 0 : s.frequency < 2500 ? 1 : 2;
        fx.set("freqlow", band == 0 ? 1000 : 40).set("freqhigh", band == 1 ? 12000 : 1000);
        const auto y = fx.run(sine<T>(4 * kSecond, s.frequency, kRate, std::pow(10, s.level / 20)));
        const auto at = [&](double f) {
            return db(amplitudeAt(y, f, kRate, 3 * kSecond, 4 * kSecond));
        };
        EXPECT_NEAR(at(s.frequency), s.wanted, 0.1) << s.frequency;
        for (int k = 2; k * s.frequency < 20000 && k <= 12; ++k)
            EXPECT_LT(at(k * s.frequency) - s.wanted, -100) << k << " x " << s.frequency;
        EXPECT_NEAR(fx.meter("reduction" + std::to_string(band)), s.wanted - s.level, 0.1);
        EXPECT_NEAR(fx.meter("bandlevel" + std::to_string(band)), s.level, 0.1);
    }
}

TYPED_TEST(Bandpress, AutoGainKeepsTheLevelOfPinkNoise)
{
    using T = TypeParam;
    // A sum of one-poles of random input, one per octave and a half, falls by 3 dB an octave.
    Signal<T> pink(10 * kSecond);
    double state[8] = {};
    Xoshiro256pp random(7);
    for (auto& x : pink) {
        const double white = double(random.next() >> 11) * 0x1p-53 - 0.5;
        double sum = 0;
        for (int k = 0; k < 8; ++k) {
            const double pole = std::exp(-2 * std::numbers::pi * 10 * std::pow(2.83, k) / kRate);
            state[k] += (1 - pole) * (white - state[k]);
            sum += state[k] * std::pow(1.68, -k) * 8;
        }
        x = T(sum);
    }
    const double level = db(rms(pink));
    for (auto& x : pink) x *= T(std::pow(10, (-18 - level) / 20));
    for (const auto& [threshold, ratio] : {std::pair{-24, 2}, {-24, 4}, {-30, 2}, {-30, 4}}) {
        auto fx = pressed<T>(threshold, ratio);
        const auto y = fx.set("auto", 1).run(pink);
        EXPECT_NEAR(db(rms(y, 5 * kSecond)), -18, 2.5) << threshold << ", " << ratio;
    }
}

TYPED_TEST(Bandpress, SoloedBandsAddUpToAllAndWhatIsOffPassesAsItIs)
{
    using T = TypeParam;
    const auto x = noise<T>(kSecond, 1, 0.5);
    const auto play = [&](const char* key, int value) {
        auto fx = pressed<T>(-30, 6);
        return fx.set(key, value).run(x);
    };
    const auto all = play("mute0", 0), low = play("solo0", 1), mid = play("solo1", 1),
               high = play("solo2", 1), noMid = play("mute1", 1);
    for (std::size_t i = 0; i < kSecond; ++i) {
        ASSERT_NEAR(low[i] + mid[i] + high[i], all[i], 2e-6);
        ASSERT_NEAR(noMid[i] + mid[i], all[i], 2e-6);
    }
    auto off = pressed<T>(-30, 6), idle = pressed<T>(-30, 1);
    for (const char* key : {"bandon0", "bandon1", "bandon2"}) off.set(key, 0);
    EXPECT_EQ(off.run(x), idle.run(x));
    EXPECT_EQ(off.meter("reduction1"), 0);
    EXPECT_GT(off.meter("bandlevel1"), -20);
}

TYPED_TEST(Bandpress, ListensToItsChannelsTogetherOrApartAndToTheBus)
{
    using T = TypeParam;
    const auto loud = sine<T>(kSecond, 700, kRate, 0.5), soft = sine<T>(kSecond, 900, kRate, 0.01);
    auto inverse = loud;
    for (auto& v : inverse) v = -v;
    const auto gainOfSoft = [&](bool linked, const Channels<T>& bus) {
        auto fx = pressed<T>(-24, 4, 2);
        fx.set("freqlow", 40).set("freqhigh", 12000).set("linked", linked).sideChain(bus);
        const auto y = fx.play({loud, soft});
        return db(rms(y[1], kSecond / 2)) - db(rms(soft, kSecond / 2));
    };
    // The peak of the tone is at -6 dB, the power of the bus the mean of its channels.
    EXPECT_NEAR(gainOfSoft(true, {}), -13.5, 0.1);
    EXPECT_NEAR(gainOfSoft(false, {}), 0, 0.01);
    EXPECT_NEAR(gainOfSoft(true, {loud, inverse}), -13.5, 0.1) << "polarities do not cancel";
    EXPECT_NEAR(gainOfSoft(true, {loud, Signal<T>(kSecond)}), -0.75 * 15, 0.1);
    EXPECT_NEAR(gainOfSoft(false, {loud, Signal<T>(kSecond)}), 0, 0.01);
    EXPECT_NEAR(gainOfSoft(false, {loud}), -13.5, 0.1) << "a narrower bus is for all";
}

TYPED_TEST(Bandpress, AutomationDoesNotClick)
{
    using T = TypeParam;
    for (const char* key : {"freqlow", "freqhigh", "gain1", "bandon1", "mute1", "solo0", "auto",
                            "linked", "mix", "outgain", "press", "bandtimes"}) {
        auto fx = pressed<T>(-24, 4);
        const auto y = fx.runWhileSwitching(key, sine<T>(9600, 440, kRate, 0.25));
        const double loudest = std::max(0.25, double(peak(y)));
        EXPECT_LT(largestStep(y), loudest * (0.0576 + 0.03)) << key;
    }
}

}  // namespace
}  // namespace quillworks::test
