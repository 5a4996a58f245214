// SPDX-License-Identifier: ISC
// Overdrive and Multiband Distortion, which no list offers and no sweep over the factory meets.
#include "tests/distortion/impulse_response.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr const char* kNames[] = {"Overdrive", "Multiband Distortion"};

template <typename T> class WithheldDistortions : public ::testing::Test {};
TYPED_TEST_SUITE(WithheldDistortions, Precisions);

TYPED_TEST(WithheldDistortions, KeepSilenceRecoverAndDoNotDependOnTheBlocks)
{
    using T = TypeParam;
    for (const std::string name : kNames)
        for (const int channels : {1, 2, 5}) {
            EffectUnderTest<T> quiet(name, 48000, channels), fx(name, 48000, channels),
                cut(name, 48000, channels);
            const auto all = [&](Signal<T> x) {
                return Channels<T>(std::size_t(channels), std::move(x));
            };
            const auto silence = quiet.randomise(2).play(all(constant<T>(4800, 0)));
            for (const auto& s : silence) EXPECT_EQ(peak(s), 0) << name;

            auto x = noise<T>(48000, 3, 0.5);
            const auto clean = fx.randomise(5).play(all(x));
            x[1000] = std::numeric_limits<T>::quiet_NaN();
            x[1001] = std::numeric_limits<T>::infinity();
            x[1002] = T(1e30);
            const auto bad = cut.randomise(5).play(all(x), 37);
            for (std::size_t c = 0; c < bad.size(); ++c) {
                EXPECT_TRUE(std::equal(bad[c].begin(), bad[c].begin() + 1000, clean[c].begin()))
                    << name << ", " << channels;
                ASSERT_TRUE(isFinite(bad[c])) << name;
                EXPECT_NEAR(db(rms(bad[c], 36000)), db(rms(clean[c], 36000)), 0.1) << name;
            }
        }
}

TEST(MultibandDistortion, SumsToAnAllPassAtAnyMix)
{
    const struct {
        double rate;
        unsigned latency;
    } cases[] = {{44100, 39}, {48000, 39}, {96000, 38}, {192000, 32}, {384000, 0}};
    for (const auto& [rate, latency] : cases)
        for (const double mix : {0.0, 50.0, 100.0}) {
            EffectUnderTest<double> fx("Multiband Distortion", rate);
            for (const char* n : {"0", "1", "2"})
                fx.set(std::string("drive") + n, 0).set(std::string("character") + n, 2);
            const auto h = fx.set("mix", mix).run(impulse<double>(16384, 100, 0.001));
            EXPECT_EQ(fx.algorithm().getLatency(), latency);
            double worst = 0;
            for (double f = 30; f < 18000; f *= 1.05)
                worst = std::max(
                    worst, std::abs(db(std::abs(responseTo(0.001, 100 + latency, h, f, rate)))));
            EXPECT_LT(worst, rate < 384000 ? 0.05 : 0.12) << rate << ", " << mix;
        }
}

TEST(MultibandDistortion, DrivesAndSolosItsBandsApart)
{
    const auto toneThrough = [](double frequency, int driven, int solo) {
        EffectUnderTest<double> fx("Multiband Distortion");
        for (int n = 0; n < 3; ++n) {
            fx.set("drive" + std::to_string(n), n == driven ? 36 : 0);
            fx.set("character" + std::to_string(n), 2);
        }
        if (solo >= 0) fx.set("solo" + std::to_string(solo), 1);
        const auto y = fx.run(sine<double>(96000, frequency, 48000, 0.4));
        return std::pair(amplitudeAt(y, frequency, 48000, 48000, 96000),
                         amplitudeAt(y, 3 * frequency, 48000, 48000, 96000));
    };
    const double tones[] = {40, 750, 7000};
    for (int band = 0; band < 3; ++band)
        for (int driven = 0; driven < 3; ++driven) {
            const auto [tone, third] = toneThrough(tones[band], driven, -1);
            EXPECT_GT(tone, 0.05);
            if (driven == band)
                EXPECT_GT(third / tone, 0.2) << band;
            else
                EXPECT_LT(third / tone, 0.01) << band << ", " << driven;
            const auto alone = toneThrough(tones[band], -1, driven).first;
            if (driven == band)
                EXPECT_NEAR(db(alone), db(0.4), 0.3) << band;
            else
                EXPECT_LT(db(alone), -20) << band << ", " << driven;
        }
}

TEST(Overdrive, LeavesTheBassCleanAndDrivesTheMiddle)
{
    const auto thirdOf = [](double frequency) {
        EffectUnderTest<double> fx("Overdrive");
        const auto y = fx.set("tone", 100).run(sine<double>(96000, frequency, 48000, 0.25));
        EXPECT_EQ(fx.algorithm().getLatency(), 39u);
        return amplitudeAt(y, 3 * frequency, 48000, 48000, 96000) /
               amplitudeAt(y, frequency, 48000, 48000, 96000);
    };
    EXPECT_LT(thirdOf(40), 0.01);
    EXPECT_GT(thirdOf(1500), 0.03);
    // Small signals: what is driven adds to the whole; the tone control is a one-pole.
    for (const double tone : {0.0, 100.0}) {
        EffectUnderTest<double> fx("Overdrive");
        fx.set("drive", 0).set("tone", tone);
        const auto h = fx.run(impulse<double>(16384, 100, 0.001));
        const double low = std::abs(responseTo(0.001, 139, h, 30, 48000));
        const double corner = 800 * std::pow(10, tone / 100);
        const double g = std::tan(std::numbers::pi * corner / 48000);
        for (const double f : {4000.0, 9000.0}) {
            const double w = std::tan(std::numbers::pi * f / 48000);
            const double highPass = 720 * std::numbers::pi / 48000;
            const std::complex<double> i(0, 1);
            const auto driven = i * w / (i * w + std::tan(highPass));
            const double wanted = std::abs((1.0 + driven) * g / (g + i * w));
            EXPECT_NEAR(db(std::abs(responseTo(0.001, 139, h, f, 48000)) / low), db(wanted), 0.1)
                << f;
        }
    }
}

}  // namespace
}  // namespace quillworks::test
