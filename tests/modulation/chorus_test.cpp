// SPDX-License-Identifier: ISC
// Detune in cents, voices that change neither the level nor the bass, and the same chance in every
// rendering.
#include "tests/support/song.h"

namespace quillworks::test {
namespace {

constexpr const char* kName = "Chorus";
constexpr double kRate = 48000;

/// One voice without filters or chance, alone.
template <typename T> EffectUnderTest<T> voice(double detune, double hertz)
{
    EffectUnderTest<T> fx(kName);
    fx.set("voices", 1).set("detune", detune).set("lfotime", hertz).set("drift", 0);
    fx.set("delay", 40).set("lowcut", 20).set("hicut", 20000).set("mix", 100);
    return fx;
}

TEST(ChorusVoice, BendsThePitchByTheCentsWhateverTheSpeed)
{
    // A sine and a cosine in the same voice: phase and envelope at every frame.
    const double cent = std::exp2(1 / 1200.);
    for (const double hertz : {0.2, 1., 5.}) {
        auto fx = voice<double>(20, hertz);
        const auto frames = std::size_t(kRate * std::max(2.2, 1.2 / hertz));
        const auto y = fx.play({sine<double>(frames, 1000, kRate),
                                sine<double>(frames, 1000, kRate, 1, std::numbers::pi / 2)});
        double lowest = 1e9, highest = 0, least = 9, most = 0;
        constexpr std::size_t kStep = 48;  // a period
        for (std::size_t i = 9600; i + kStep < frames; ++i) {
            const auto phase = [&](std::size_t at) { return std::atan2(y[0][at], y[1][at]); };
            const double turn = std::remainder(phase(i + kStep) - phase(i), 2 * std::numbers::pi);
            const double f = 1000 * (1 + turn / (2 * std::numbers::pi));
            lowest = std::min(lowest, f), highest = std::max(highest, f);
            const double envelope = std::hypot(y[0][i], y[1][i]);
            least = std::min(least, envelope), most = std::max(most, envelope);
        }
        EXPECT_NEAR(std::log(highest / 1000) / std::log(cent), 20, 0.3) << hertz;
        EXPECT_NEAR(std::log(lowest / 1000) / std::log(cent), -20.23, 0.3) << hertz;
        EXPECT_LT(db(most / least), 0.02) << hertz;
        EXPECT_NEAR(fx.meter("effectivedetune"), 20, 0.01);
    }
    // Where the delay has no room, less is left, and it is said.
    auto narrow = voice<double>(50, 0.1);
    narrow.set("delay", 2).run(noise<double>(4800));
    EXPECT_LT(narrow.meter("effectivedetune"), 5);
    EXPECT_GT(narrow.meter("effectivedetune"), 0.5);
}

TEST(ChorusVoices, KeepTheLevelHoweverManyAndWhereverTheyStand)
{
    const auto x = noise<float>(8 * 48000);
    const double level = rms(x);
    double lowest = 9, highest = -9;
    for (int voices = 1; voices <= 8; ++voices) {
        EffectUnderTest<float> fx(kName);
        fx.set("voices", voices).set("lowcut", 20).set("hicut", 20000).set("mix", 100);
        fx.set("spread", voices % 2 ? 100 : 60);
        const auto y = fx.play({x, x});
        const double power = (std::pow(rms(y[0], 9600), 2) + std::pow(rms(y[1], 9600), 2)) / 2;
        const double change = db(std::sqrt(power) / level);
        lowest = std::min(lowest, change), highest = std::max(highest, change);
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(fx.meter("voicedelay" + std::to_string(i)) > 0, i < voices) << i;
    }
    EXPECT_GT(lowest, -0.5);
    EXPECT_LT(highest, 0.5);
    RecordProperty("lowest", std::to_string(lowest));
    RecordProperty("highest", std::to_string(highest));
}

template <typename T> class Chorus : public ::testing::Test {};
TYPED_TEST_SUITE(Chorus, Precisions);

TYPED_TEST(Chorus, LeavesTheBassDryAtItsLevel)
{
    double worst = 0;
    for (const double cut : {200., 400.})
        for (const int voices : {1, 3, 8})
            for (const double mix : {30., 100.}) {
                EffectUnderTest<TypeParam> fx(kName);
                fx.set("voices", voices).set("lowcut", cut).set("mix", mix).set("detune", 30);
                const double f = cut / 4;
                const auto s = sine<TypeParam>(96000, f, kRate);
                const auto y = fx.play({s, s});
                for (const auto& channel : y)
                    for (std::size_t at = 24000; at + 4800 <= 96000; at += 4800)
                        worst = std::max(
                            worst, std::abs(db(rms(channel, at, at + 4800) / std::sqrt(0.5))));
            }
    EXPECT_LT(worst, 0.5);
    this->RecordProperty("worstDb", std::to_string(worst));

    // Of the dry sound above, 40 dB are gone in three and a third octaves; then come the voices.
    EffectUnderTest<TypeParam> fx(kName);
    fx.set("mix", 100).set("lowcut", 200);
    const auto y = fx.run(sine<TypeParam>(480, 2000, kRate));
    EXPECT_NEAR(db(amplitudeAt(y, 2000, kRate, 240, 480)), -40, 1);
    const auto x = noise<TypeParam>(9600);
    fx.set("mix", 0).prepare();
    EXPECT_EQ(fx.run(x), x);
}

TYPED_TEST(Chorus, SoundsAlikeFromAnyPlaceAndInAnyBlocks)
{
    const Song song{.tempo = 133.7};
    const auto x = noise<TypeParam>(5 * 48000);
    const auto run = [&](std::int64_t from, int block, bool moves) {
        EffectUnderTest<TypeParam> fx(kName);
        fx.set("lfosync", 1).set("lfobeatsnu", 1).set("wave", 4).set("detune", 50);
        fx.set("drift", 100).set("voices", 5);
        const Signal<TypeParam> rest(x.begin() + from, x.end());
        return song.play<TypeParam>(fx, from + 1000000, int(rest.size()), block,
                                    [&](int at) {
                                        if (moves && at % 8000 == 0)
                                            fx.set("voices", 1 + at / 8000 % 8).set("stereo", 90);
                                        if (moves && at % 24000 == 0)
                                            fx.set("lowcut", at % 48000 ? 20 : 300);
                                    },
                                    {rest, rest});
    };
    const auto whole = run(0, 1000, false), moved = run(0, 1000, true);
    for (const int block : {1, 8, 40}) EXPECT_EQ(run(0, block, true), moved) << block;
    const auto part = run(48000, 512, false);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 96000; i < part[c].size(); ++i)
            ASSERT_NEAR(part[c][i], whole[c][i + 48000], 1e-3) << i;
}

TEST(ChorusChanges, GoOverWithoutAStep)
{
    const auto x = sine<double>(48000, 300, kRate);
    for (const char* key : {"voices", "spread", "lfosync", "wave", "stereo", "lowcut", "drift"})
        for (const int voices : {1, 3}) {
            EffectUnderTest<double> fx(kName, kRate, 2);
            fx.set("voices", voices).set("lfotime", 2).set("stereo", 90).set("mix", 100);
            const auto y = fx.prepare().runWhileSwitching(key, x);
            EXPECT_LT(largestStep(y), 3.5 * largestStep(x)) << key << ", " << voices;
        }
}

}  // namespace
}  // namespace quillworks::test
