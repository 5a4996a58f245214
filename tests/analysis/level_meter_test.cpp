// SPDX-License-Identifier: ISC
// The level meter's channel readings and its own loudness law.
#include "analysis/channel_meter.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr auto kInfinity = std::numeric_limits<double>::infinity();
constexpr auto kNaN = std::numeric_limits<double>::quiet_NaN();

template <typename T> class LevelMeter : public ::testing::Test {
protected:
    EffectUnderTest<T> fx{"Level Meter"};

    /// The same signal in `channels` channels.
    void play(const Signal<T>& x, std::size_t channels = 1, int block = 512)
    {
        fx.play(Channels<T>(channels, x), block);
    }
    Signal<T> tone(double seconds, double dB, double frequency = 1000, double rate = 48000)
    {
        return sine<T>(std::size_t(seconds * rate), frequency, rate, std::pow(10, dB / 20));
    }
};
TYPED_TEST_SUITE(LevelMeter, Precisions);

TYPED_TEST(LevelMeter, ReadsItsFloorsInSilence)
{
    this->play(constant<TypeParam>(48000 * 4, 0), 2);
    for (const char* key : {"level0", "levelHold0", "rms1", "rmsHold1", "loundessMomentary",
                            "loundessShortTerm", "loudnessIntegral", "loudnessTruePeak"})
        EXPECT_EQ(this->fx.meter(key), -144) << key;
    EXPECT_EQ(this->fx.meter("loudnessRangeMin"), -70);
    EXPECT_EQ(this->fx.meter("loudnessRangeMax"), -70);
    EXPECT_EQ(this->fx.meter("speakerCount"), 2);
    for (const char* key : {"correlation", "clipRun0", "processingError"})
        EXPECT_EQ(this->fx.meter(key), 0) << key;
}

TYPED_TEST(LevelMeter, FollowsPeaksAsDefined)
{
    const auto x = noise<TypeParam>(5000);
    for (const int block : {1, 100, 5000}) {
        EffectUnderTest<TypeParam> fx("Level Meter");
        fx.play({x}, block);
        const double c = std::exp(-2 * std::numbers::pi / (48000 * 0.001));
        double s = 0, sum = 0, square = 0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double a = std::abs(double(x[i]));
            s = a + c * (s - a);
            square += double(x[i]) * double(x[i]);
            sum = std::max(sum, square);
        }
        const double window = 48000 * 0.6;
        EXPECT_NEAR(fx.meter("level0"), db(s), 1e-4) << block;
        EXPECT_NEAR(fx.meter("levelHold0"), db(peak(x)), 1e-5) << block;
        EXPECT_NEAR(fx.meter("rms0"), db(std::sqrt(2 * square / window)), 1e-4) << block;
        EXPECT_NEAR(fx.meter("rmsHold0"), db(std::sqrt(2 * sum / window)), 1e-4) << block;
    }
}

TYPED_TEST(LevelMeter, SineReadsItsPeakAsRmsAndTheHoldKeepsTheLoudestMoment)
{
    this->play(this->tone(0.6, -6.0206));
    EXPECT_NEAR(this->fx.meter("rms0"), -6.0206, 1e-3);
    this->play(constant<TypeParam>(28799, 0));
    EXPECT_LT(this->fx.meter("rms0"), -50);
    EXPECT_NEAR(this->fx.meter("rmsHold0"), -6.0206, 1e-3);  // 1 s has not passed
    this->play(constant<TypeParam>(1, 0));
    EXPECT_EQ(this->fx.meter("rms0"), -144);
}

