// SPDX-License-Identifier: ISC
// Beat delay: where each echo falls, what the loop keeps, and how far it steps back.
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> class BeatDelay : public ::testing::Test {
protected:
    /// The loop alone: no filters, no ducking, the full width, the echoes alone.
    static EffectUnderTest<T> bare(double rate = 48000, int channels = 2)
    {
        EffectUnderTest<T> fx("Beat Delay", rate, channels);
        fx.set("locut", 20).set("hicut", 16000).set("duck", 0).set("width", 100).set("mix", 100);
        return fx;
    }
};
TYPED_TEST_SUITE(BeatDelay, Precisions);

TYPED_TEST(BeatDelay, EachRoutingPutsEveryEchoOnItsSampleAndSide)
{
    using T = TypeParam;
    constexpr int kLeft = 12000, kRight = 18000;  // 1/8 and 1/8 dotted at 120
    struct Echo {
        int channel, at;
        double height;
    };
    const std::vector<Echo> echoes[] = {
        {{0, kLeft, 1}, {0, 2 * kLeft, .5}, {0, 3 * kLeft, .25}},
        {{0, kLeft, 1}, {1, kLeft + kRight, .5}, {0, 2 * kLeft + kRight, .25}},
        {{0, kLeft, .5}, {1, kLeft + kRight, .25}, {0, 2 * kLeft + kRight, .125}},
        {{1, kRight, .5}, {0, kRight + kLeft, .25}},
    };
    for (int routing = 0; routing < 4; ++routing) {
        auto fx = this->bare();
        fx.set("beatsnu", 0.25).set("beatsright", 0.375).set("link", 0).set("feedback", 50);
        fx.set("routing", routing);
        const auto y = fx.play({impulse<T>(45000, 10), Signal<T>(45000)}, 1000);
        Channels<T> wanted(2, Signal<T>(45000));
        for (const auto& e : echoes[routing])
            wanted[std::size_t(e.channel)][std::size_t(e.at + 10)] = T(e.height);
        EXPECT_EQ(y, wanted) << routing;
        EXPECT_EQ(fx.meter("longestdelay"), kRight);
    }
}

TYPED_TEST(BeatDelay, TimesFollowTempoOffsetAndLinkAndSyncKeepsWhatIsHeard)
{
    using T = TypeParam;
    const auto delayOf = [](EffectUnderTest<T>& fx) {
        fx.play({Signal<T>(32), Signal<T>(32)});
        return fx.meter("longestdelay");
    };
    auto fx = this->bare(44100);
    EXPECT_EQ(delayOf(fx.tempo(90).set("beatsnu", 2. / 3)), std::round(44100 * 2. / 3 * 120 / 90));
    fx.set("sync", 0);
    EXPECT_NEAR(fx.get("time"), 888.889, 0.01);
    EXPECT_NEAR(fx.get("timeright"), 666.667, 0.01) << "though it is linked";
    fx.set("time", 511).set("sync", 1);
    EXPECT_FLOAT_EQ(fx.get("beatsnu"), 0.375f) << "the nearest note";
    auto late = this->bare();
    EXPECT_EQ(delayOf(late.set("offset", -50).set("beatsnu", 0.0208333)), 48) << "1 ms at least";
    auto slow = this->bare();
    // 8 s fit, and so do 4 s 50 ms: what does not fit stays on the beat, and with its offset.
    EXPECT_EQ(delayOf(slow.set("offset", 50).set("beatsnu", 8)), 48000 * 4.05);
}

TYPED_TEST(BeatDelay, AFrozenLoopRepeatsBitByBitRoundItsWay)
{
    using T = TypeParam;
    const Channels<T> word{noise<T>(24000, 1, 0.3), noise<T>(24000, 2, 0.3)};
    const Channels<T> rest{noise<T>(72000, 3, 0.3), noise<T>(72000, 4, 0.3)};
    for (int routing = 0; routing < 4; ++routing) {
        EffectUnderTest<T> fx("Beat Delay");
        fx.set("routing", routing).set("duck", 0).set("mix", 100);
        fx.set("link", 0).set("beatsnu", 0.125).set("beatsright", 0.1666667);
        fx.play(word);
        fx.set("freeze", 1).play({Signal<T>(9600), Signal<T>(9600)}, 96);
        EXPECT_EQ(fx.meter("frozen"), 1);
        EXPECT_EQ(fx.algorithm().getTailLength(), VNK::kEndlessTail);
        const auto y = fx.play(rest, 480);
        EXPECT_GT(rms(y[0]), 0.01);
        // Each side by itself, or both together: the width mixes them.
        const std::size_t round = routing == 0 ? 24000 : 14000;
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = round; i < y[c].size(); ++i)
                ASSERT_EQ(y[c][i], y[c][i - round]) << routing << " " << i;
        fx.set("freeze", 0).play(word);
        EXPECT_EQ(fx.meter("frozen"), 0);
    }
}

TYPED_TEST(BeatDelay, DuckingHangsOnRatiosAloneAndLetsTheEchoComeBack)
{
    using T = TypeParam;
    double depth[2];
    for (int quiet = 0; quiet < 2; ++quiet) {
        EffectUnderTest<T> fx("Beat Delay");
        fx.set("duck", 12).set("feedback", 0).set("routing", 0).set("locut", 20);
        fx.set("hicut", 16000).set("beatsnu", 0.25);
        const double height = quiet ? 0.5 * std::pow(10, -1.5) : 0.5;
        const auto x = noise<T>(96000, 1, height);
        fx.play({x, x});
        depth[quiet] = fx.meter("duckgain");
        const auto after = fx.play({Signal<T>(24000), Signal<T>(24000)});
        EXPECT_GT(fx.meter("duckgain"), -1.5);
        EXPECT_GT(peak(after[0]), 0.4 * height);
    }
    EXPECT_NEAR(depth[0], -11, 1);
    EXPECT_NEAR(depth[1], depth[0], 0.01);
}

}  // namespace
}  // namespace quillworks::test
