// SPDX-License-Identifier: ISC
// The expander against its law on paper, and what its users rely on.
#include "dynamics/expander_gain.h"

#include <algorithm>

#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr std::size_t kLookAhead = 96;  // frames at 48 kHz

/// The law sample by sample. Seconds, decibels, slope in dB per dB.
struct ExpanderModel {
    double threshold, range, slope, attack, release;
    int holdFrames;
    double envelope = 0, factor = 0;
    int hold = 0;
    bool isFresh = true;

    double gainDb(double x)
    {
        const double p = std::pow(10, threshold / 20);
        if (x > envelope) {
            const double aim = x > p ? p * 1.05 : x;
            hold = x > p ? holdFrames : hold - 1;
            envelope += std::min(1.0, 1.144254407138273 / (attack * kRate)) * (aim - envelope);
        } else if (hold > 0) {
            --hold;
        } else {
            envelope += 1.144254407138273 / (release * kRate) * (x - envelope);
        }
        const double level = envelope >= 6.309573e-8 ? 20 * std::log10(envelope) : -144;
        if (level > threshold) return 0;
        return level >= threshold + range / slope ? (level - threshold) * slope : range;
    }
    double smoothed(double db)
    {
        const double g = std::pow(10, db / 20);
        const double c = std::exp(-2 * std::numbers::pi * 2000 / kRate);
        factor = isFresh ? g : g + c * (factor - g);
        isFresh = false;
        return factor;
    }
};

template <typename T> class Expander : public ::testing::Test {
protected:
    EffectUnderTest<T> fx{"Expander"};
};
TYPED_TEST_SUITE(Expander, Precisions);

/// Noise that comes and goes.
template <typename T> Signal<T> swells(std::size_t frames, std::uint32_t seed)
{
    auto x = noise<double>(frames, seed, 1);
    for (std::size_t i = 0; i < frames; ++i)
        x[i] *= std::pow(10, -2 + 2 * std::sin(double(i) * 0.0011)) * (i / 5000 % 3 != 2);
    return as<T>(x);
}

TYPED_TEST(Expander, FollowsItsLawSampleBySample)
{
    using T = TypeParam;
    struct Case {
        double ratio, threshold, range, attack, release;  // ms
        bool lookAhead, ducks;
    };
    constexpr std::size_t kFrames = 24000;
    for (const auto& s :
         {Case{0.5, -20, -72, 50, 100, true, false}, Case{0.05, -12, -30, 0.1, 50, true, false},
          Case{0.8, -3, -12, 5, 2000, false, false}, Case{0.5, -15, -20, 10, 60, true, true}}) {
        EffectUnderTest<T> fx("Expander");
        fx.set("ratio", s.ratio).set("highthresh", s.threshold).set("range", s.range);
        fx.set("attack", s.attack).set("release", s.release).set("lookahead", s.lookAhead);
        const Channels<T> in{swells<T>(kFrames, 1), swells<T>(kFrames, 2)};
        const Channels<T> keys{swells<T>(kFrames, 3), swells<T>(kFrames, 4)};
        if (s.ducks) fx.sideChain(keys);
        const auto out = fx.play(in, 480);

        ExpanderModel model{s.threshold,      s.range,           1 / s.ratio - 1,
                            s.attack * 0.001, s.release * 0.001, s.lookAhead ? 96 : 0};
        const auto& key = s.ducks ? keys : in;
        const std::size_t delay = s.lookAhead ? kLookAhead : 0;
        double worst = 0, lowest = 0;
        for (std::size_t i = 0; i < kFrames; ++i) {
            double db = model.gainDb(std::max(std::abs(key[0][i]), std::abs(key[1][i])));
            if (s.ducks) db = s.range - db;
            if (i >= kFrames / 480 * 480 - 480) lowest = std::min(lowest, db);
            const double gain = model.smoothed(db);
            for (std::size_t c = 0; c < 2; ++c) {
                const double x = i >= delay ? double(in[c][i - delay]) : 0;
                worst = std::max(worst, std::abs(gain * x - double(out[c][i])));
            }
        }
        EXPECT_LT(worst, sizeof(T) == 4 ? 1e-5 : 1e-6) << "threshold " << s.threshold;
        EXPECT_NEAR(fx.meter("reduction"), lowest, 0.01);
    }
}