TYPED_TEST(LevelMeter, HeldPeakFallsInOneStepToTheNextBlock)
{
    // 1 s at blocks of 1000: the block that raises the value, 47 that hold, then the fall.
    auto x = constant<TypeParam>(50 * 1000, 0.1);
    x[500] = 1;
    for (int b = 0; b < 50; ++b) {
        this->play(Signal<TypeParam>(x.begin() + b * 1000, x.begin() + (b + 1) * 1000), 1, 1000);
        const bool holds = b < 49;
        EXPECT_NEAR(this->fx.meter("levelHold0"), holds ? 0 : -20, 1e-5) << b;
    }
    this->fx.set("resethold", 1);
    this->play(constant<TypeParam>(100, 0.01));
    EXPECT_NEAR(this->fx.meter("levelHold0"), -40, 1e-5);
}

TYPED_TEST(LevelMeter, HoldMenuActsWhileTheHoldIsOn)
{
    auto& component = this->fx.component();
    const auto heldAfter = [&](double seconds) {
        this->play(constant<TypeParam>(480, 1), 1, 480);
        this->play(constant<TypeParam>(std::size_t(48000 * seconds), 0.1), 1, 480);
        return this->fx.meter("levelHold0") > -1;
    };
    EXPECT_FALSE(heldAfter(1.1));
    component.setInteger("holdLength", 1);
    EXPECT_FALSE(heldAfter(1.1));
    component.setInteger("vuHold", 1);
    EXPECT_TRUE(heldAfter(14.9));
    component.setInteger("holdLength", 0);
    EXPECT_TRUE(heldAfter(1.7));
    EXPECT_FALSE(heldAfter(2));
    component.setInteger("rmsLength", 1);
    this->play(this->tone(1.8, -20));
    EXPECT_NEAR(this->fx.meter("rms0"), -20, 0.001);
    this->play(constant<TypeParam>(48000, 0));
    EXPECT_NEAR(this->fx.meter("rms0"), -20 + 10 * std::log10(0.8 / 1.8), 0.01);
}

TYPED_TEST(LevelMeter, CountsTheLongestRunOfClippedSamplesPerChannel)
{
    auto left = constant<TypeParam>(1000, 0.5), right = left;
    std::fill_n(left.begin() + 90, 20, TypeParam(1));  // across a block border
    std::fill_n(left.begin() + 300, 7, TypeParam(-1));
    std::fill_n(right.begin() + 500, 3, TypeParam(32767.0 / 32768));
    std::fill_n(right.begin() + 600, 9, TypeParam(0.99988));
    this->fx.play({left, right}, 100);
    EXPECT_EQ(this->fx.meter("clipRun0"), 20);
    EXPECT_EQ(this->fx.meter("clipRun1"), 3);
    this->fx.set("resethold", 1).play({right, left}, 100);
    EXPECT_EQ(this->fx.meter("clipRun0"), 3);
}

TYPED_TEST(LevelMeter, CorrelationOfKnownPairs)
{
    const auto a = noise<TypeParam>(96000, 1), b = noise<TypeParam>(96000, 2);
    auto inverted = a;
    for (auto& v : inverted) v = -v;
    this->fx.play({a, a});
    EXPECT_EQ(this->fx.meter("correlation"), 0);  // not measured unless it is shown
    this->fx.set("usecorr", 1).play({a, a});
    EXPECT_NEAR(this->fx.meter("correlation"), 1, 1e-6);
    // From in phase to inverted the reading crosses 0 after 0.3 s log 2.
    double crossed = 0;
    for (std::size_t at = 0; this->fx.meter("correlation") > 0 && at < 48000; at += 48) {
        const auto first = std::ptrdiff_t(at);
        this->fx.play({Signal<TypeParam>(a.begin() + first, a.begin() + first + 48),
                       Signal<TypeParam>(inverted.begin() + first, inverted.begin() + first + 48)});
        crossed += 0.001;
    }
    EXPECT_NEAR(crossed, 0.208, 0.01);
    this->fx.play({a, inverted});
    EXPECT_NEAR(this->fx.meter("correlation"), -1, 0.003);
    this->fx.play({a, b});
    EXPECT_NEAR(this->fx.meter("correlation"), 0, 0.03);
}

