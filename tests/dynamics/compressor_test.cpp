// SPDX-License-Identifier: ISC
// The compressor against its law on paper, theory, and what a mixing engineer relies on.
#include <string>

#include "framework/stored_state.h"
#include "tests/dynamics/compressor_model.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/listener.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr int kLookAhead = 96;  // frames at 48 kHz

/// Noise in bursts of changing level, with a rest.
template <typename T> Signal<T> bursts(std::size_t frames, std::uint32_t seed)
{
    auto x = noise<double>(frames, seed, 1);
    constexpr double levels[] = {0.02, 1.0, 0.1, 0.0, 0.6, 0.01};
    for (std::size_t i = 0; i < frames; ++i) x[i] *= levels[i / 3000 % std::size(levels)];
    return as<T>(x);
}

template <typename T> class Compressor : public ::testing::Test {
protected:
    EffectUnderTest<T> fx{"Compressor"};
};
TYPED_TEST_SUITE(Compressor, Precisions);

struct LawCase {
    CompressorModelSettings s;
    int channels;
    bool linked;
};

TYPED_TEST(Compressor, FollowsItsLawSampleBySample)
{
    using T = TypeParam;
    const LawCase cases[] = {
        {{.threshold = -20, .ratio = 4}, 1, true},
        {{.threshold = -30, .ratio = 20, .knee = 0.1, .gain = 6, .release = 1.0}, 2, true},
        {{.threshold = -30, .ratio = 3, .attack = 0.0001, .release = 0.001}, 2, false},
        {{.threshold = -24, .ratio = 2, .attack = 0.4, .release = 0.01, .adaptive = false},
         3,
         true},
        {{.threshold = -40, .ratio = 8, .attack = 0.005, .lookAhead = false}, 2, true},
        {{.threshold = -25, .ratio = 5, .adaptive = false, .lookAhead = false}, 2, false},
        {{.threshold = -12, .ratio = 5, .autoSpeed = true}, 2, true},
    };
    constexpr std::size_t kFrames = 24000;
    for (const auto& test : cases) {
        const auto& s = test.s;
        EffectUnderTest<T> fx("Compressor");
        fx.set("threshold", s.threshold).set("ratio", s.ratio).set("knee", s.knee);
        fx.set("gain", s.gain).set("attack", s.attack * 1000).set("release", s.release * 1000);
        fx.set("adaptive", s.adaptive).set("autospeed", s.autoSpeed);
        fx.set("lookAhead", s.lookAhead).set("linked", test.linked);
        Channels<T> in;
        for (int c = 0; c < test.channels; ++c)
            in.push_back(bursts<T>(kFrames, kSeed + static_cast<std::uint32_t>(c)));
        const auto out = fx.play(in, 480);

        const auto channels = in.size();
        std::vector<CompressorModel> detectors(test.linked ? 1 : channels, {s, kRate});
        std::vector<HeldGainModel> held(channels, HeldGainModel(kLookAhead));
        double worst = 0;
        for (std::size_t i = 0; i < kFrames; ++i) {
            double mean = 0, gain = 0;
            for (const auto& x : in) mean += double(x[i]) / double(channels);
            for (std::size_t c = 0; c < channels; ++c) {
                if (c < detectors.size())
                    gain = detectors[c].gain(test.linked ? mean : double(in[c][i]));
                const double expected =
                    s.lookAhead ? held[c].apply(in[c][i], gain) : in[c][i] * gain;
                worst = std::max(worst, std::abs(expected - double(out[c][i])));
            }
        }
        EXPECT_LT(worst, sizeof(T) == 4 ? 1e-5 : 1e-7)
            << "threshold " << s.threshold << " ratio " << s.ratio;
    }
}

TYPED_TEST(Compressor, StaticCurveIsTheory)
{
    using T = TypeParam;
    this->fx.set("adaptive", 0).set("attack", 0.1).set("release", 1).prepare(1);
    for (const double threshold : {-40.0, -20.0, 0.0})
        for (const double ratio : {1.0, 1.5, 4.0, 20.0})
            for (const double knee : {0.1, 6.0, 20.0})
                for (double level = -60; level <= 0; level += 7.5) {
                    this->fx.set("threshold", threshold).set("ratio", ratio).set("knee", knee);
                    this->fx.run(constant<T>(4800, std::pow(10, level / 20)));
                    const double over = level - threshold;
                    const double bent = over < -knee  ? 0
                                        : over > knee ? over
                                                      : (over + knee) * (over + knee) / (4 * knee);
                    EXPECT_NEAR(this->fx.meter("reduction"), -bent * (1 - 1 / ratio), 0.05)
                        << level << " dB, threshold " << threshold << ", ratio " << ratio
                        << ", knee " << knee;
                }
}

