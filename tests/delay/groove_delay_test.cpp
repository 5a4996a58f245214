// SPDX-License-Identifier: ISC
// Groove delay: where each tap falls, in place, level and tone, and what its loop keeps.
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> class GrooveDelay : public ::testing::Test {
protected:
    /// No taps, no filters in the loop, no ducking, the echoes alone.
    static EffectUnderTest<T> bare(double rate = 48000, int channels = 2)
    {
        EffectUnderTest<T> fx("Groove Delay", rate, channels);
        fx.set("locut", 20).set("hicut", 16000).set("duck", 0).set("mix", 100).set("feedback", 0);
        for (int i = 0; i < 8; ++i) fx.set("tapon" + std::to_string(i), 0);
        return fx;
    }
    /// A tap that is on.
    static void tap(EffectUnderTest<T>& fx, int i, double step, double level = 0, double pan = 0,
                    double tone = 0)
    {
        const auto n = std::to_string(i);
        fx.set("tapon" + n, 1).set("tapstep" + n, step).set("taplevel" + n, level);
        fx.set("tappan" + n, pan).set("taptone" + n, tone);
    }
};
TYPED_TEST_SUITE(GrooveDelay, Precisions);

TYPED_TEST(GrooveDelay, TapsFallOnTheSwungGridAndTheWholePatternRepeats)
{
    using T = TypeParam;
    // A sixteenth at 120 is 6000 frames.
    const struct {
        double swing, step;
        int at;
    } cases[] = {{50, 3, 18000}, {50, 2.5, 15000},   {54, 3, 18480},    {54, 4, 24000},
                 {75, 1, 9000},  {66.7, 1.5, 10002}, {60, 6.25, 37800}, {75, 1.75, 11250}};
    for (const auto& c : cases) {
        auto fx = this->bare();
        this->tap(fx, 5, c.step);
        fx.set("swing", c.swing).set("length", 7).set("feedback", 50);
        const int loop = int(6000 * (6 + 2 * c.swing / 100) + 0.5);
        const auto y = fx.play({impulse<T>(96000, 10), impulse<T>(96000, 20)}, 1000);
        for (int side = 0; side < 2; ++side) {
            Signal<T> wanted(96000);
            for (int k = 0; k < 2; ++k)
                if (const int at = 10 + 10 * side + c.at + k * loop; at < 96000)
                    wanted[std::size_t(at)] = k ? T(0.5) : T(1);
            EXPECT_EQ(y[std::size_t(side)], wanted) << c.swing << " %, step " << c.step;
        }
        EXPECT_EQ(fx.meter("longestdelay"), std::max(loop, c.at));
    }
}

TYPED_TEST(GrooveDelay, ATapInTheMiddleIsTheDelayedInputBitByBitWhateverTheOthersDid)
{
    using T = TypeParam;
    const Channels<T> x{noise<T>(24000, 1, 0.9), noise<T>(24000, 2, 0.9)};
    for (const int channels : {1, 2, 6}) {
        auto fx = this->bare(48000, channels);
        this->tap(fx, 2, 1);
        this->tap(fx, 7, 2, 6, 50, -70);
        fx.set("swing", 50).prepare(channels);
        Channels<T> all;
        for (int c = 0; c < channels; ++c) all.push_back(x[std::size_t(c % 2)]);
        fx.play(all);
        fx.set("tapon7", 0).play(all);
        const auto y = fx.play(all, 77);
        for (int c = 0; c < channels; ++c)
            for (std::size_t i = 6000; i < 24000; ++i)
                ASSERT_EQ(y[std::size_t(c)][i], all[std::size_t(c)][c < 2 ? i - 6000 : i]) << c;
        EXPECT_NEAR(fx.meter("tappeak2"), db(0.9), 0.1);
        EXPECT_EQ(fx.meter("tappeak7"), -144);
    }
}