TYPED_TEST(LevelMeter, OnlyABlocksFirstSampleFlagsInvalidInput)
{
    auto x = noise<TypeParam>(1000);
    x[100] = TypeParam(kInfinity);
    this->fx.play({x, x}, 512);
    EXPECT_EQ(this->fx.meter("processingError"), 0);
    x[512] = TypeParam(kNaN);
    this->fx.play({noise<TypeParam>(1000), x}, 512);
    EXPECT_EQ(this->fx.meter("processingError"), 1);
    this->fx.set("resethold", 1).play({x, x}, 300);
    EXPECT_EQ(this->fx.meter("processingError"), 0);
}

TYPED_TEST(LevelMeter, RecoversFromAnythingOnceTheWindowsHavePassed)
{
    for (const double bad : {kInfinity, -kInfinity, kNaN, 1e30, -1e6, 400.0}) {
        EffectUnderTest<TypeParam> fx("Level Meter", 8000), clean("Level Meter", 8000);
        auto x = noise<TypeParam>(8000 * 8);
        clean.set("usecorr", 1).play({x, x});
        for (std::size_t i = 0; i < 1600; ++i) x[i] = TypeParam(bad);
        fx.set("usecorr", 1).play({x, x});
        for (const char* key : {"level0", "rms0", "loundessMomentary", "loundessShortTerm"})
            EXPECT_NEAR(fx.meter(key), clean.meter(key), 1e-4) << key << " after " << bad;
        EXPECT_NEAR(fx.meter("correlation"), 1, 1e-5);
    }
}

TYPED_TEST(LevelMeter, AnHourOfLoudNoiseThenSilenceReadsSilence)
{
    EffectUnderTest<TypeParam> fx("Level Meter", 8000);
    fx.prepare(1, 8000);
    Channels<TypeParam> x{noise<TypeParam>(8000, kSeed, 1.0)};
    for (int second = 0; second < 3600; ++second) fx.processBlock(x, x, 0, 8000);
    EXPECT_NEAR(fx.meter("rms0"), -1.76, 0.3);
    std::fill(x[0].begin(), x[0].end(), TypeParam(0));
    for (int second = 0; second < 4; ++second) fx.processBlock(x, x, 0, 8000);
    for (const char* key : {"level0", "rms0", "loundessMomentary", "loundessShortTerm"})
        EXPECT_EQ(fx.meter(key), -144) << key;
}

TYPED_TEST(LevelMeter, OwnLoudnessLawAndWhereItDepartsFromTheStandards)
{
    const auto tone = [&](double seconds, double dB) { return this->tone(seconds, dB); };
    const auto read = [&](const char* key) { return this->fx.meter(key); };
    this->play(tone(1.8, -23), 2);  // readings from the first, not yet full window on
    EXPECT_EQ(read("loudnessRangeMax"), -70) << "18 values make no range";
    this->play(tone(18.2, -23), 2);
    EXPECT_NEAR(read("loundessMomentary"), -22.99, 0.02);
    EXPECT_NEAR(read("loundessShortTerm"), -22.99, 0.02);
    EXPECT_NEAR(read("loudnessIntegral"), -23.0486, 0.001) << "lower edges of the bins";
    EXPECT_NEAR(read("loudnessRangeMax"), -22.9777, 0.001) << "centres of the bins";
    EXPECT_NEAR(read("loudnessRangeMax") - read("loudnessRangeMin"), 1.75, 0.06);

    this->fx.set("resetloudness", 1);
    for (const double dB : {-50, -35, -20, -35, -50}) this->play(tone(20, dB), 2);
    EXPECT_NEAR(read("loudnessRangeMax") - read("loudnessRangeMin"), 30, 0.1)
        << "the gate's base is a mean of decibels";

    this->fx.set("resetloudness", 1);
    this->play(constant<TypeParam>(200000, 0), 2);
    this->fx.set("resetloudness", 1);
    this->play(tone(20, -60), 2);
    EXPECT_NEAR(read("loundessMomentary"), -60, 0.02);
    EXPECT_NEAR(read("loudnessIntegral"), -45.69, 0.01) << "the lowest bin";
}

