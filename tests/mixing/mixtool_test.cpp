// SPDX-License-Identifier: ISC
// The mix tool against the matrix it stands for.
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> class MixTool : public ::testing::Test {
protected:
    EffectUnderTest<T> fx{"Mixtool"};
    Channels<T> stereo{noise<T>(4800, 1), noise<T>(4800, 2)};
};
TYPED_TEST_SUITE(MixTool, Precisions);

TYPED_TEST(MixTool, RoutingIsTheMatrixOfTheSettings)
{
    struct Case {
        bool midSide, swap, left, right;
        double gainDb;
        double m[2][2];  // output = m * input
    };
    const double g = std::pow(10.0, -6.0 / 20);
    const Case cases[] = {
        {false, false, false, false, 0, {{1, 0}, {0, 1}}},
        {false, false, true, false, 0, {{-1, 0}, {0, 1}}},
        {false, false, false, true, -6, {{g, 0}, {0, -g}}},
        {false, true, false, false, 0, {{0, 1}, {1, 0}}},
        {false, true, true, false, 0, {{0, 1}, {-1, 0}}},   // the polarity goes with the signal
        {false, true, true, false, -6, {{0, -g}, {g, 0}}},  // with gain it stays with the place
        {true, false, false, false, 0, {{.5, .5}, {.5, -.5}}},
        {true, true, false, false, -6, {{g / 2, g / 2}, {-g / 2, g / 2}}},
        {true, false, false, true, 0, {{.5, -.5}, {.5, .5}}},
    };
    for (const auto& c : cases) {
        EffectUnderTest<TypeParam> fx("Mixtool");
        fx.set("mstransform", c.midSide).set("channelflip", c.swap).set("gain", c.gainDb);
        fx.set("phaseflipleft", c.left).set("phaseflipright", c.right);
        const auto y = fx.play(this->stereo);
        for (std::size_t i = 0; i < y[0].size(); ++i)
            for (std::size_t o = 0; o < 2; ++o)
                ASSERT_NEAR(y[o][i],
                            c.m[o][0] * this->stereo[0][i] + c.m[o][1] * this->stereo[1][i], 1e-6)
                    << "case " << &c - cases << " frame " << i;
    }
}

TYPED_TEST(MixTool, NeutralSettingsAreTheInputBitForBit)
{
    EXPECT_EQ(this->fx.play(this->stereo, 100), this->stereo);
    this->fx.set("channelflip", 1);
    const auto once = this->fx.play(this->stereo);
    EXPECT_EQ(once, (Channels<TypeParam>{this->stereo[1], this->stereo[0]}));
    EXPECT_EQ(this->fx.play(once), this->stereo);
}

TYPED_TEST(MixTool, GainGlidesInEqualDecibelStepsAndEndsExactly)
{
    const auto ones = constant<TypeParam>(4800, 1);
    this->fx.prepare(1, 160);  // 10 steps of 16 samples
    this->fx.run(ones, 160);
    const auto y = this->fx.set("gain", -20).run(ones, 160);
    for (std::size_t i = 0; i < 160; ++i)
        ASSERT_NEAR(db(y[i]), -2.0 * double(i / 16 + 1), 1e-4) << i;
    EXPECT_EQ(y[200], static_cast<TypeParam>(std::pow(10.f, -1.f)));
    const auto back = this->fx.set("gain", 0).run(ones, 160);
    EXPECT_LT(back[143], 1);
    EXPECT_EQ(back[180], 1);
}

TYPED_TEST(MixTool, ShortestGlideIsTwoStepsAndLongestFiveHundredTwelve)
{
    for (const auto& [block, steps] : {std::pair{32, 2}, std::pair{16384, 512}}) {
        EffectUnderTest<TypeParam> fx("Mixtool");
        fx.prepare(1, block).run(constant<TypeParam>(16, 1), 16);
        fx.set("gain", -12);
        const auto y = fx.run(constant<TypeParam>(20000, 1), block);
        const auto end = static_cast<std::size_t>(steps) * 16;
        EXPECT_GT(y[end - 17], y[end + 16] * 1.00001) << block;
        EXPECT_EQ(y[end + 16], y.back()) << block;
    }
}