TYPED_TEST(GrooveDelay, PlacesKeepThePowerAndTonesTakeWhatTheySay)
{
    using T = TypeParam;
    const auto mono = noise<T>(24000, 3, 0.5);
    for (const double pan : {-100.0, -70.0, -20.0, 35.0, 100.0}) {
        auto fx = this->bare();
        this->tap(fx, 0, 1, 0, pan);
        const auto y = fx.set("swing", 50).play({mono, mono});
        const double l = rms(y[0], 6000), r = rms(y[1], 6000), x = rms(mono, 0, 18000);
        EXPECT_NEAR(db(std::hypot(l, r) / x), 3.01, 0.05) << pan;
        EXPECT_NEAR(std::atan2(r, l), (pan / 100 + 1) * std::numbers::pi / 4, 1e-3) << pan;
        // What is opposite on both sides goes as the tap does to a side, and is stereo within.
        auto side = mono;
        for (T& v : side) v = -v;
        const auto z = fx.play({mono, side});
        EXPECT_NEAR(rms(z[0], 6000) / l, 1 - std::abs(pan) / 100, 2e-3) << pan;
    }
    const struct {
        double tone, frequency, gain;  // Hz, dB
    } tones[] = {{-100, 250, -3.01}, {-100, 1000, -24.1}, {-50, 2121.3, -3.01},
                 {100, 6000, -3.01}, {50, 424.3, -3.01},  {2.5, 30 * 1.1417, -4.26}};
    for (const auto& c : tones) {
        auto fx = this->bare();
        this->tap(fx, 3, 1, 0, 0, c.tone);
        const auto x = sine<T>(96000, c.frequency, 48000, 0.5);
        const auto y = fx.set("swing", 50).play({x, x})[1];
        EXPECT_NEAR(db(amplitudeAt(y, c.frequency, 48000, 48000, 96000) / 0.5), c.gain, 0.15)
            << c.tone << " at " << c.frequency;
    }
}

TYPED_TEST(GrooveDelay, AFrozenPatternRepeatsBitByBit)
{
    using T = TypeParam;
    EffectUnderTest<T> fx("Groove Delay");
    fx.set("length", 3).set("swing", 50).set("duck", 0).set("mix", 100);
    fx.play({noise<T>(36000, 1, 0.3), noise<T>(36000, 2, 0.3)});
    fx.set("freeze", 1).play({Signal<T>(120000), Signal<T>(120000)}, 96);
    EXPECT_EQ(fx.meter("frozen"), 1);
    EXPECT_EQ(fx.algorithm().getTailLength(), VNK::kEndlessTail);
    const auto y = fx.play({noise<T>(90000, 3), noise<T>(90000, 4)}, 480);
    EXPECT_GT(rms(y[0]), 0.01);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 18000; i < y[c].size(); ++i) ASSERT_EQ(y[c][i], y[c][i - 18000]) << i;
}

TYPED_TEST(GrooveDelay, NoSettingRunsAway)
{
    using T = TypeParam;
    double loudest[2] = {};
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        const bool isHard = seed % 2 != 0;
        auto fx = this->bare(seed % 3 ? 48000 : 8000);
        this->tap(fx, 1, 1, 0, isHard ? 100 : 0);
        fx.set("feedback", 100).set("sync", 0).prepare(2, 480);
        std::mt19937 random(seed);
        auto x = Channels<T>{noise<T>(24000, seed, 8), noise<T>(24000, seed + 50, 8)};
        for (std::size_t i = 0; i < 6000; ++i) x[0][i] = i / 50 % 2 ? T(8) : T(-8);
        x[1][7000] = std::numeric_limits<T>::quiet_NaN();
        x[0][7100] = T(1e30);
        auto y = x;
        for (int at = 0; at < 24000; at += 480) {
            const char* const moved[] = {"steptime", "swing", "length",
                                         "locut",    "hicut", "tapstep1"};
            const char* const key = moved[random() % std::size(moved)];
            const auto place = std::uniform_real_distribution<float>(0, 1)(random);
            fx.set(key, fx.component().fromNormalized(fx.indexOf(key), place * place));
            fx.processBlock(x, y, at, 480);
        }
        for (const auto& out : y) {
            ASSERT_TRUE(isFinite(out)) << seed;
            loudest[isHard] = std::max(loudest[isHard], peak(out));
        }
    }
    EXPECT_LE(loudest[0], 6);
    EXPECT_LE(loudest[1], 8.5);
    EXPECT_GT(loudest[1], 1.5) << "else nothing was tried";
}

TYPED_TEST(GrooveDelay, AutomationOfATapDoesNotClick)
{
    using T = TypeParam;
    for (const char* key : {"tapon0", "taplevel0", "tappan0", "taptone0"}) {
        auto fx = this->bare();
        this->tap(fx, 0, 0.25, 0, 20, 10);
        fx.prepare(2);
        auto y = fx.runWhileSwitching(key, sine<T>(4800, 440, 48000, 0.25));
        y.erase(y.begin(), y.begin() + 2000);
        EXPECT_LT(largestStep(y), 0.25 * 1.42 * 2 * std::numbers::pi * 440 / 48000 * 1.3) << key;
    }
}

}  // namespace
}  // namespace quillworks::test
