// SPDX-License-Identifier: ISC
// Echo timing, bends, the loop's safety and the tape's quality.
#include "tests/support/effect_under_test.h"
#include "tests/support/sanitised.h"

namespace quillworks::test {
namespace {

constexpr const char* kName = "Analog Delay";

/// A plain echo: one channel without feedback and dry signal.
template <typename T> class Echo : public EffectUnderTest<T> {
public:
    explicit Echo(double rate = 48000) : EffectUnderTest<T>(kName, rate)
    {
        this->set("feedback", 0).set("inertia", 0.001).algorithm().setWetOnly(true);
    }
    Echo& time(double ms) { return this->set("sync", 0).set("time", ms), *this; }
};

/// Mean place of a response, in frames.
template <typename T> double centre(const Signal<T>& y, std::size_t from = 0)
{
    double sum = 0, moment = 0;
    for (std::size_t i = from; i < y.size(); ++i) {
        sum += double(y[i]);
        moment += double(y[i]) * double(i);
    }
    return moment / sum;
}

template <typename T> class AnalogDelay : public ::testing::Test {};
TYPED_TEST_SUITE(AnalogDelay, Precisions);

TYPED_TEST(AnalogDelay, AtSpeedOneTheEchoIsTheInputBitForBit)
{
    const auto x = as<TypeParam>(noise<float>(9000));
    for (const double ms : {1.0, 10.0, 77.0}) {
        for (const int block : {1, 37, 512}) {
            Echo<TypeParam> fx;
            const auto y = fx.time(ms).run(x, block);
            const auto n = static_cast<std::size_t>(ms * 48);
            for (std::size_t i = 0; i < x.size(); ++i)
                ASSERT_EQ(y[i], i < n ? 0 : x[i - n]) << ms << " ms, frame " << i;
        }
    }
}

TYPED_TEST(AnalogDelay, HowTheSignalIsCutChangesNothing)
{
    // Short loops under a moving motor and a gliding length: run sample by sample they need no
    // advance work of the heads at all.
    for (const int mode : {0, 1, 2})
        for (const double speed : {0.5, 1.0, 2.0}) {
            const auto run = [&](int block) {
                EffectUnderTest<TypeParam> fx(kName);
                fx.set("sync", 0).set("time", 1).set("speed", speed).set("lfowidth", 50);
                fx.set("lfotime", 9).set("feedback", 70).set("feedbackboost", 1);
                fx.set("pingpongmode", mode).set("saturation", 60).set("hicut", 5000);
                const auto left = noise<TypeParam>(2880, 1), right = noise<TypeParam>(2880, 2);
                auto y = fx.play({left, right}, block);
                fx.set("time", 3).set("pingpongswap", 1);
                const auto more = fx.play({right, left}, block);
                y.insert(y.end(), more.begin(), more.end());
                return y;
            };
            const auto whole = run(2880);
            for (const int block : {1, 17, 96})
                EXPECT_EQ(run(block), whole)
                    << "mode " << mode << ", speed " << speed << ", block " << block;
        }
}

TEST(AnalogDelayTime, FirstEchoIsWhereTimeOrBeatsAndTempoSay)
{
    struct Case {
        double beats, ms, tempo, speed;
    };
    const Case cases[] = {
        {0, 1, 120, 1},      {0, 3000, 120, 1},    {0, 3000, 120, 0.5},   {0, 250, 120, 2},
        {0, 12.3, 120, 1.7}, {1 / 48.0, 0, 60, 1}, {1 / 48.0, 0, 160, 1}, {0.5, 0, 120, 1},
        {0.5, 0, 97.3, 1},   {1.5, 0, 75, 1.5},    {8, 0, 60, 1},         {8, 0, 240, 1},
    };
    for (const double rate : {44100.0, 48000.0, 96000.0})
        for (const auto& c : cases) {
            if (kIsSanitised && rate > 44100) break;
            Echo<float> fx(rate);
            if (c.ms > 0)
                fx.time(c.ms);
            else
                fx.set("beatsnu", c.beats);
            fx.set("speed", c.speed).tempo(c.tempo);
            const double n = (c.ms > 0 ? c.ms / 1000 : c.beats) * rate;
            const double speed = c.speed * (c.ms > 0 ? 1 : c.tempo / 120);
            // 20 samples do not follow the motor. It makes up for them, but not beyond its ends.
            const bool isAtAnEnd = speed <= 0.5 || speed >= 2;
            const double expected = isAtAnEnd ? 20 + (n - 20) / speed : n / speed;
            const auto y = fx.run(impulse<float>(static_cast<std::size_t>(expected) + 200), 4800);
            EXPECT_NEAR(centre(y), expected, 1)
                << rate << " Hz, " << c.ms << " ms, note " << c.beats << " at " << c.tempo;
        }
}

TEST(AnalogDelayTime, TheLineKeepsItsLengthAtTheEndsOfTheMotorsSpeed)
{
    for (const auto& [speed, expected] : {std::pair{2.0, 7210.0}, std::pair{0.5, 28780.0}}) {
        Echo<float> fx;
        const auto y = fx.time(300).set("speed", speed).run(impulse<float>(30000), 4800);
        EXPECT_NEAR(centre(y), expected, 0.01) << "speed " << speed;
    }
}

TEST(AnalogDelayTime, EchoesOfAPingPongAlternateInTime)
{
    for (const bool swapped : {false, true}) {
        EffectUnderTest<float> fx(kName);
        fx.set("mix", 100).set("width", 100).set("feedback", 80).set("sync", 0).set("time", 100);
        fx.set("pingpongswap", swapped).set("mix", 50);
        const auto x = impulse<float>(30000);
        const auto y = fx.play({x, x});
        // The echoes of 100 ms, their level, and the side they are on; the dry pulse is at 0.
        const double first = 0.5 * 1.78, back = 0.8 * 0.5;
        const std::size_t side = swapped ? 1 : 0;
        EXPECT_NEAR(double(y[side][4800]), first, 1e-5);
        EXPECT_NEAR(double(y[1 - side][4800]), 0, 1e-6);
        EXPECT_NEAR(double(y[1 - side][9600]), first * (1 + back), 1e-5);
        EXPECT_NEAR(double(y[side][9600]), 0, 1e-6);
        EXPECT_GT(double(y[side][14400]), 0.1);
        EXPECT_NEAR(double(y[1 - side][14400]), 0, 1e-6);
    }
}

TEST(AnalogDelayTime, ChangesBendAndNeverClick)
{
    // A sine through a change: no step above that of the sine at the largest speed of the head.
    constexpr double kFrequency = 220, kRate = 48000;
    const double step = 2 * std::numbers::pi * kFrequency / kRate;
    const auto x = sine<float>(96000, kFrequency, kRate, 0.5);
    struct Change {
        const char* key;
        double from, to, fastest;
    };
    // Half-life of the length 1280 frames: a way of d samples begins at d ln 2 / 1280 per frame.
    const Change changes[] = {
        {"time", 300, 290, 1.3},   {"time", 290, 300, 1.3},    {"time", 100, 140, 1.1},
        {"speed", 1, 1.6, 1.62},   {"speed", 1.3, 0.7, 1.3},   {"lfowidth", 0, 10, 1.1 / 0.9},
        {"saturation", 5, 100, 1}, {"feedbackboost", 0, 1, 1}, {"hicut", 16000, 12000, 1.05}};
    for (const auto& c : changes) {
        Echo<float> fx;
        fx.time(200).set(c.key, c.from);
        fx.run(Signal<float>(x.begin(), x.begin() + 48000), 480);
        fx.set(c.key, c.to);
        const auto y = fx.run(Signal<float>(x.begin() + 48000, x.end()), 480);
        EXPECT_LT(largestStep(y), 0.5 * step * c.fastest * 1.01)
            << c.key << " " << c.from << " to " << c.to;
        EXPECT_GT(largestStep(y), 0.4 * step);
    }
}

TEST(AnalogDelayTime, TempoAutomationBendsAndArrives)
{
    EffectUnderTest<float> fx(kName);
    fx.set("feedback", 30).set("width", 100).set("mix", 100);  // a ping-pong of quarter notes
    const double step = 2 * std::numbers::pi * 220 / 48000;
    const auto x = sine<float>(96000, 220, 48000, 0.5);
    fx.play({x, x}, 480);
    // 100 tempi from 120 to 150: the heads' speed stays below 1.3; all echoes together have at most
    // 1 / (1 - 2 * 0.15) of the first one's level, and the wet gain is 1.78.
    double largest = 0;
    const auto more = sine<float>(48000, 220, 48000, 0.5);
    for (std::size_t i = 0; i < 100; ++i) {
        fx.tempo(120 + 0.3 * double(i + 1));
        const Signal<float> part(more.begin() + long(i) * 480, more.begin() + long(i + 1) * 480);
        const auto y = fx.play({part, part}, 480);
        for (const auto& channel : y) largest = std::max(largest, largestStep(channel, 0, 480));
    }
    EXPECT_LT(largest, 1.78 * 0.5 * step * 1.3 / 0.7);
    fx.play({Signal<float>(480000), Signal<float>(480000)}, 4800);
    const auto y = fx.play({impulse<float>(40000), impulse<float>(40000)}, 480);
    const Signal<float> first(y[0].begin() + 10000, y[0].begin() + 30000);
    EXPECT_NEAR(centre(first) + 10000, 60 / 150.0 * 48000, 1);
}

TEST(AnalogDelayTape, IsCleanAtASpeedOffOne)
{
    // 1 kHz at speed 1.01: recorded and played at speed, the pitch is that of the input.
    for (const double speed : {1.01, 0.93, 1.37}) {
        Echo<double> fx;
        fx.time(100).set("speed", speed);
        const auto y = fx.run(sine<double>(96000, 1000, 48000, 0.5), 512);
        const Signal<double> steady(y.end() - 48000, y.end());
        const double tone = amplitudeAt(steady, 1000, 48000, 0, 48000) / std::numbers::sqrt2;
        const double all = rms(steady);
        const double rest = std::sqrt(std::max(0.0, all * all - tone * tone));
        EXPECT_LT(db(rest / tone), -80) << "speed " << speed;
        RecordProperty(std::to_string(speed), std::to_string(db(rest / tone)));
    }
}

TEST(AnalogDelayTape, AliasesLittleAtSpeedTwo)
{
    for (const double frequency : {1001.0, 5003.0, 9001.0}) {
        Echo<double> fx;
        fx.time(100).set("speed", 2);
        const auto y = fx.run(sine<double>(96000, frequency, 48000, 0.5), 512);
        const Signal<double> steady(y.end() - 48000, y.end());
        const double tone = amplitudeAt(steady, frequency, 48000, 0, 48000) / std::numbers::sqrt2;
        EXPECT_GT(db(tone / (0.5 / std::numbers::sqrt2)), -0.2) << frequency;
        const double all = rms(steady);
        EXPECT_LT(db(std::sqrt(std::max(0.0, all * all - tone * tone)) / tone), -75) << frequency;
    }
}

TEST(AnalogDelayTape, ASlideTooFastToHearIsQuietNotAliased)
{
    // From 2.5 to 0.5 s the head starts at 53 times the speed: 9 kHz would be at 477 kHz.
    Echo<float> fx;
    const auto tone = sine<float>(144000, 9000, 48000, 0.5);
    fx.time(2500).run(tone);
    fx.set("time", 500);
    const auto y = fx.run(Signal<float>(tone.begin(), tone.begin() + 960));
    EXPECT_LT(db(peak(Signal<float>(y.begin() + 64, y.end()))), -60);
}

TEST(AnalogDelayTape, IsTransparentAgainAfterABend)
{
    Echo<float> fx;
    fx.time(20).set("speed", 1.3);
    fx.run(noise<float>(4800));
    fx.set("speed", 1);
    fx.run(noise<float>(48000));
    const auto x = noise<float>(9600, 7);
    const auto y = fx.run(x);
    for (std::size_t i = 960; i < x.size(); ++i) ASSERT_EQ(y[i], x[i - 960]) << i;
}

TEST(AnalogDelayLoop, IsBoundedWhateverIsSetAndDecaysAfterwards)
{
    std::uint32_t seed = kSeed;
    for (const double rate : {8000.0, 48000.0}) {
        if (kIsSanitised && rate > 8000) break;
        for (const bool boost : {false, true})
            for (const int mode : {0, 1, 2})
                for (const double ms : {1.0, 80.0})
                    for (const double saturation : {0.0, 100.0})
                        for (const double width : {0.0, 100.0}) {
                            EffectUnderTest<float> fx(kName, rate);
                            fx.set("feedback", 100).set("feedbackboost", boost);
                            fx.set("pingpongmode", mode).set("sync", 0).set("time", ms);
                            fx.set("saturation", saturation).set("filterreso", 3);
                            fx.set("width", width).set("lfowidth", mode * 25);
                            fx.set("locut", 100).set("hicut", 3000);
                            fx.algorithm().setWetOnly(true);
                            const auto frames = static_cast<std::size_t>(rate);
                            const auto loud = fx.play({noise<float>(frames, ++seed, 0.87),
                                                       noise<float>(frames, ++seed, 0.87)});
                            const Signal<float> silence(frames);
                            const auto free = fx.play({silence, silence});
                            const double bound = boost ? 1.001 : 8;
                            const auto what = testing::Message()
                                              << rate << " Hz, boost " << boost << ", mode " << mode
                                              << ", " << ms << " ms, saturation " << saturation
                                              << ", width " << width;
                            for (const auto* y : {&loud, &free})
                                for (const auto& channel : *y) {
                                    ASSERT_TRUE(isFinite(channel)) << what;
                                    EXPECT_LT(peak(channel), bound) << what;
                                }
                            double mean = 0;
                            for (const float v : free[0]) mean += double(v);
                            EXPECT_LT(std::abs(mean) / rate, 0.01) << what;
                            fx.set("feedback", 50).set("feedbackboost", 0).set("filterreso", 1);
                            fx.play({silence, silence});
                            fx.play({silence, silence});
                            const auto gone = fx.play({silence, silence});
                            EXPECT_LT(peak(gone[0]) + peak(gone[1]), 1e-3) << what;
                        }
    }
}

TEST(AnalogDelayLoop, SingsOnAtAHealthyLevelWhileBoosted)
{
    for (const int mode : {0, 1, 2})
        for (const double saturation : {0.0, 100.0}) {
            EffectUnderTest<float> fx(kName, 16000);
            fx.set("feedback", 100).set("feedbackboost", 1).set("pingpongmode", mode);
            fx.set("sync", 0).set("time", 60).set("locut", 100).set("hicut", 6000);
            fx.set("saturation", saturation).algorithm().setWetOnly(true);
            fx.play({noise<float>(16000), noise<float>(16000, 3)});
            Channels<float> y;
            for (int second = 0; second < 30; ++second)
                y = fx.play({Signal<float>(16000), Signal<float>(16000)});
            const double level = std::max(peak(y[0]), peak(y[1]));
            EXPECT_GT(level, 0.3) << "mode " << mode << ", saturation " << saturation;
            EXPECT_LT(level, 1.0) << "mode " << mode << ", saturation " << saturation;
        }
}

TYPED_TEST(AnalogDelay, WhatIsNotFiniteNeverLeavesAndIsGoneOnceTheLoopHasTurned)
{
    for (const double bad : {double(NAN), double(INFINITY), 1e30}) {
        auto x = noise<TypeParam>(96000, kSeed, 0.2);
        const auto run = [](const Signal<TypeParam>& in) {
            EffectUnderTest<TypeParam> fx(kName);
            fx.set("sync", 0).set("time", 50).set("saturation", 50).set("locut", 100);
            fx.set("hicut", 5000);
            return fx.play({in, in});
        };
        const auto good = run(x);
        x[5000] = static_cast<TypeParam>(bad);
        auto y = run(x);
        EXPECT_TRUE(isFinite(y[0]) && isFinite(y[1])) << bad;
        if (std::isnan(bad)) {  // it counts as silence
            std::copy(good[0].begin(), good[0].begin() + 5001, y[0].begin());
            EXPECT_LT(peakDifferenceDb(y[0], good[0]), -20);
        }
        EXPECT_NEAR(db(rms(y[0], 48000)), db(rms(good[0], 48000)), 1) << bad;
    }
}

TYPED_TEST(AnalogDelay, NoBadSampleLeavesThroughTheDrySignal)
{
    // At either end one of both has a gain of 0, and 0 times what is not finite is not 0.
    for (const double mix : {0.0, 50.0, 100.0}) {
        auto x = noise<TypeParam>(960);
        x[100] = TypeParam(NAN);
        x[200] = TypeParam(INFINITY);
        x[300] = TypeParam(-INFINITY);
        EffectUnderTest<TypeParam> fx(kName);
        const auto y = fx.set("mix", mix).play({x, x}, 37);
        EXPECT_TRUE(isFinite(y[0]) && isFinite(y[1])) << "mix " << mix;
    }
}

TYPED_TEST(AnalogDelay, MixKeepsTheDrySignalAndLiftsTheWet)
{
    const auto x = noise<TypeParam>(4800);
    EffectUnderTest<TypeParam> dry(kName);
    EXPECT_EQ(dry.set("mix", 0).run(x), x);

    Echo<TypeParam> echo;
    const auto wet = echo.time(20).run(x);
    EffectUnderTest<TypeParam> half(kName);
    const auto y = half.set("sync", 0).set("time", 20).set("feedback", 0).set("mix", 25).run(x);
    for (std::size_t i = 0; i < x.size(); ++i)
        ASSERT_NEAR(double(y[i]), 0.75 * double(x[i]) + 0.25 * 1.78 * double(wet[i]), 1e-6) << i;
}

TEST(AnalogDelayColour, HighCutIsOutOnlyWithinThirtyUnitsOfItsEnd)
{
    const auto x = noise<float>(4800);
    const auto plain = Echo<float>().time(5).run(x);
    const auto units = [](int n) {
        float f = 16000;
        while (n-- > 0) f = std::nextafter(f, 0.0f);
        return double(f);
    };
    EXPECT_EQ(Echo<float>().time(5).set("hicut", units(30)).run(x), plain);
    EXPECT_NE(Echo<float>().time(5).set("hicut", units(31)).run(x), plain);
    EXPECT_NE(Echo<float>().time(5).set("hicut", 15999).run(x), plain);
    EXPECT_NE(Echo<float>().time(5).set("locut", 21).run(x), plain);
}

TEST(AnalogDelayColour, FiltersAndSaturationShapeTheEcho)
{
    const auto gainAt = [](double frequency, const char* key, double value, double level) {
        Echo<double> fx;
        fx.time(10).set(key, value);
        const auto y = fx.run(sine<double>(96000, frequency, 48000, level));
        return db(amplitudeAt(y, frequency, 48000, 48000, 96000) / level);
    };
    // Two sections of quality 0.5946 each: 0.5946^2 at the corner, 24 dB per octave beyond.
    EXPECT_NEAR(gainAt(1000, "hicut", 1000, 0.5), 2 * db(0.59460), 0.05);
    EXPECT_NEAR(gainAt(1000, "locut", 1000, 0.5), 2 * db(0.59460), 0.05);
    EXPECT_NEAR(gainAt(100, "locut", 1000, 0.5), -80, 0.5);
    // Saturation: unity for small signals, whose pole lies at 1.08 * 16 kHz.
    EXPECT_NEAR(gainAt(500, "saturation", 100, 0.001), 0, 0.01);
    EXPECT_NEAR(gainAt(16000, "saturation", 100, 0.001), db(1.08 / std::hypot(1.08, 1)), 0.01);
    // Large ones are slow enough to follow v + 0.02 sinh(4 v) = x; 1.08 v is heard, undriven again.
    for (const double drive : {0.3, 1.0})
        for (const double v : {0.2, 0.5, 0.8, 1.1}) {
            const double level = (v + 0.02 * std::sinh(4 * v)) / drive;
            Echo<double> fx;
            fx.time(10).set("saturation", 100 * drive);
            const auto y = fx.run(sine<double>(9600, 50, 48000, level));
            EXPECT_NEAR(peak(y), 1.08 * v / drive, 2e-3) << v << " at drive " << drive;
        }
}

TEST(AnalogDelayComponent, SyncConvertsTimesAndNotes)
{
    EffectUnderTest<float> fx(kName);
    fx.set("tempo", 120).set("sync", 0).set("time", 500).set("sync", 1);
    EXPECT_EQ(fx.get("beatsnu"), 0.5f);
    fx.set("sync", 0);
    EXPECT_NEAR(fx.get("time"), 500, 0.01);
    fx.set("tempo", 90).set("sync", 1).set("beatsnu", 0.72).set("sync", 0);
    EXPECT_NEAR(fx.get("time"), 0.75 * 120000 / 90, 0.01);  // 0.72 sounds as a dotted quarter
    fx.set("tempo", 120).set("lfotime", 1.1).set("lfosync", 1);
    EXPECT_EQ(fx.get("lfobeatsnu"), 1);
    fx.set("lfosync", 0);
    EXPECT_NEAR(fx.get("lfotime"), 1, 1e-5);
}

TEST(AnalogDelayComponent, ShowsTheHostsTempo)
{
    EffectUnderTest<float> fx(kName);
    EXPECT_EQ(fx.get("tempo"), 30);
    fx.set("tempo", 90);
    EXPECT_EQ(fx.get("tempo"), 90);
    fx.tempo(135).run(noise<float>(64));
    EXPECT_EQ(fx.get("tempo"), 135);
    // What is written sounds until the host speaks again.
    Echo<float> echo;
    echo.prepare();
    echo.set("beatsnu", 0.25).set("tempo", 160).tempo(NAN);
    EXPECT_NEAR(centre(echo.run(impulse<float>(20000))), 0.25 * 120 / 160 * 48000, 1);
}

struct Sink final : VNK::IByteSink {
    std::string bytes;
    bool write(const void* data, std::size_t n) noexcept override
    {
        bytes.append(static_cast<const char*>(data), n);
        return true;
    }
};

TEST(AnalogDelayComponent, ReadsNotesOfEarlierVersions)
{
    EffectUnderTest<float> fx(kName);
    fx.set("beats", 5).set("lfobeats", 9);
    EXPECT_EQ(fx.get("beatsnu"), 0.25f);
    EXPECT_NEAR(fx.get("lfobeatsnu"), 4 / 3.0, 1e-6);  // 1/1 T: no table entry, kept as it is
    EXPECT_EQ(fx.set("beats", 16).get("beatsnu"), 3);  // 1/1 D likewise

    Sink sink;
    ASSERT_TRUE(fx.component().savePreset("x", sink));
    EXPECT_EQ(sink.bytes.find("\"beats\""), std::string::npos);
    const auto load = [&](const std::string& from, const std::string& to) {
        auto text = sink.bytes;
        const auto at = text.find("<Parameter key=\"" + from + "\"");
        text.replace(at, text.find("/>", at) + 2 - at, to);
        ASSERT_TRUE(fx.component().loadPreset(text.data(), text.size()))
            << fx.component().refusalReason();
    };
    load("beatsnu", "<Parameter key=\"beats\" value=\"12\"/>");
    EXPECT_NEAR(fx.get("beatsnu"), 0.25 * 2 / 3, 1e-6);  // 1/8 T
    load("mix", "<Parameter key=\"beats\" value=\"2\"/>");
    EXPECT_EQ(fx.get("beatsnu"), 3);  // "beatsnu" stands, so "beats" does not count
    load("lfobeatsnu", "");
    EXPECT_EQ(fx.get("lfobeatsnu"), 0.5f);  // neither: the default
}

TEST(AnalogDelayComponent, TellsItsTail)
{
    EffectUnderTest<float> fx(kName);
    fx.set("sync", 0).set("time", 100).set("feedback", 10).prepare();
    EXPECT_EQ(fx.algorithm().getTailLength(), 4800u * 4);
    fx.set("sync", 1).set("beatsnu", 0.5).algorithm().setTempo(150);
    EXPECT_NEAR(fx.algorithm().getTailLength(), 19200 * 4, 4);
    fx.set("feedback", 70).set("feedbackboost", 1);
    EXPECT_EQ(fx.algorithm().getTailLength(), VNK::kEndlessTail);
    EXPECT_EQ(fx.algorithm().getLatency(), 0u);
}

}  // namespace
}  // namespace quillworks::test