TYPED_TEST(MixTool, PolarityWaitsForTheChannelsZeroCrossing)
{
    Signal<TypeParam> x(100, TypeParam(0.5));
    std::fill(x.begin() + 41, x.begin() + 60, TypeParam(-0.25));
    this->fx.prepare(2).play({x, x});
    this->fx.set("phaseflipleft", 1);
    const auto y = this->fx.play({x, x}, 7);
    for (std::size_t i = 0; i < 100; ++i) {
        ASSERT_EQ(y[0][i], i < 41 ? x[i] : -x[i]) << i;
        ASSERT_EQ(y[1][i], x[i]) << i;
    }
    const Signal<TypeParam> silence(100, TypeParam(0));
    this->fx.set("phaseflipright", 1);
    EXPECT_EQ(this->fx.play({silence, silence})[1], silence);
    EXPECT_EQ(this->fx.play({x, x})[1][10], x[10]);  // silence counts as positive: still waiting
}

TYPED_TEST(MixTool, PerChannelPolarityCountsOnlyBeyondStereo)
{
    this->fx.set("phaseflip1", 1);
    EXPECT_EQ(this->fx.play(this->stereo), this->stereo);
    EffectUnderTest<TypeParam> surround("Mixtool");
    const auto x = noise<TypeParam>(500);
    const auto y = surround.set("phaseflip1", 1).play({x, x, x});
    EXPECT_EQ(y[0], x);
    EXPECT_EQ(y[1][200], -x[200]);
}

TYPED_TEST(MixTool, AMutedChannelIsSilentWhateverComes)
{
    auto x = constant<TypeParam>(960, 1);
    x[100] = TypeParam(NAN);
    x[200] = TypeParam(INFINITY);
    const auto y = this->fx.set("channelmute1", 1).play({constant<TypeParam>(960, 1), x}, 480);
    EXPECT_EQ(peak(y[1]), 0);
    EXPECT_TRUE(isFinite(y[1]));
}

TYPED_TEST(MixTool, SoloFadesTheOthersAndSoloingAllStartsOver)
{
    const Channels<TypeParam> ones(2, constant<TypeParam>(9600, 1));
    this->fx.prepare(2, 480).set("channelmute1", 1).set("channelsolo1", 1);
    auto y = this->fx.play(ones, 480);  // in force from the first sample: nothing fades
    EXPECT_EQ(y[0][0], 0);
    EXPECT_EQ(y[1][0], 1);  // solo counts before mute
    this->fx.set("channelsolo1", 0);
    y = this->fx.play(ones, 480);
    EXPECT_EQ(y[0][9000], 1);
    EXPECT_EQ(y[1][9000], 0);  // the user's mute again
    EXPECT_GT(y[1][100], 0);   // by a fade
    this->fx.set("channelsolo0", 1).set("channelsolo1", 1);
    for (const char* key : {"channelsolo0", "channelsolo1", "channelmute0", "channelmute1"})
        EXPECT_EQ(this->fx.get(key), 0) << key;
    y = this->fx.play(ones, 480);
    EXPECT_EQ(y[0][9000], 1);
    EXPECT_EQ(y[1][9000], 1);
}

TYPED_TEST(MixTool, PanelFollowsAStateWhoseSolosMeetTheLayout)
{
    EffectUnderTest<TypeParam> six("Mixtool");
    six.prepare(6).set("channelsolo0", 1).set("channelsolo1", 1).set("channelmute1", 1);
    VNK::StringSink state;
    ASSERT_TRUE(six.component().saveState(state));
    const auto load = [&](auto& fx) {
        ASSERT_TRUE(fx.component().loadState(state.text().data(), state.text().size()));
    };
    const auto x = Channels<TypeParam>(2, constant<TypeParam>(480, 1));
    EffectUnderTest<TypeParam> before("Mixtool"), after("Mixtool");
    load(before);
    EXPECT_EQ(before.get("channelsolo1"), 1) << "nobody knows the layout yet";
    before.prepare(2);
    after.prepare(2);
    load(after);
    for (auto* fx : {&before, &after}) {
        for (const char* key : {"channelsolo0", "channelsolo1", "channelmute1"})
            EXPECT_EQ(fx->get(key), 0) << key;
        EXPECT_EQ(fx->play(x), x);
    }
    load(six);
    EXPECT_EQ(six.get("channelsolo1"), 1);
}