TYPED_TEST(LevelMeter, RangeGateLiesTwentyBelowTheMeanOfTheReadings)
{
    // 300 readings at -20, 29 on the way down, 71 at a level that the gate lets in above -44.7.
    const auto range = [&](double quiet) {
        EffectUnderTest<TypeParam> fx("Level Meter");
        for (const auto& x : {this->tone(30, -20), this->tone(10, quiet)}) fx.play({x, x});
        return fx.meter("loudnessRangeMax") - fx.meter("loudnessRangeMin");
    };
    EXPECT_NEAR(range(-44), 24, 0.1);
    EXPECT_LT(range(-45.5), 10);
}

TYPED_TEST(LevelMeter, LayoutWeightsCanBeSwitchedOff)
{
    VNK::SpeakerArrangement surround;
    ASSERT_TRUE(VNK::SpeakerArrangement::named("5.1", surround));
    const auto x = this->tone(4, -30), off = constant<TypeParam>(x.size(), 0);
    const struct {
        std::size_t channel;
        double gain;
    } cases[] = {{0, 0}, {2, 0}, {4, 1.49}, {3, -kInfinity}};
    for (const auto& c : cases)
        for (const int weighted : {1, 0}) {
            EffectUnderTest<TypeParam> fx("Level Meter");
            fx.component().setInteger("useLayoutWeights", weighted);
            Channels<TypeParam> in(6, off);
            in[c.channel] = x;
            fx.layout(surround).play(in);
            const double expected = std::max(-144.0, -33.0 + (weighted ? c.gain : 0));
            EXPECT_NEAR(fx.meter("loundessMomentary"), expected, 0.03) << c.channel;
        }
}

TYPED_TEST(LevelMeter, ReadingsStandWhileBypassedAndRestartWithReset)
{
    this->play(this->tone(2, -20), 2);
    const float integrated = this->fx.meter("loudnessIntegral");
    this->fx.set("bypass", 1);
    this->play(constant<TypeParam>(48000, 1), 2);
    EXPECT_EQ(this->fx.meter("loudnessIntegral"), integrated);
    this->fx.set("bypass", 0).algorithm().reset();
    this->play(constant<TypeParam>(4800, 0), 2);
    EXPECT_EQ(this->fx.meter("loudnessIntegral"), -144);
    EXPECT_EQ(this->fx.meter("levelHold0"), -144);
    EXPECT_EQ(this->fx.meter("loudnessTruePeak"), -144);
}

TEST(HeldPeak, EndsWithTheBlockThatCompletesItsTime)
{
    for (const int frames : {47998, 47999}) {
        HeldPeak hold;
        hold.setTime(48000, 1);
        hold.take(1, 10);
        hold.take(0.5, frames);
        EXPECT_EQ(hold.value(), 1);
        hold.take(0.25, 10);
        EXPECT_EQ(hold.value(), frames == 47998 ? 1 : 0.25);
    }
}

TEST(ChannelMeter, HoldsForEverAndKeepsItsWindowWhenAskedForTooMuch)
{
    ChannelMeter meter;
    meter.prepare(48000);
    meter.setHold(-1);
    meter.setRmsLength(15);  // more than there is room for
    std::int64_t q[1000];
    const auto play = [&](const Signal<float>& x) {
        meter.add(x.data(), quantisePower(q, x.data(), 1000));
        meter.endBlock(1000);
    };
    play(constant<float>(1000, 0.5));
    for (int i = 0; i < 5000; ++i) play(constant<float>(1000, 0.1));
    EXPECT_FLOAT_EQ(meter.levelHold(), 0.5f);
    EXPECT_NEAR(meter.rms(), 0.1 * std::sqrt(2), 1e-6);
    meter.setHold(0);  // and what was held is forgotten
    play(constant<float>(1000, 0.2));
    EXPECT_FLOAT_EQ(meter.levelHold(), 0.2f);
    play(constant<float>(1000, 0.1));
    play(constant<float>(1000, 0.1));
    EXPECT_FLOAT_EQ(meter.levelHold(), 0.1f);
}