TYPED_TEST(Expander, SteadyLevelsFallBySlopeDownToTheRange)
{
    using T = TypeParam;
    struct Case {
        double ratio, threshold, range, level, expected;  // dB
    };
    for (const auto& s : {Case{0.5, -20, -72, -30, -40}, Case{0.5, -20, -72, -19, -19},
                          Case{0.5, -20, -6, -40, -46}, Case{0.25, -20, -72, -30, -60},
                          Case{1, -20, -72, -50, -50}}) {
        EffectUnderTest<T> fx("Expander");
        fx.set("ratio", s.ratio).set("highthresh", s.threshold).set("range", s.range);
        Signal<T> square(96000);
        for (std::size_t i = 0; i < square.size(); ++i)
            square[i] = T(std::pow(10, s.level / 20) * (i / 40 % 2 ? 1 : -1));
        const auto y = fx.run(square);
        EXPECT_NEAR(db(std::abs(double(y.back()))), s.expected, 0.05) << s.level;
        EXPECT_NEAR(fx.meter("reduction"), s.expected - s.level, 0.05);
    }
}

TYPED_TEST(Expander, GentleSlopeNeverReachesItsRange)
{
    using T = TypeParam;
    // 0.25 dB per dB from -60 dB: silence, which reads -144 dB, is lowered by 21 dB and no more,
    // however long it lasts. Ducking has that much left of the range.
    for (const bool ducks : {false, true}) {
        EffectUnderTest<T> fx("Expander");
        fx.set("ratio", 0.8).set("highthresh", -60).set("range", -72).set("duck", ducks);
        fx.set("release", 50).sideChain({Signal<T>(96000)});
        const auto y = fx.run(constant<T>(96000, 0.1));
        EXPECT_NEAR(fx.meter("reduction"), ducks ? -51 : -21, 0.01);
        EXPECT_NEAR(db(y.back()), ducks ? -71 : -41, 0.01);
    }
}

TYPED_TEST(Expander, RatioOneIsTheDelayedInputBitForBit)
{
    const auto x = noise<TypeParam>(4800);
    this->fx.set("ratio", 1).set("highthresh", 0).prepare(1);
    EXPECT_EQ(this->fx.algorithm().getLatency(), kLookAhead);
    const auto y = this->fx.run(x, 100);
    for (std::size_t i = 0; i < x.size(); ++i)
        ASSERT_EQ(y[i], i < kLookAhead ? TypeParam(0) : x[i - kLookAhead]) << i;
}

TYPED_TEST(Expander, EnvelopeStaysAtFivePercentAboveTheThresholdAndHolds)
{
    using T = TypeParam;
    ExpanderGain<T> gain;
    gain.setSampleRate(kRate);
    gain.setThreshold(-20);
    gain.setRange(-60);
    gain.setSlope(-1);
    gain.setAttack(0.001);
    gain.setRelease(0.05);
    gain.setHold(0.002);
    gain.reset();
    double x[kSubBlock];
    T g[kSubBlock];
    const auto run = [&](double level, int n) {
        std::fill_n(x, n, level);
        gain.run(x, g, n);
    };
    for (int i = 0; i < 300; ++i) {
        run(1, 32);
        ASSERT_LE(gain.envelope(), 0.105 * (1 + 1e-6));
    }
    EXPECT_NEAR(gain.envelope(), 0.105, 1e-6);
    for (int i = 0; i < 3; ++i) run(0, 32);  // 96 frames of hold
    EXPECT_NEAR(gain.envelope(), 0.105, 1e-6);
    run(0, 1);
    EXPECT_LT(gain.envelope(), 0.105 * (1 - 1e-4));
    EXPECT_EQ(g[0], 0);  // still above the threshold

    gain.setAttack(-1);  // at once
    gain.reset();
    run(0.01, 1);
    EXPECT_DOUBLE_EQ(gain.envelope(), 0.01);
    EXPECT_NEAR(g[0], -20, 1e-4);
    EXPECT_NEAR(ExpanderGain<T>::linear(-150), 6.309573444802e-8, 1e-14);
}

