// SPDX-License-Identifier: ISC
// The gate against its law on paper, and what its users rely on: no chatter, no click, no loss.
#include "dynamics/gate.h"

#include <algorithm>

#include "dsp/svf.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr std::size_t kSecond = 48000;

/// The law sample by sample. Decibels and frames.
struct GateModel {
    double threshold, hysteresis, range;
    int attack, hold, release;
    bool ducks = false, isOpen = false;
    int left = 0, frame = 0, length = 0;
    double gain = 0, from = 0, to = 0;
    bool inDb = false;

    static double decibels(double g) { return g > 0 ? std::max(-96.0, db(g)) : -96; }
    double aim() const { return isOpen != ducks ? 1 : range <= -96 ? 0 : std::pow(10, range / 20); }
    void start(int frames, bool isInDb)
    {
        inDb = isInDb;
        from = gain;
        to = aim();
        length = from == to ? 0 : frames;
        frame = 0;
    }
    double next(double key)
    {
        if (!isOpen && key >= std::pow(10, threshold / 20)) {
            isOpen = true;
            left = hold;
            start(attack, false);
        } else if (isOpen) {
            left = key >= std::pow(10, (threshold - hysteresis) / 20) ? hold : left - 1;
            if (left == 0) {
                isOpen = false;
                start(release, true);
            }
        }
        if (frame == length && gain != aim()) start(960, true);
        if (frame == length) return gain;
        const double s = 0.5 - 0.5 * std::cos(std::numbers::pi * ++frame / length);
        if (frame == length) return gain = to;
        if (inDb)
            return gain = std::pow(10, (decibels(from) + (decibels(to) - decibels(from)) * s) / 20);
        return gain = from + (to - from) * s;
    }
};

template <typename T> class Gate : public ::testing::Test {};
TYPED_TEST_SUITE(Gate, Precisions);

TYPED_TEST(Gate, FollowsItsLawSampleBySample)
{
    using T = TypeParam;
    struct Case {
        double threshold, hysteresis, range, attack, hold, release, lowCut;  // ms, Hz
        bool ducks;
    };
    for (const auto& s :
         {Case{-20, 6, -60, 0.5, 20, 150, 0, false},
          Case{-12, 0, -96, 5, 0, 3, 16000, false},  // holds for two frames
          Case{-15, 3, -12, 20, 0, 40, 400, true}, Case{-6, 12, 0, 0.01, 3, 1, 0, false}}) {
        GateGain<T> gate;
        gate.setSampleRate(kRate);
        gate.setThreshold(s.threshold, s.hysteresis);
        gate.setRange(s.range);
        gate.setDuck(s.ducks);
        gate.setTimes(s.attack * 0.001, s.hold * 0.001, s.release * 0.001, s.lowCut);
        gate.reset();
        const auto frames = [](double ms) { return std::max(1, int(ms * 48 + 0.5)); };
        const double gap = s.lowCut > 0 ? std::min(12.5, 625 / s.lowCut) : 12.5;
        GateModel model{s.threshold,
                        s.hysteresis,
                        s.range,
                        frames(s.attack),
                        frames(std::max(s.hold, gap)),
                        frames(s.release)};
        model.ducks = s.ducks;
        model.gain = model.aim();

        std::mt19937 random(1);
        const auto hiss = noise<double>(4 * kSecond, 1, 1);
        double worst = 0;
        for (std::size_t at = 0; at < hiss.size();) {
            const auto n = std::min<std::size_t>(1 + random() % 32, hiss.size() - at);
            if (at / 10000 != (at + n) / 10000)
                gate.setRange(model.range = -60 + double(at / 10000));
            double key[kSubBlock], peak = 0;
            T gain[kSubBlock];
            for (std::size_t i = 0; i < n; ++i) {
                const double swell = -1.5 + 1.5 * std::sin(double(at + i) * 0.0007);
                key[i] = std::abs(hiss[at + i]) * std::pow(10, swell);
                peak = std::max(peak, key[i]);
            }
            const bool isConstant = gate.run(key, peak, gain, int(n));
            for (std::size_t i = 0; i < n; ++i) {
                const double expected = model.next(key[i]);
                worst = std::max(worst, std::abs(expected - gain[isConstant ? 0 : i]));
            }
            at += n;
        }
        EXPECT_LT(worst, sizeof(T) == 4 ? 4e-6 : 1e-12) << "threshold " << s.threshold;
    }
}