TYPED_TEST(MixTool, SoloMovesFromOneChannelToAnotherWithinABlock)
{
    const Channels<TypeParam> ones(2, constant<TypeParam>(9600, 1));
    this->fx.prepare(2, 480).set("channelmute0", 1).set("channelsolo1", 1).play(ones, 480);
    this->fx.set("channelsolo1", 0).set("channelsolo0", 1);
    const auto y = this->fx.play(ones, 480);
    EXPECT_EQ(y[0][9000], 1);
    EXPECT_EQ(y[1][9000], 0);
    EXPECT_EQ(this->fx.set("channelsolo0", 0).play(ones, 480)[0][9000], 0) << "still muted";
}

TYPED_TEST(MixTool, RestoredSurroundStateKeepsThePolarityOfLeftAndRight)
{
    const auto x = noise<TypeParam>(500);
    EffectUnderTest<TypeParam> source("Mixtool"), target("Mixtool");
    VNK::StringSink state;
    source.set("phaseflipleft", 1).set("phaseflip1", 1).component().saveState(state);
    ASSERT_TRUE(target.component().loadState(state.text().data(), state.text().size()));
    const auto y = target.play({x, x, x});
    EXPECT_EQ(y[0][200], -x[200]);
    EXPECT_EQ(y[1][200], -x[200]);
    EXPECT_EQ(y[2], x);
}

TYPED_TEST(MixTool, BothSwitchesOfASurroundChannelsPolarityGoTogether)
{
    const auto x = noise<TypeParam>(500);
    EffectUnderTest<TypeParam> fx("Mixtool");
    fx.prepare(3).set("phaseflipleft", 1);
    EXPECT_EQ(fx.get("phaseflip0"), 1);
    EXPECT_EQ(fx.set("phaseflip0", 0).get("phaseflipleft"), 0);
    EXPECT_EQ(fx.set("phaseflip1", 1).get("phaseflipright"), 1);
    EXPECT_EQ(fx.get("phaseflipleft"), 0);
    const auto y = fx.play({x, x, x});
    EXPECT_EQ(y[0], x);
    EXPECT_EQ(y[1][200], -x[200]);
}

TYPED_TEST(MixTool, SwappedPolarityHoldsWhileTheGainGlidesThroughUnity)
{
    const auto ones = constant<TypeParam>(160, 1);
    this->fx.prepare(2, 160).set("channelflip", 1).set("phaseflipleft", 1).set("gain", -10);
    this->fx.play({ones, ones}, 160);
    const auto y = this->fx.set("gain", 10).play({ones, ones}, 160);
    for (std::size_t i = 0; i < 160; ++i) {
        ASSERT_LT(y[0][i], 0) << i;
        ASSERT_GT(y[1][i], 0) << i;
    }
}

TYPED_TEST(MixTool, DcBlockerTakesTheOffsetAndLeavesTheBass)
{
    EffectUnderTest<TypeParam> fx("Mixtool");
    fx.set("dcblock", 1);
    auto y = fx.run(constant<TypeParam>(48000, 1));
    EXPECT_LT(std::abs(y[static_cast<std::size_t>(0.37 * 48000)]), 0.001);
    y = fx.run(sine<TypeParam>(96000, 20, 48000));
    EXPECT_NEAR(db(amplitudeAt(y, 20, 48000, 48000, 96000)), -0.10, 0.01);
    y = fx.run(sine<TypeParam>(96000, 1000, 48000));
    EXPECT_NEAR(db(amplitudeAt(y, 1000, 48000, 48000, 96000)), 0, 0.001);

    auto x = constant<TypeParam>(48000, 0);
    x[100] = TypeParam(1e30);
    y = fx.run(x);
    y.erase(y.begin(), y.begin() + 101);
    EXPECT_LT(peak(y), 1) << "an absurd sample rings";
}

TEST(MixTool, MeasuresEachChannelWhileAnEditorLooks)
{
    EffectUnderTest<float> fx("Mixtool");
    fx.set("channellevel1", -6.0206);
    fx.prepare(2);
    fx.play({constant<float>(4800, 0.5), constant<float>(4800, 0.5)});
    EXPECT_EQ(fx.meter("outlevel0"), 0) << "nobody looks";
    fx.component().setEditorOpen(true);
    fx.play({constant<float>(4800, 0.5), constant<float>(4800, 0.5)});
    EXPECT_NEAR(fx.meter("outlevel0"), 0.5, 1e-3);
    EXPECT_NEAR(fx.meter("outlevel1"), 0.25, 1e-3);
}

}  // namespace
}  // namespace quillworks::test