TYPED_TEST(Compressor, AttackAndReleaseTakeTheirTime)
{
    using T = TypeParam;
    // The mean square heads for its goal by the attack step per sample: 63 % after the attack time.
    // Then the level falls by 10 log10(e^(2 pi)) = 27.3 dB per release time, the reduction wanted
    // by half of that, and the reduction follows with the time constant 4 release/(2 pi): from 10
    // dB it is down to 10/e after 1.04 release times.
    for (const double attack : {5.0, 50.0, 400.0})
        for (const double release : {20.0, 200.0, 2000.0}) {
            EffectUnderTest<T> fx("Compressor");
            fx.set("adaptive", 0).set("knee", 0.1).set("threshold", -20).set("ratio", 2);
            fx.set("attack", attack).set("release", release).set("lookAhead", 0);
            const auto loud = static_cast<std::size_t>(kRate * attack * 0.001 * 8);
            const auto y = fx.run(constant<T>(loud, 1));
            std::size_t i = 0;  // the curve halves 10 log10(0.632) + 20 dB
            while (
                i<loud&& double(y[i])> std::pow(10, -(10 * std::log10(1 - std::exp(-1)) + 20) / 40))
                ++i;
            EXPECT_NEAR(double(i) / kRate * 1000, attack, attack * 0.05 + 1.5) << attack;

            const double start = fx.meter("reduction");
            EXPECT_NEAR(start, -10, 0.1);
            std::size_t t = 0;
            while (fx.meter("reduction") < start / std::exp(1) && t < 1000000) {
                fx.run(constant<T>(24, 1e-6));
                t += 24;
            }
            EXPECT_NEAR(double(t) / kRate * 1000 / release, 1.04, 0.08) << release;
        }
}

TYPED_TEST(Compressor, DelaysByWhatItReportsAndIsTransparentAtRatioOne)
{
    using T = TypeParam;
    for (const double rate : {8000.0, 44100.0, 48000.0, 96000.0, 384000.0})
        for (const bool lookAhead : {true, false})
            for (const double mix : {0.0, 0.5, 1.0}) {
                EffectUnderTest<T> fx("Compressor", rate);
                fx.set("lookAhead", lookAhead).set("mix", mix).set("threshold", -48);
                fx.prepare(2);
                const auto latency = static_cast<std::size_t>(fx.algorithm().getLatency());
                EXPECT_EQ(latency, lookAhead ? static_cast<std::size_t>(rate * 0.002 + 0.5) : 0);
                const Channels<T> in{noise<T>(5000, 1), noise<T>(5000, 2)};
                const auto out = fx.play(in, 177);
                for (std::size_t c = 0; c < 2; ++c)
                    for (std::size_t i = 0; i < 5000; ++i)
                        ASSERT_EQ(out[c][i], i < latency ? T(0) : in[c][i - latency])
                            << rate << " Hz, mix " << mix << ", frame " << i;
            }
}

TYPED_TEST(Compressor, ListeningTellsTheSideChainFilter)
{
    using T = TypeParam;
    struct Case {
        double low, high, frequency, expected, tolerance;  // expected in dB
    };
    for (const auto& test : {Case{100, 16000, 100, -3.01, 0.1}, Case{100, 16000, 50, -24.1, 0.5},
                             Case{20, 1000, 1000, -3.01, 0.1}, Case{20, 1000, 4000, -24.3, 0.5},
                             Case{20, 16000, 30, 0, 1e-3}, Case{4000, 200, 1000, -34.2, 1},
                             Case{4000, 200, 50, -6, 0.6}, Case{4000, 200, 12000, -6, 0.2}}) {
        EffectUnderTest<T> fx("Compressor");
        fx.set("internalsidechain", 1).set("sidechainlisten", 1).set("threshold", -40);
        fx.set("ratio", 20).set("sidechainfreqlow", test.low).set("sidechainfreqhigh", test.high);
        const auto y = fx.run(sine<T>(48000, test.frequency, kRate));
        EXPECT_NEAR(db(amplitudeAt(y, test.frequency, kRate, 24000, 48000)), test.expected,
                    test.tolerance)
            << test.low << " " << test.high << " at " << test.frequency;
    }
}