/// The gate of the measurements: -20 dB, down to -60 dB, 0.5 and 150 ms, no hold of its own.
template <typename T> EffectUnderTest<T> plainGate(double hysteresis = 0, int lookAhead = 0)
{
    EffectUnderTest<T> fx("Gate");
    fx.set("threshold", -20).set("hysteresis", hysteresis).set("range", -60).set("attack", 0.5);
    fx.set("hold", 0).set("release", 150).set("lookahead", lookAhead).prepare(1);
    return fx;
}

TYPED_TEST(Gate, OpenItIsTheDelayedInputBitForBitAndASteadyToneKeepsItOpen)
{
    using T = TypeParam;
    for (const double frequency : {40.0, 60.0, 1000.0})
        for (const int lookAhead : {0, 3}) {
            auto fx = plainGate<T>(0, lookAhead);
            const auto x = sine<T>(kSecond, frequency, kRate, std::pow(10, -19.7 / 20));
            const auto y = fx.run(x, 100);
            const auto delay = fx.algorithm().getLatency();
            EXPECT_EQ(delay, lookAhead == 0 ? 0u : 480u);
            for (std::size_t i = kSecond / 10; i < kSecond; ++i)
                ASSERT_EQ(y[i], x[i - delay]) << frequency << " Hz, " << i;
        }
}

TYPED_TEST(Gate, OpensOnceForATremoloThatFallsThroughTheThreshold)
{
    using T = TypeParam;
    for (const double depth : {1.0, 3.0}) {
        auto fx = plainGate<T>(6);
        int openings = 0;
        bool wasOpen = false;
        for (std::size_t at = 0; at < 8 * kSecond; at += 32) {
            Signal<T> x(32);
            for (std::size_t i = 0; i < 32; ++i) {
                const double t = double(at + i) / kRate;
                const double level = -10 - 4 * t + depth * std::sin(2 * std::numbers::pi * 5 * t);
                x[i] = T(std::pow(10, level / 20) * std::sin(2 * std::numbers::pi * 80 * t));
            }
            fx.run(x);
            const bool isOpen = fx.meter("gatestate") != 0;
            openings += isOpen && !wasOpen;
            wasOpen = isOpen;
        }
        EXPECT_EQ(openings, 1) << depth;
        EXPECT_FALSE(wasOpen);
    }
}

/// Peak above 2 kHz in dB of the level given, from frame `from` on.
template <typename T> double splash(const Signal<T>& x, double level, std::size_t from = 0)
{
    SvfState state[4];
    double most = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        double v = x[i];
        for (int s = 0; s < 4; ++s)
            v = state[s].highPass(SvfCoefficients::at(2000, kRate, kButterworth4Q[s % 2]), v);
        if (i >= from) most = std::max(most, std::abs(v));
    }
    return db(most / level);
}

TYPED_TEST(Gate, OpensAndClosesWithoutASplash)
{
    using T = TypeParam;
    struct Case {
        int lookAhead;
        double attack, bar;  // ms, dB
    };
    // 60 Hz at -6 dB comes up within 5 ms, and falls to -28 dB in as long.
    for (const auto& s : {Case{0, 0.5, -36}, Case{1, 0.5, -58}, Case{1, 2, -70}, Case{3, 8, -73}})
        for (const double phase : {0.0, 0.5 * std::numbers::pi}) {
            const double high = 0.5, low = std::pow(10, -28 / 20.0);
            auto x = sine<T>(kSecond, 60, kRate, 1, phase);
            for (std::size_t i = 0; i < x.size(); ++i) {
                const auto course = [&](double at) {  // 0 to 1
                    const double t = std::clamp((double(i) - at) / 240, 0., 1.);
                    return 0.5 - 0.5 * std::cos(std::numbers::pi * t);
                };
                x[i] *= T(high * course(4800) + (low - high) * course(kSecond / 2));
            }
            auto fx = plainGate<T>(6, s.lookAhead);
            const auto y = fx.set("attack", s.attack).run(x);
            const Signal<T> opening(y.begin(), y.begin() + kSecond / 2 - 2400);
            EXPECT_LT(splash(opening, high), s.bar) << s.lookAhead << ", " << s.attack << " ms";
            EXPECT_LT(splash(y, low, kSecond / 2 - 2400), -52);
            EXPECT_EQ(fx.meter("gatestate"), 0);
        }
}

