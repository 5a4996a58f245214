// SPDX-License-Identifier: ISC
// The bitcrusher's converter: only the lines of its own rate, exact steps, silence after sound.
#include "distortion/bitcrusher.h"

#include <array>

#include "distortion/quantiser.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/power_spectrum.h"

namespace quillworks::test {
namespace {

constexpr std::size_t kLatency = 32;

template <typename T> class Bitcrusher : public ::testing::Test {};
TYPED_TEST_SUITE(Bitcrusher, Precisions);

TYPED_TEST(Bitcrusher, OffOrDryIsTheInputLaterBitByBit)
{
    const auto x = noise<TypeParam>(9600, 1, 3);
    for (const bool isDry : {false, true}) {
        EffectUnderTest<TypeParam> fx("Bitcrusher");
        if (isDry)
            fx.randomise(3).set("mix", 0).set("ingain", 0).set("output", 0);
        else
            fx.set("rate", 48000).set("bits", 24).set("prefilter", 1).set("postfilter", 1);
        const auto y = fx.run(x, 100);
        EXPECT_EQ(fx.algorithm().getLatency(), kLatency);
        for (std::size_t i = kLatency; i < x.size(); ++i)
            ASSERT_EQ(y[i], x[i - kLatency]) << i << (isDry ? " dry" : " off");
    }
}

TEST(BitcrusherClock, MakesTheLinesOfItsRateAndNoOthers)
{
    constexpr std::size_t kSize = 65536;
    constexpr int kLobe = 8;  // bins on each side of a line
    const struct {
        double sampleRate, frequency, rate;
    } cases[] = {{48000, 1000, 11025},  {48000, 2500, 21981}, {48000, 5000, 15382},
                 {48000, 10000, 29303}, {44100, 1000, 11025}, {192000, 5000, 15382},
                 {384000, 1000, 11025}};
    for (const auto& [sampleRate, frequency, rate] : cases) {
        SCOPED_TRACE(testing::Message() << frequency << " Hz at " << rate << " of " << sampleRate);
        EffectUnderTest<float> fx("Bitcrusher", sampleRate);
        fx.set("rate", rate).set("bits", 24);
        const auto y = fx.run(sine<float>(kSize + 4096, frequency, sampleRate));
        auto power = powerSpectrum(y, 4096, kSize);
        const double perBin = sampleRate / kSize;
        double worstLine = 0;
        for (int m = 0; m * rate < 20000 + frequency; ++m)
            for (const double side : {-1.0, 1.0}) {
                const double line = std::abs(m * rate + side * frequency);
                const auto at = static_cast<int>(line / perBin + 0.5);
                if (line > 24000 || at + kLobe >= int(power.size())) continue;
                const double found = amplitudeAt(y, line, sampleRate, 4096, y.size());
                const double held = std::abs(sinc(line / rate));
                if (line < 20000 && held > 0.02)
                    worstLine = std::max(worstLine, std::abs(db(found) - db(held)));
                for (int k = std::max(0, at - kLobe); k <= at + kLobe; ++k)
                    power[static_cast<std::size_t>(k)] = 0;
            }
        double rest = 0;
        for (std::size_t k = 0; double(k) * perBin < 20000; ++k) rest += power[k];
        std::printf("[ lines    ] %.0f Hz at %.0f of %.0f: rest %.1f dB, lines within %.2f dB\n",
                    frequency, rate, sampleRate, db(std::sqrt(rest)), worstLine);
        EXPECT_LT(db(std::sqrt(rest)), -90);
        EXPECT_LT(worstLine, 0.5);
    }
}

/// A held sample stands half a period of the clock later than what it is of.
TEST(BitcrusherClock, HoldsFromTheLatencyOn)
{
    for (const double rate : {3000.0, 8000.0, 44000.0}) {
        EffectUnderTest<double> fx("Bitcrusher");
        const auto y = fx.set("rate", rate).set("bits", 24).run(sine<double>(96000, 50, 48000));
        double re = 0, im = 0;
        for (std::size_t i = 48000; i < 96000; ++i) {
            const double w = 2 * std::numbers::pi * 50 * double(i) / 48000;
            re += y[i] * std::sin(w);
            im -= y[i] * std::cos(w);
        }
        const double delay = std::atan2(im, re) / (2 * std::numbers::pi * 50) * 48000;
        EXPECT_NEAR(delay, double(kLatency) + 0.5 * 48000 / rate, 0.01) << rate;
    }
}

TEST(BitcrusherQuantiser, FollowsItsLaws)
{
    using enum QuantiserLaw;
    const double muStep = (std::pow(256.0, 0.5) - 1) / 255;
    const struct {
        QuantiserLaw law;
        double bits, in, out;
    } cases[] = {
        {MidTread, 3, 0.1, 0},
        {MidTread, 3, 0.13, 0.25},
        {MidTread, 3, -0.4, -0.5},
        {MidTread, 3, 5, 1},
        {MidTread, 1, 0.6, 1},
        {MidTread, 2.5, 0.4, 1 / std::exp2(1.5)},
        {MidTread, 2.5, 0.6, 2 / std::exp2(1.5)},
        {MidRise, 1, 0.01, 0.5},
        {MidRise, 1, -0.01, -0.5},
        {MidRise, 1, 1, 0.5},
        {MidRise, 3, 0.3, 0.375},
        {MidRise, 3, -1, -0.875},
        {MidRise, 3, 1e-10, 0},
        {MidRise, 1, 0, 0},
        {MuLaw, 2, muStep * 1.1, muStep},
        {MuLaw, 2, -muStep * 1.1, -muStep},
        {MuLaw, 8, 0, 0},
        {MuLaw, 1.6, 1, 1},
        {None, 1, 7.3, 7.3},
    };
    for (const auto& [law, bits, in, out] : cases) {
        const double steps = std::exp2(bits - 1);
        double x = in;
        quantise(law, &x, 1, {&steps, nullptr, 0, 0});
        EXPECT_NEAR(x, out, 1e-12) << in << " at " << bits << " bits, law " << int(law);
    }
}

TEST(BitcrusherQuantiser, DitherKeepsTheMeanAndMakesTheErrorIndependent)
{
    EffectUnderTest<double> fx("Bitcrusher");
    fx.set("rate", 48000).set("bits", 4).set("dither", 100);
    for (const double part : {0.0, 0.2, 0.5, 0.7}) {  // of a step
        const auto y = fx.run(constant<double>(96000, part / 8));
        double mean = 0, power = 0;
        for (std::size_t i = 100; i < y.size(); ++i) mean += y[i];
        mean /= double(y.size() - 100);
        for (std::size_t i = 100; i < y.size(); ++i) power += (y[i] - part / 8) * (y[i] - part / 8);
        EXPECT_NEAR(mean * 8, part, 0.01);
        // Rounding 1/12 and triangular noise 1/6 of a squared step.
        EXPECT_NEAR(power / double(y.size() - 100) * 64, 0.25, 0.01) << part;
    }
}

TYPED_TEST(Bitcrusher, LeavesNothingBehindWhateverTheLaw)
{
    for (int law = 0; law < 3; ++law)
        for (const double rate : {700.0, 11025.0, 47000.0, 48000.0}) {
            EffectUnderTest<TypeParam> fx("Bitcrusher");
            fx.set("quantizer", law).set("rate", rate).set("bits", 1.3).set("jitter", 60);
            fx.set("prefilter", rate < 20000);  // its ringing ends below the lowest step
            fx.run(noise<TypeParam>(240000, 5, 1));
            fx.run(constant<TypeParam>(fx.algorithm().getTailLength(), 0));
            EXPECT_EQ(peak(fx.run(constant<TypeParam>(4800, 0))), 0) << law << ", " << rate;
        }
}

TEST(BitcrusherTail, IsEndlessWithDitherAndCountsClockAndFilters)
{
    EffectUnderTest<float> fx("Bitcrusher");
    fx.set("rate", 1000).prepare();
    const auto tail = [&] { return fx.algorithm().getTailLength(); };
    EXPECT_EQ(tail(), 32 + 64 + 2 * 48u);
    fx.set("prefilter", 1).set("postfilter", 1);
    EXPECT_EQ(tail(), 32 + 64 + 32 * 48u);
    fx.set("rate", 48000);
    EXPECT_EQ(tail(), 32 + 64u);
    fx.set("dither", 1);
    EXPECT_EQ(tail(), VNK::kEndlessTail);
    fx.set("bits", 24);
    EXPECT_EQ(tail(), 32 + 64u);
}

TEST(BitcrusherSwitches, AreHeardAsFadesAndNotAsClicks)
{
    const auto x = sine<double>(9600, 200, 48000, 0.5);
    const struct {
        const char* key;
        float values[2];
    } cases[] = {{"rate", {40000, 48000}},
                 {"bits", {20, 24}},
                 {"quantizer", {0, 2}},
                 {"prefilter", {0, 1}},
                 {"postfilter", {0, 1}}};
    for (const auto& [key, values] : cases) {
        EffectUnderTest<double> fx("Bitcrusher");
        fx.set("rate", 40000).set("bits", 20).run(x);
        for (int turn = 0; turn < 4; ++turn)
            EXPECT_LT(largestStep(fx.set(key, values[turn % 2 == 0]).run(x, 37)),
                      1.2 * largestStep(x))
                << key;
    }
}

}  // namespace
}  // namespace quillworks::test
