// SPDX-License-Identifier: ISC
// EmberDist: no aliases, a flat and transparent path, a level that stays, dynamics that come back.
#include "distortion/ember_dist.h"

#include "tests/distortion/impulse_response.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/power_spectrum.h"
#include "tests/support/sanitised.h"

namespace quillworks::test {
namespace {

enum { Warm, Soft, Hard, Tube, Fold };

TEST(EmberDistAliases, StayBelowTheirBars)
{
    constexpr std::size_t kSize = 65536, kStart = 8192;
    constexpr int kLobe = 8;  // bins on each side of a line
    const struct {
        int character;
        double drive, frequency, bar;
    } cases[] = {{Hard, 12, 1003, -105}, {Hard, 12, 5003, -88},  {Hard, 12, 10007, -75},
                 {Warm, 12, 1003, -125}, {Warm, 12, 5003, -105}, {Warm, 12, 10007, -82},
                 {Tube, 12, 1003, -120}, {Tube, 12, 5003, -100}, {Tube, 12, 10007, -80},
                 {Hard, 36, 5003, -65}};
    for (const auto& [character, drive, frequency, bar] : cases) {
        EffectUnderTest<float> fx("EmberDist");
        fx.set("drive", drive).set("character", character);
        const auto y = fx.run(sine<float>(kStart + kSize, frequency, 48000, dbToGain(-6.0)));
        const auto power = powerSpectrum(y, kStart, kSize);
        double lines = 0, rest = 0;
        for (std::size_t k = 0; double(k) * 48000 / kSize < 20000; ++k) {
            const double place = double(k) * 48000 / kSize / frequency;  // in harmonics
            const double bins = std::abs(place - std::round(place)) * frequency * kSize / 48000;
            (bins <= kLobe ? lines : rest) += power[k];
        }
        const double aliases = 10 * std::log10(rest / lines);
        std::printf("[ aliases  ] character %d, %.0f Hz, drive %.0f: %.1f dB\n", character,
                    frequency, drive, aliases);
        EXPECT_LT(aliases, bar) << character << ", " << frequency << ", " << drive;
    }
}

TEST(EmberDistPath, IsFlatAtAnyMixAndLateByItsLatency)
{
    const struct {
        double sampleRate;
        unsigned latency;
        double top;     // Hz
        double ripple;  // dB
    } cases[] = {{8000, 39, 3300, 0.03},   {44100, 39, 17000, 0.03},  {48000, 39, 18000, 0.03},
                 {96000, 38, 20000, 0.03}, {192000, 32, 20000, 0.03}, {384000, 0, 20000, 0.12}};
    for (const auto& [sampleRate, latency, top, ripple] : cases)
        for (const double mix : {0.0, 30.0, 50.0, 100.0}) {
            EffectUnderTest<double> fx("EmberDist", sampleRate);
            fx.set("drive", 0).set("levelmatch", 0).set("mix", mix);
            const auto h = fx.run(impulse<double>(2048, 100, 0.001));
            ASSERT_EQ(fx.algorithm().getLatency(), latency);
            double worst = 0;
            for (double f = 20; f <= top; f += 97) {
                const auto response = responseTo(0.001, 100 + latency, h, f, sampleRate);
                worst = std::max(worst, std::abs(db(std::abs(response))));
            }
            std::printf("[ response ] %.0f Hz, mix %.0f: within %.4f dB\n", sampleRate, mix, worst);
            EXPECT_LT(worst, ripple) << sampleRate << ", " << mix;
        }
    // What is left of the distortion against the dry signal, of the tone itself.
    Signal<double> played[2];
    for (const int wet : {0, 1}) {
        EffectUnderTest<double> fx("EmberDist");
        fx.set("drive", 0).set("levelmatch", 0).set("mix", 100 * wet);
        played[wet] = fx.run(sine<double>(57600, 1000, 48000, 0.01));
    }
    for (std::size_t i = 0; i < 57600; ++i) played[1][i] -= played[0][i];
    const double left = db(amplitudeAt(played[1], 1000, 48000, 9600, 57600) / 0.01);
    std::printf("[ linear   ] %.1f dB\n", left);
    EXPECT_LT(left, -70);
}

/// Noise from 50 Hz to 5 kHz at -18 dBFS.
Signal<double> programme(std::size_t frames)
{
    auto x = noise<double>(frames);
    SectionState<double> low[2], high[2];
    for (int i = 0; i < 2; ++i) {
        low[i].run(SectionCoefficients<double>::highPass(50, kButterworth4Q[i], 48000), x.data(),
                   int(frames));
        high[i].run(SectionCoefficients<double>::lowPass(5000, kButterworth4Q[i], 48000), x.data(),
                    int(frames));
    }
    const double gain = dbToGain(-18.0) / rms(x, frames / 4);
    for (double& v : x) v *= gain;
    return x;
}

TEST(EmberDistLevel, StaysWhateverTheDriveAndBias)
{
    const auto x = programme(96000);
    double least = 0, most = 0;
    for (const int character : {Warm, Soft, Hard, Tube, Fold})
        for (const double bias : {0.0, 40.0})
            for (double drive = 0; drive <= 48; drive += kIsSanitised ? 24 : 6) {
                EffectUnderTest<double> fx("EmberDist");
                fx.set("character", character).set("drive", drive).set("bias", bias);
                const double change = db(rms(fx.run(x), 24000)) - db(rms(x, 24000));
                const bool isInBar = bias == 0 && (character == Warm || character >= Hard);
                if (isInBar && character != Fold) {
                    least = std::min(least, change);
                    most = std::max(most, change);
                    EXPECT_NEAR(change, 0, 0.4) << character << ", " << drive;
                } else {
                    EXPECT_NEAR(change, 0, 1.5) << character << ", " << drive << ", " << bias;
                }
            }
    std::printf("[ level    ] %.2f .. %.2f dB\n", least, most);
}

/// Loud and soft by turns of a quarter second: drive evens them out, Dynamics undoes that.
TEST(EmberDistDynamics, ComeBack)
{
    auto x = programme(96000);
    for (std::size_t i = 0; i < x.size(); ++i)
        if (i / 12000 % 2) x[i] *= dbToGain(-20.0);
    const auto rangeOf = [](const Signal<double>& y) {
        return db(rms(y, 48000 + 6000, 48000 + 12000)) - db(rms(y, 60000 + 6000, 60000 + 12000));
    };
    EffectUnderTest<double> flat("EmberDist"), restored("EmberDist");
    EXPECT_LT(rangeOf(flat.set("drive", 36).run(x)), 8);
    EXPECT_NEAR(rangeOf(restored.set("drive", 36).set("dynamics", 100).run(x)), 20, 1.5);
    EXPECT_LT(restored.meter("dynamicsgain"), -10);
}

TEST(EmberDistChanges, AreHeardAsGlidesAndFades)
{
    const auto x = sine<double>(9600, 200, 48000, 0.5);
    const struct {
        const char* key;
        float values[2];
        double allowed;  // times the largest step of the steady ends
    } cases[] = {{"mix", {0, 100}, 1.2},        {"character", {0, 4}, 1.2},
                 {"levelmatch", {0, 1}, 1.2},   {"tone", {-100, 100}, 1.2},
                 {"dynamics", {0, 100}, 1.2},   {"tight", {20, 500}, 1.2},
                 {"hicut", {20000, 3000}, 1.2}, {"bias", {0, 100}, 1.5}};
    for (const auto& [key, values, allowed] : cases) {
        EffectUnderTest<double> fx("EmberDist");
        double steady = 0;
        for (const float value : values) {
            fx.set(key, value).run(x);
            fx.run(x);
            steady = std::max(steady, largestStep(fx.run(x)));
        }
        for (int turn = 0; turn < 4; ++turn) {
            const double step = largestStep(fx.set(key, values[turn % 2]).run(x, 37));
            EXPECT_LT(step, allowed * steady) << key << ", " << turn;
        }
    }
}

template <typename T> class EmberDist : public ::testing::Test {};
TYPED_TEST_SUITE(EmberDist, Precisions);

TYPED_TEST(EmberDist, KeepsSilenceAndTheDrySignalBitByBit)
{
    const auto x = noise<TypeParam>(9600, 1, 3);
    for (std::uint32_t seed = 1; seed <= 4; ++seed) {
        EffectUnderTest<TypeParam> fx("EmberDist");
        EXPECT_EQ(peak(fx.randomise(seed).run(constant<TypeParam>(4800, 0))), 0) << seed;
        EffectUnderTest<TypeParam> dry("EmberDist");
        const auto y = dry.randomise(seed).set("mix", 0).set("output", 0).run(x, 100);
        const auto latency = std::size_t(dry.algorithm().getLatency());
        for (std::size_t i = latency; i < x.size(); ++i) ASSERT_EQ(y[i], x[i - latency]) << i;
    }
}

}  // namespace
}  // namespace quillworks::test