TYPED_TEST(Expander, HoldFollowsTheRateInWholeSamples)
{
    using T = TypeParam;
    const auto held = [](ExpanderGain<T>& gain) {  // samples after the last above the threshold
        double x[kSubBlock];
        T g[kSubBlock];
        const auto envelope = [&](double level) {
            x[0] = level;
            gain.run(x, g, 1);
            return gain.envelope();
        };
        for (int i = 0; i < 10; ++i) envelope(1);
        const double peak = gain.envelope();
        int n = 0;
        while (envelope(0) == peak) ++n;
        return n;
    };
    ExpanderGain<T> gain;
    gain.setThreshold(-20);
    gain.setSlope(-1);
    gain.setAttack(-1);
    gain.setRelease(0.05);
    gain.setSampleRate(44100);
    gain.setHold(0.002);
    EXPECT_EQ(held(gain), 88);
    gain.setSampleRate(48000);
    EXPECT_EQ(held(gain), 95);  // 88 48000/44100 = 95.78
    gain.setSampleRate(48000);
    EXPECT_EQ(held(gain), 95);
    gain.setSampleRate(96000);
    EXPECT_EQ(held(gain), 190);
    gain.setHold(0.002);
    EXPECT_EQ(held(gain), 192);
}

TYPED_TEST(Expander, FilterThatComesInDoesNotResumeWhatItHeldLongAgo)
{
    using T = TypeParam;
    // By its switch; or because of a key with fewer channels one filter serves all.
    for (const bool byKey : {false, true}) {
        const auto reduction = [&](double before) {
            EffectUnderTest<T> fx("Expander");
            fx.set("ratio", 0.5).set("highthresh", -30).set("range", -40).set("duck", 0);
            fx.set("attack", 0.1).set("release", 50);
            fx.set("internalside", 1).set("filterlow", 21).prepare(2);
            const Signal<T> silence(96000), start(480);
            fx.play({start, constant<T>(480, before)});
            if (byKey)
                fx.sideChain({silence});
            else
                fx.set("internalside", 0);
            fx.play({silence, silence});
            if (byKey)
                fx.sideChain({});
            else
                fx.set("internalside", 1);
            fx.play({start, start});
            return fx.meter("reduction");
        };
        EXPECT_NEAR(reduction(1), reduction(0), 0.1) << (byKey ? "by its key" : "by its switch");
    }
}

TYPED_TEST(Expander, OneChannelOpensAllAndTheFilterDecidesWhatOpens)
{
    using T = TypeParam;
    const auto loud = sine<T>(48000, 100, kRate), quiet = sine<T>(48000, 1000, kRate, 0.001);
    const auto quietLevel = [&](double lowCut) {
        EffectUnderTest<T> fx("Expander");
        fx.set("ratio", 0.25).set("highthresh", -12).set("range", -40);
        fx.set("internalside", lowCut > 20).set("filterlow", lowCut);
        return db(amplitudeAt(fx.play({loud, quiet})[1], 1000, kRate, 24000, 48000));
    };
    EXPECT_NEAR(quietLevel(20), -60, 0.1);
    EXPECT_NEAR(quietLevel(1000), -100, 0.1);
}

TYPED_TEST(Expander, AutomationDoesNotClick)
{
    using T = TypeParam;
    for (const char* key : {"ratio", "highthresh", "range", "attack", "release", "internalside",
                            "filterlow", "filterhigh", "swapfreqs", "duck"}) {
        EffectUnderTest<T> fx("Expander");
        fx.set("ratio", 0.5).set("highthresh", -10).set("range", -20).prepare(1);
        const auto y = fx.runWhileSwitching(key, sine<T>(4800, 440, kRate, 0.25));
        // The gain reaches another value within 80 us: at 0.25 that moves 0.25 (1 - e^-0.26) at
        // once.
        EXPECT_LT(largestStep(y), 0.25 * 0.24 + 0.0145) << key;
    }
}

}  // namespace
}  // namespace quillworks::test
