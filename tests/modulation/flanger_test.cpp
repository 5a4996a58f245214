// SPDX-License-Identifier: ISC
// Combs as deep in the treble as in the bass, silence at zero, a loop in tune, and the same song
// from any place.
#include <complex>

#include "tests/support/song.h"

namespace quillworks::test {
namespace {

constexpr const char* kName = "Flanger";

template <typename T> class Flanger : public ::testing::Test {
protected:
    /// Nothing moves and nothing returns: a plain comb.
    static EffectUnderTest<T> comb(double delay, double rate = 48000)
    {
        EffectUnderTest<T> fx(kName, rate);
        fx.set("delay", delay).set("depth", 0).set("feedback", 0).set("damp", 20000);
        fx.set("stereo", 0).set("mix", 50);
        return fx;
    }
};
TYPED_TEST_SUITE(Flanger, Precisions);

TYPED_TEST(Flanger, HasNotchesAsDeepAtFifteenKilohertzAsAtOne)
{
    auto fx = this->comb(65.5 / 48);
    const double samples = double(fx.get("delay")) * 48;
    for (const double wanted : {1000., 5000., 10000., 15000.}) {
        const double f = (std::floor(wanted * samples / 48000) + 0.5) * 48000 / samples;
        const auto y = fx.run(sine<TypeParam>(24000, f, 48000));
        const double notch = db(rms(y, 12000) / std::sqrt(0.5));
        EXPECT_LT(notch, -80) << f << " Hz";
        this->RecordProperty("notch" + std::to_string(int(wanted)), std::to_string(notch));
    }
}

TYPED_TEST(Flanger, ReadsBetweenSamplesWithoutRipple)
{
    auto fx = this->comb(3);
    fx.set("depth", 1).set("lfotime", 1).set("mix", 100);
    for (const double f : {1000., 5000., 10000., 15000., 18000.}) {
        // A sine and a cosine on one delay: the envelope at every frame.
        const auto y = fx.play({sine<TypeParam>(72000, f, 48000),
                                sine<TypeParam>(72000, f, 48000, 1, std::numbers::pi / 2)});
        double least = 9, most = 0;
        for (std::size_t i = 24000; i < 72000; ++i) {
            const double envelope = std::hypot(double(y[0][i]), double(y[1][i]));
            least = std::min(least, envelope), most = std::max(most, envelope);
        }
        EXPECT_LT(db(most / least), 0.02) << f << " Hz";
        this->RecordProperty("ripple" + std::to_string(int(f)), std::to_string(db(most / least)));
    }
}

TYPED_TEST(Flanger, VanishesWhereTheCopyMeetsTheSound)
{
    const auto x = noise<TypeParam>(5 * 48000, 1, 1);
    auto fx = this->comb(0);
    fx.set("thruzero", 1).set("invert", 1);
    EXPECT_EQ(peak(fx.run(x)), 0) << "nothing is left, however loud";
    EXPECT_EQ(fx.algorithm().getLatency(), 253u);

    fx.set("depth", 1).set("wave", 0).set("lfotime", 0.2).prepare();
    const auto y = fx.run(x);
    double deepest = 1;
    for (std::size_t i = 480; i + 48 <= y.size(); i += 48)
        deepest = std::min(deepest, rms(y, i, i + 48));
    EXPECT_LT(db(deepest / rms(x)), -36);

    // The dry signal is late by what is reported, and untouched.
    fx.set("mix", 0).prepare();
    const auto dry = fx.run(x);
    for (std::size_t i = 253; i < x.size(); ++i) ASSERT_EQ(dry[i], x[i - 253]) << i;
}

/// The frequency near `f` at which the Fourier sum of x is largest.
double peakNear(const Signal<double>& x, double f, double rate)
{
    const auto magnitude = [&](double frequency) {
        const std::complex<double> turn = std::polar(1.0, -2 * std::numbers::pi * frequency / rate);
        std::complex<double> sum = 0;
        for (auto i = x.size(); i-- > 0;) sum = sum * turn + x[i];
        return std::abs(sum);
    };
    double low = f * 0.985, high = f * 1.015;
    while (high - low > f * 1e-5) {
        const double third = (high - low) / 3;
        (magnitude(low + third) < magnitude(high - third) ? low : high) +=
            magnitude(low + third) < magnitude(high - third) ? third : -third;
    }
    return (low + high) / 2;
}

TEST(FlangerLoop, RingsInTuneWithTheCombHoweverItIsDamped)
{
    double worst = 0;
    for (const double rate : {44100., 96000.})
        for (const double damp : {4000., 12000.})
            for (const bool throughZero : {false, true}) {
                EffectUnderTest<double> fx(kName, rate);
                fx.set("delay", 1000 / 220.).set("depth", 0).set("feedback", 92).set("damp", damp);
                fx.set("thruzero", throughZero).set("mix", 100);
                const double f = 1000 / double(fx.get("delay"));
                const auto y = fx.run(impulse<double>(std::size_t(rate / 2)));
                for (int partial = 1; partial <= 6; ++partial) {
                    const double cents =
                        1200 * std::log2(peakNear(y, partial * f, rate) / (partial * f));
                    EXPECT_LT(std::abs(cents), 2) << partial << " at " << rate << ", " << damp;
                    worst = std::max(worst, std::abs(cents));
                }
            }
    RecordProperty("worstCents", std::to_string(worst));
}

TEST(FlangerLoop, NeverSwellsBeyondItsLimit)
{
    for (const bool throughZero : {false, true})
        for (const double feedback : {97., -97.}) {
            EffectUnderTest<float> fx(kName);
            fx.set("delay", 5).set("depth", 5).set("lfotime", 20).set("thruzero", throughZero);
            fx.set("feedback", feedback).set("damp", 20000);
            EXPECT_LT(peak(fx.run(noise<float>(96000, 1, 1))), 8);
        }
}

TYPED_TEST(Flanger, SoundsAlikeFromAnyPlaceAndInAnyBlocks)
{
    const Song song{.tempo = 133.7};
    const auto x = noise<TypeParam>(6 * 48000);
    const auto run = [&](std::int64_t from, int block, bool throughZero, bool moves) {
        EffectUnderTest<TypeParam> fx(kName);
        fx.set("lfosync", 1).set("lfobeatsnu", 1).set("wave", 4).set("depth", 5).set("delay", 3);
        fx.set("feedback", 60).set("thruzero", throughZero);
        const Signal<TypeParam> rest(x.begin() + from, x.end());
        return song.play<TypeParam>(
            fx, from + 1000000, int(rest.size()), block,
            [&](int at) {
                if (moves && at % 8000 == 0)
                    fx.set("thruzero", at / 8000 % 2).set("damp", at % 24000 ? 20000 : 3000);
            },
            {rest, rest});
    };
    for (const bool throughZero : {false, true}) {
        const auto whole = run(0, 1000, throughZero, false), moved = run(0, 1000, false, true);
        for (const int block : {1, 8, 40}) EXPECT_EQ(run(0, block, false, true), moved) << block;
        const auto part = run(48000, 512, throughZero, false);
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = 96000; i < part[c].size(); ++i)
                ASSERT_NEAR(part[c][i], whole[c][i + 48000], 1e-3) << i;
    }
}

TEST(FlangerChanges, GoOverWithoutAStep)
{
    const auto x = sine<double>(96000, 200, 48000);
    for (const char* key :
         {"thruzero", "invert", "lfosync", "wave", "feedback", "damp", "stereo"}) {
        EffectUnderTest<double> fx(kName, 48000, 2);
        fx.set("feedback", 0).set("lfotime", 2);
        const auto y = fx.prepare().runWhileSwitching(key, x);
        EXPECT_LT(largestStep(y), 3 * largestStep(x)) << key;
    }
}

TEST(FlangerReadings, TellDelayAndPitch)
{
    EffectUnderTest<float> fx(kName);
    fx.set("delay", 4).set("depth", 0).prepare(2).play(Channels<float>(2, noise<float>(4800)));
    EXPECT_NEAR(fx.meter("delayleft"), 4, 1e-4);
    for (int i = 0; i < 2; ++i) {  // left and right come first
        char text[64];
        fx.component().meterToText(i, 4, text, sizeof text);
        EXPECT_STREQ(text, "4.000 ms, 250 Hz, B3 +21 cent");
    }
}

}  // namespace
}  // namespace quillworks::test