TYPED_TEST(Compressor, SwapExchangesTheFrequenciesAndFadesOverOneSubBlock)
{
    using T = TypeParam;
    auto& fx = this->fx;
    fx.set("internalsidechain", 1).set("sidechainlisten", 1).set("lookAhead", 0);
    fx.set("sidechainfreqlow", 300).set("sidechainfreqhigh", 3000);
    EXPECT_EQ(fx.get("swapfreqs"), 0);
    const auto x = sine<T>(4800, 1000, kRate);
    fx.run(x, 100);
    Listener listener;
    fx.component().setListener(&listener);
    fx.set("swapfreqs", 1);
    fx.component().setListener(nullptr);
    const int low = fx.component().findParameter("sidechainfreqlow");
    EXPECT_EQ(listener.changed, (std::vector<int>{low, low + 1})) << "the lamp does not flicker";
    EXPECT_EQ(fx.get("sidechainfreqlow"), 3000);
    EXPECT_EQ(fx.get("sidechainfreqhigh"), 300);
    fx.set("swapfreqs", 1);  // shows this already
    EXPECT_EQ(fx.get("sidechainfreqlow"), 3000);
    const auto y = fx.run(x, 100);
    EXPECT_LT(largestStep(y, 0, 200),
              0.2);  // a full sine at 1 kHz moves by 0.13
    VNK::StringSink preset;
    fx.component().savePreset("x", preset);
    fx.set("sidechainfreqhigh", 8000);
    EXPECT_EQ(fx.get("swapfreqs"), 0);
    std::string equal = preset.text();  // what is stored are the frequencies, the lamp follows
    equal.replace(equal.find("value=\"300\""), 11, "value=\"3000\"");
    ASSERT_TRUE(fx.component().loadPreset(equal.data(), equal.size()));
    EXPECT_EQ(fx.get("sidechainfreqhigh"), 3000);
    EXPECT_EQ(fx.get("swapfreqs"), 0);
}

TYPED_TEST(Compressor, ExternalSideChainKeysThroughTheFilter)
{
    using T = TypeParam;
    const auto reduction = [](bool filter, const Channels<T>& key, bool linked) {
        EffectUnderTest<T> fx("Compressor");
        fx.set("threshold", -40).set("ratio", 4).set("internalsidechain", filter);
        fx.set("sidechainfreqlow", 2000).set("linked", linked).set("ingain", 24);
        fx.sideChain(key);
        const auto quiet = constant<T>(24000, 0.01);
        fx.play({quiet, quiet});
        return -fx.meter("reduction");
    };
    const auto silence = constant<T>(24000, 0), tone = sine<T>(24000, 100, kRate);
    EXPECT_EQ(reduction(false, {silence}, true), 0);  // its own input is not heard
    EXPECT_GT(reduction(false, {tone}, true), 20);
    EXPECT_EQ(reduction(true, {tone}, true), 0);
    EXPECT_NEAR(reduction(false, {silence, tone}, true), reduction(false, {tone}, true) - 4.5, 0.3);
    EXPECT_NEAR(reduction(false, {silence, tone}, false), reduction(false, {tone}, true), 0.01);

    // A single channel, linked, hears both sides of a stereo key.
    this->fx.set("threshold", -40).set("ratio", 4).sideChain({silence, tone});
    this->fx.run(silence);
    EXPECT_LT(this->fx.meter("reduction"), -10);
}

TYPED_TEST(Compressor, InputGainStepsAtZeroCrossingsOrAfterEightSubBlocks)
{
    using T = TypeParam;
    auto& fx = this->fx;
    fx.set("lookAhead", 0).prepare(1);
    fx.run(constant<T>(64, 0.5));
    fx.set("ingain", 12);
    const auto steady = fx.run(constant<T>(32 * 9, 0.5), 48);
    EXPECT_EQ(steady[32 * 8 - 1], T(0.5));
    EXPECT_GT(steady[32 * 8], T(0.5));

    fx.run(sine<T>(480000, 1000, kRate));  // arrived
    fx.set("ingain", 0);
    const auto x = sine<T>(48000, 1000, kRate);
    auto y = fx.run(x);
    for (std::size_t i = 1; i < x.size(); ++i) {
        if ((x[i] > 0) != (x[i - 1] > 0) || std::abs(x[i]) < 1e-3 || std::abs(x[i - 1]) < 1e-3)
            continue;
        ASSERT_NEAR(y[i] / x[i], y[i - 1] / x[i - 1], 1e-4) << i;
    }
    EXPECT_LT(y.back() / x.back(), 2.5);
    for (int i = 0; i < 3; ++i) y = fx.run(x);
    EXPECT_EQ(y.back(), x.back());  // the glide ends where it was sent
}