TYPED_TEST(LevelMeter, RmsWindowIsAsLongAsAskedForWhileThereIsMemory)
{
    auto& fx = this->fx.sampleRate(8000);
    const auto play = [&](double seconds, double dB) {
        this->play(this->tone(seconds, dB, 1000, 8000));
    };
    const auto expectFifteenSeconds = [&] {
        play(16, -20);
        EXPECT_NEAR(fx.meter("rms0"), -20, 0.001);
        play(9, -200);
        EXPECT_NEAR(fx.meter("rms0"), -20 + 10 * std::log10(6.0 / 15), 0.01);
    };
    play(0.1, -20);
    ASSERT_TRUE(fx.component().setInteger("rmsMilliseconds", 15000));
    play(0.1, -20);  // may find more than one change waiting, or none
    expectFifteenSeconds();
    fx.component().setInteger("rmsMilliseconds", std::int64_t{1} << 50);
    play(1, -200);
    EXPECT_NEAR(fx.meter("rms0"), -20 + 10 * std::log10(5.0 / 15), 0.01) << "no room: goes on";
    fx.component().setInteger("rmsMilliseconds", 15000);
    fx.sampleRate(16000).prepare().sampleRate(8000).prepare();
    expectFifteenSeconds();
    fx.component().setInteger("rmsMilliseconds", 20000);
    fx.component().setInteger("rmsMilliseconds", 0);
    play(1, -20);
    EXPECT_NEAR(fx.meter("rms0"), -20, 0.001) << "0.6 s";
}

TEST(ClipRun, StopsCountingWhereItsNumberEnds)
{
    const auto x = constant<float>(10, 1);
    ClipRun clips{std::numeric_limits<std::int32_t>::max() - 4, 0};
    clips.add(x.data(), 10, 1);
    EXPECT_EQ(clips.longest, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(clips.run, clips.longest);
}

TEST(LevelMeterState, KeepsTheDisplaySettingsAndActsOnThem)
{
    struct Bytes final : VNK::IByteSink {
        bool write(const void* data, std::size_t n) noexcept override
        {
            text.append(static_cast<const char*>(data), n);
            return true;
        }
        std::string text;
    } chunk;
    EffectUnderTest<float> fx("Level Meter"), loaded("Level Meter");
    std::int64_t value = 0;
    ASSERT_TRUE(fx.component().getInteger("mode", value));
    EXPECT_EQ(value, -1);
    const struct {
        const char* key;
        std::int64_t value;
    } settings[] = {{"mode", 4},       {"rmsLength", 1},      {"vuHold", 1},
                    {"holdLength", 1}, {"loudnessInLUFS", 1}, {"loudnessEBU18", 1}};
    for (const auto& s : settings) ASSERT_TRUE(fx.component().setInteger(s.key, s.value));
    fx.component().setInteger("loudnessStrict", 1);
    ASSERT_TRUE(fx.component().saveState(chunk));
    ASSERT_TRUE(loaded.component().loadState(chunk.text.data(), chunk.text.size()));
    for (const auto& s : settings) {
        ASSERT_TRUE(loaded.component().getInteger(s.key, value));
        EXPECT_EQ(value, s.value) << s.key;
    }
    loaded.component().getInteger("loudnessStrict", value);
    EXPECT_EQ(value, 0);
    loaded.run(sine<float>(48000 * 9 / 5, 1000, 48000, 0.1));
    EXPECT_NEAR(loaded.meter("rms0"), -20, 0.01);
    loaded.run(constant<float>(48000 * 10, 0));
    EXPECT_NEAR(loaded.meter("levelHold0"), -20, 0.01);
    EXPECT_STREQ(loaded.component().getString("holdLengthMenu"), "1.8 s|15 s");
}

}  // namespace
}  // namespace quillworks::test