TYPED_TEST(Gate, TakesTheTimesSetAndTellsItsState)
{
    using T = TypeParam;
    auto fx = plainGate<T>(6);
    fx.set("attack", 5).set("hold", 20);
    const auto opening = fx.run(constant<T>(4800, 0.5), 1);
    std::size_t frames = 0;
    while (opening[frames] != T(0.5)) ++frames;
    EXPECT_EQ(frames + 1, 240u);
    EXPECT_EQ(fx.meter("gatestate"), 2);
    EXPECT_NEAR(fx.meter("keylevel"), -6.02, 0.01);
    const auto closing = fx.run(constant<T>(48000, 0.01), 1);
    frames = 0;
    while (closing[frames] == T(0.01)) ++frames;
    EXPECT_EQ(frames, 959u);
    EXPECT_EQ(closing.back(), T(0.01) * T(0.001));
    EXPECT_EQ(fx.meter("reduction"), -60);
    EXPECT_EQ(fx.meter("gatestate"), 0);
}

TYPED_TEST(Gate, WhatPassesAndWhatIsRemovedAddUpToTheInput)
{
    using T = TypeParam;
    const Channels<T> x{noise<T>(kSecond, 1, 0.3), noise<T>(kSecond, 2, 0.01)};
    const auto listen = [&](int what) {
        EffectUnderTest<T> fx("Gate");
        fx.set("threshold", -20).set("sidechainfreqhigh", 200).set("listen", what);
        return fx.play(x);
    };
    const auto kept = listen(0), removed = listen(2);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 96; i < kSecond; ++i)
            ASSERT_NEAR(kept[c][i] + removed[c][i], x[c][i - 96], 1e-7);
}

TYPED_TEST(Gate, EveryChannelOfTheBusOpensAndAMonoBusIsHeardInAll)
{
    using T = TypeParam;
    const auto loud = sine<T>(kSecond, 1000, kRate), x = noise<T>(kSecond, 1, 0.001);
    EffectUnderTest<T> fx("Gate");
    fx.set("lookahead", 0).sideChain({Signal<T>(kSecond), Signal<T>(kSecond), loud});
    EXPECT_EQ(fx.run(x).back(), x.back());

    // 24 dB per octave on either side.
    for (const auto& [key, frequency] :
         {std::pair{"sidechainfreqhigh", 250.0}, std::pair{"sidechainfreqlow", 4000.0}}) {
        EffectUnderTest<T> mono("Gate");
        mono.set(key, frequency).set("listen", 1).sideChain({loud});
        const auto y = mono.play({x, x});
        EXPECT_EQ(y[0], y[1]);
        EXPECT_NEAR(db(amplitudeAt(y[1], 1000, kRate, 24000, 48000)), -48.2, 1) << key;

        EffectUnderTest<T> own("Gate");  // channels that are filtered two at a time: the same bits
        EXPECT_EQ(own.set(key, frequency).set("listen", 1).play({x, loud})[1], y[1]);
    }
}

TYPED_TEST(Gate, AutomationDoesNotClick)
{
    using T = TypeParam;
    for (const char* key : {"range", "lookahead", "sidechainfreqlow", "listen", "duck"}) {
        auto fx = plainGate<T>(6);
        const auto y = fx.set("attack", 20).runWhileSwitching(key, sine<T>(4800, 440, kRate, 0.25));
        EXPECT_LT(largestStep(y), 0.25 * 1.1 / 32 + 0.0145) << key;
    }
}

}  // namespace
}  // namespace quillworks::test