/// Gain of the second channel, in dB, at the end of a tone of `peak`; the first channel has the
/// tone at -40 dB.
template <typename T> double rightGain(EffectUnderTest<T>& fx, double peak, std::size_t frames)
{
    const auto x = sine<T>(frames, 1000, kRate, peak), quiet = sine<T>(frames, 1000, kRate, 0.01);
    const auto y = fx.play({quiet, x});
    const std::size_t from = frames - frames / 20;
    return db(rms(y[1], from)) - db(rms(x, from));
}

/// The gain at -40 dB, three tenths of a second after a switch is set back to `on`; up to 0.02 s
/// after it was set to the other side, `wait` frames before, the level was `peak`.
template <typename T>
double gainAfterSwitching(const char* key, bool on, double peak, std::size_t wait)
{
    EffectUnderTest<T> fx("Compressor");
    fx.set("threshold", -40).set("ratio", 20).set("release", 2000).set("sidechainfreqlow", 200);
    fx.set(key, on).prepare(2);
    rightGain(fx, peak, 47040);
    fx.set(key, !on);
    rightGain(fx, peak, 960);
    rightGain(fx, 0.01, wait);
    fx.set(key, on);
    return rightGain(fx, 0.01, 14400);
}

TYPED_TEST(Compressor, WhatASwitchBringsInDoesNotResumeWhatItHeldLongAgo)
{
    using T = TypeParam;
    for (const char* key : {"linked", "adaptive", "autospeed", "internalsidechain"})
        for (const bool on : {false, true}) {
            constexpr std::size_t kWait = 8 * 48000;  // what stays in use has forgotten by then
            EXPECT_NEAR(gainAfterSwitching<T>(key, on, 1, kWait),
                        gainAfterSwitching<T>(key, on, 0.01, kWait), 3)
                << key << (on ? " on" : " off");
        }
    // After four seconds the linked path remembers, and nothing falls behind that.
    EXPECT_GT(gainAfterSwitching<T>("linked", false, 1, 4 * 48000), -10);
}

TYPED_TEST(Compressor, AfterListeningTheGainIsThePresentOne)
{
    using T = TypeParam;
    // Behind the look-ahead the gain waits for a change of sign, which here never comes.
    auto& fx = this->fx;
    fx.set("threshold", -40).set("ratio", 20).set("release", 50).set("internalsidechain", 1);
    const auto play = [&](double level) { return fx.run(constant<T>(48000, level)).back(); };
    EXPECT_LT(play(1), 0.05);
    fx.set("sidechainlisten", 1);
    play(1e-3);
    fx.set("sidechainlisten", 0);
    EXPECT_NEAR(double(play(1e-3)), 1e-3, 1e-6);
}

TYPED_TEST(Compressor, AnotherKeyFindsItsFilterClear)
{
    using T = TypeParam;
    // Linked, one filter serves all channels; each of its own hears what it hears from then on.
    const auto run = [](double before) {
        EffectUnderTest<T> fx("Compressor");
        fx.set("threshold", -40).set("ratio", 20).set("release", 2000).set("linked", 0);
        fx.set("internalsidechain", 1).set("sidechainfreqlow", 20).set("sidechainfreqhigh", 20);
        fx.prepare(2);
        const auto quiet = constant<T>(48000, 1e-3);
        fx.play({quiet, constant<T>(48000, before)});
        fx.set("linked", 1);
        for (int second = 0; second < 12; ++second) fx.play({quiet, quiet});
        fx.set("linked", 0);
        fx.play({quiet, quiet});
        return fx.meter("reduction");
    };
    EXPECT_NEAR(run(1), run(1e-3), 3);
}

TYPED_TEST(Compressor, AutomationDoesNotClick)
{
    using T = TypeParam;
    // With look-ahead gains change at zero crossings: no sample of the output may move by more than
    // a sine of the largest gain in sight moves. Look-ahead itself, and listening, are cuts.
    for (const char* key :
         {"ratio", "threshold", "knee", "auto", "gain", "ingain", "autospeed", "attack", "release",
          "adaptive", "internalsidechain", "sidechainfreqlow", "sidechainfreqhigh", "swapfreqs",
          "linked", "mix"}) {
        EffectUnderTest<T> fx("Compressor");
        fx.set("threshold", -20).set("ratio", 4).prepare(2);
        const auto y = fx.runWhileSwitching(key, sine<T>(4800, 440, kRate, 0.25));
        EXPECT_LT(largestStep(y), peak(y) * 2 * std::numbers::pi * 440 / kRate * 1.02) << key;
    }
}

TYPED_TEST(Compressor, MetersShowReductionItsLowestAndTheInput)
{
    using T = TypeParam;
    auto& fx = this->fx;
    fx.set("threshold", -20).set("ratio", 4).set("knee", 0.1).set("adaptive", 0).prepare(2);
    const auto loud = constant<T>(96000, 1), quiet = constant<T>(96000, 1e-4);
    fx.play({loud, loud});
    EXPECT_NEAR(fx.meter("reduction"), -15, 0.05);
    EXPECT_NEAR(fx.meter("minreduction"), -15, 0.05);
    EXPECT_NEAR(fx.meter("inlevelavg"), 0, 0.05);
    EXPECT_EQ(fx.meter("inlevel0"), 0);  // the editor is closed
    fx.component().setEditorOpen(true);
    fx.play({quiet, quiet});
    EXPECT_NEAR(fx.meter("reduction"), 0, 1e-3);
    EXPECT_NEAR(fx.meter("minreduction"), -15, 0.05);
    EXPECT_NEAR(fx.meter("inlevel0"), 1e-4, 1e-6);
    fx.set("resetmin", 1).play({quiet, quiet});
    EXPECT_NEAR(fx.meter("minreduction"), 0, 1e-3);
    // Unlinked, the channel that is reduced more shows.
    fx.set("linked", 0).play({quiet, loud});
    EXPECT_NEAR(fx.meter("reduction"), -15, 0.05);
    // Reset while the transport stands still: what was before does not come back.
    fx.algorithm().reset();
    fx.set("resetmin", 1).play({quiet, quiet});
    EXPECT_NEAR(fx.meter("minreduction"), 0, 1e-3);
}

TEST(CompressorPrecision, RoundingDecidesNothing)
{
    // Where the release waits for the delay, whether a level still rises makes a difference that is
    // heard: rounding must not decide it.
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        Channels<float> in{bursts<float>(24000, seed), noise<float>(24000, seed + 1)};
        for (std::size_t i = 0; i < 24000; ++i)
            in[1][i] *= static_cast<float>(std::pow(10, 1.5 * std::sin(double(i) * 0.0005) - 1.5));
        const auto f = EffectUnderTest<float>("Compressor").randomise(seed).play(in);
        const auto d = EffectUnderTest<double>("Compressor")
                           .randomise(seed)
                           .play({as<double>(in[0]), as<double>(in[1])});
        const double scale = std::max({1.0, peak(d[0]), peak(d[1])});
        EXPECT_LT(peakDifferenceDb(f, d) - db(scale), -115) << "seed " << seed;
    }
}

TEST(CompressorState, OldPresetsKeepTheLoudnessTheyWereMixedWith)
{
    struct Case {
        float ratio, threshold, on, gain;  // as stored
        std::optional<std::int64_t> version;
        float expectedGain, expectedOn;
    };
    for (const auto& test : {Case{1, -20, 1, 9, 1, 3.45762f, 0},
                             Case{1, -20, 1, 9, {}, 3.45762f, 0}, Case{4, -48, 1, 9, {}, 0, 0},
                             Case{1, -20, 0, 9, {}, 9, 0}, Case{4, -20, 1, 9, 2, 9, 1}}) {
        EffectUnderTest<float> fx("Compressor");
        StoredState state;
        EXPECT_TRUE(VNK::UID::parse("{F5E10250-E10F-4447-AC90-5B8001BE5158}", state.classId));
        state.algorithmVersion = test.version;
        state.parameters = {{"ratio", test.ratio},
                            {"threshold", test.threshold},
                            {"auto", test.on},
                            {"gain", test.gain},
                            {"swapfreqs", 1}};
        const auto text = writePreset(state);
        ASSERT_TRUE(fx.component().loadPreset(text.data(), text.size()));
        EXPECT_NEAR(fx.get("gain"), test.expectedGain, 1e-4);
        EXPECT_EQ(fx.get("auto"), test.expectedOn);
        EXPECT_EQ(fx.get("swapfreqs"), 0);  // the frequencies stand in order
    }
    // Ratio 4, threshold -20: 6.42 dB.
    EffectUnderTest<float> fx("Compressor");
    fx.set("auto", 1).set("ratio", 4).set("threshold", -20).set("lookAhead", 0);
    const auto y = fx.run(constant<float>(1000, 1e-3));
    EXPECT_NEAR(db(y.back() / 1e-3), 6.42, 0.01);
}

}  // namespace
}  // namespace quillworks::test
