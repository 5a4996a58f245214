// SPDX-License-Identifier: ISC
// Multiband Dynamics: idle it is flat, or a pure delay; both parts, their times, what is learned.
#include "dynamics/multiband_dynamics.h"

#include "tests/dynamics/response.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr std::size_t kSecond = 48000;

template <typename T> class Multiband : public ::testing::Test {};
TYPED_TEST_SUITE(Multiband, Precisions);

template <typename T> class Bands : public EffectUnderTest<T> {
public:
    /// Five bands at 100, 500, 2500 and 8000 Hz that do nothing.
    explicit Bands(double rate = kRate) : EffectUnderTest<T>("Multiband Dynamics", rate)
    {
        this->set("bands", 3);
        each("ratio", 1).each("range", 48);
        for (int s = 0; s < 4; ++s)
            this->set("split" + std::to_string(s),
                      std::vector{100, 500, 2500, 8000}[std::size_t(s)]);
    }
    /// The third band around 1 kHz, so wide that nothing leaks.
    Bands& wide()
    {
        this->set("split0", 40).set("split1", 60).set("split2", 16000).set("split3", 16000);
        return *this;
    }
    Bands& each(const std::string& key, double value)
    {
        for (int b = 0; b < 5; ++b) this->set(key + std::to_string(b), value);
        return *this;
    }
};

template <typename T> Signal<T> tone(double frequency, double level, std::size_t frames)
{
    return sine<T>(frames, frequency, kRate, std::pow(10, level / 20));
}

TYPED_TEST(Multiband, IsFlatWhileItDoesNothingWhateverTheBandsAndTheirOrder)
{
    using T = TypeParam;
    Signal<T> impulse(kSecond);
    impulse[0] = 1;
    for (int bands = 0; bands < 4; ++bands)
        for (const double mix : {1.0, 0.5}) {
            Bands<T> fx;
            fx.set("bands", bands).set("mix", mix).set("split1", mix < 1 ? 40 : 500);
            const auto y = fx.run(impulse);
            for (double f = 20; f < 20000; f *= 1.3)
                EXPECT_NEAR(responseAt(y, f, kRate), 0, 0.001) << f << " Hz, mix " << mix;
        }
}

TYPED_TEST(Multiband, LinearIsAPureDelayOfWhatItReportsTheSameAtAllBlockLengths)
{
    using T = TypeParam;
    const auto x = noise<T>(kSecond, 1, 0.5);
    for (const bool looksAhead : {false, true}) {
        Bands<T> fx;
        const auto y = fx.set("phase", 1).set("lookAhead", looksAhead).run(x);
        const auto delay = fx.algorithm().getLatency();
        EXPECT_EQ(delay, looksAhead ? 2496u : 2400u);
        for (std::size_t i = 0; i < kSecond; ++i)
            ASSERT_NEAR(y[i], i < delay ? T(0) : x[i - delay], 1.8e-5 * 0.5) << i;  // -95 dB
    }
    const auto busy = [&](int block) {
        Bands<T> fx;
        fx.each("ratio", 3)
            .each("lowratio", 2)
            .set("phase", 1)
            .set("stereo", 2)
            .set("lookAhead", 1);
        fx.sideChain({x}).prepare(2);
        auto y = fx.play({x, noise<T>(kSecond, 2, 0.1)}, block);
        fx.set("phase", 0).set("bands", 1);
        return std::pair(y, fx.play({x, x}, block));
    };
    const auto whole = busy(4800);
    for (const int block : {1, 7, 33}) EXPECT_EQ(busy(block), whole) << block;
}

TYPED_TEST(Multiband, FollowsFourCurvesWithinRangeAndAmount)
{
    using T = TypeParam;
    struct Case {
        double level, threshold, ratio, lowThreshold, lowRatio, range, amount,
            wanted;  // wanted: dB
    };
    for (const auto& s : {Case{-10, -30, 4, -80, 1, 48, 100, -15},    // compressed
                          Case{-20, -30, 0.5, -80, 1, 48, 100, 10},   // expanded upward
                          Case{-40, 0, 1, -30, 2, 48, 100, -10},      // expanded downward
                          Case{-40, 0, 1, -20, 0.75, 48, 100, 5},     // lifted
                          Case{-10, -30, 4, -80, 1, 12, 100, -12},    // not beyond the range
                          Case{-10, -30, 4, -80, 1, 12, 200, -12},    // nor by the amount
                          Case{-10, -30, 4, -80, 1, 48, 50, -7.5},    // half
                          Case{-40, 0, 1, -20, 3, 15, 200, -15},      // the same below
                          Case{-35, -40, 2, -30, 2, 48, 100, -7.5}})  // both at once
    {
        Bands<T> fx;
        fx.wide().set("bands", 1).set("split1", 16000).set("knee", 0.1);
        fx.set("threshold1", s.threshold).set("ratio1", s.ratio).set("range1", s.range);
        fx.set("lowthreshold1", s.lowThreshold).set("lowratio1", s.lowRatio);
        fx.set("amount", s.amount).set("release1", 20);
        const auto x = tone<T>(1000, s.level, kSecond);
        const auto y = fx.run(x);
        EXPECT_NEAR(db(rms(y, kSecond / 2)) - db(rms(x, kSecond / 2)), s.wanted, 0.1) << s.level;
        EXPECT_NEAR(fx.meter("reduction1"), s.wanted, 0.15);
        EXPECT_TRUE(std::isnan(fx.meter("reduction3")) && std::isnan(fx.meter("bandlevel4")));
    }
}

TYPED_TEST(Multiband, SteadyTonesStayCleanAndDoNotModulateOthers)
{
    using T = TypeParam;
    const auto pressed = [](const Signal<T>& x) {
        Bands<T> fx;
        fx.each("threshold", -30).each("ratio", 4).each("attack", 10).each("release", 120);
        return fx.run(x);
    };
    for (const double f : {40.0, 60.0, 100.0, 1000.0}) {
        const auto y = pressed(tone<T>(f, -6, 4 * kSecond));
        const auto at = [&](double g) {
            return amplitudeAt(y, g, kRate, 3 * kSecond, 4 * kSecond);
        };
        double sum = 0;
        for (int k = 2; k <= 12; ++k) sum += at(k * f) * at(k * f);
        EXPECT_LT(db(std::sqrt(sum) / at(f)), -100) << f;
    }
    auto both = tone<T>(60, -8, 4 * kSecond);
    const auto high = tone<T>(7000, -20, 4 * kSecond);
    for (std::size_t i = 0; i < both.size(); ++i) both[i] += high[i];
    const auto y = pressed(both);
    const auto at = [&](double g) { return amplitudeAt(y, g, kRate, 3 * kSecond, 4 * kSecond); };
    for (int k = 1; k <= 5; ++k)
        EXPECT_LT(db((at(7000 - 60 * k) + at(7000 + 60 * k)) / at(7000)), -110) << k;
}

TYPED_TEST(Multiband, WhatFallsBelowActsWithTheRelease)
{
    using T = TypeParam;
    Bands<T> fx;
    fx.wide().each("lowthreshold", -30).each("lowratio", 2).each("release", 400).each("attack", 1);
    fx.run(tone<T>(2000, -12, kSecond));
    auto y = fx.run(tone<T>(2000, -40, kSecond));
    // 10 dB of reduction: 9 of them after ln 10 of the time constant of 400 ms/2 pi.
    const double wanted = 2.3026 * 0.4 / (2 * std::numbers::pi);
    std::size_t at = 0;
    while (at + 240 < y.size() &&
           db(peak(Signal<T>(y.begin() + std::ptrdiff_t(at),
                             y.begin() + std::ptrdiff_t(at) + 240))) > -40 - 9)
        at += 24;
    EXPECT_NEAR(double(at) / kRate, wanted, 0.2 * wanted);
}

TYPED_TEST(Multiband, MidAndSideAreReducedApartAndLinkedChannelsTogether)
{
    using T = TypeParam;
    const auto mid = tone<T>(1000, -10, kSecond), side = tone<T>(1500, -50, kSecond);
    Channels<T> x(2, mid);
    for (std::size_t i = 0; i < kSecond; ++i) x[0][i] += side[i], x[1][i] -= side[i];
    const auto play = [&](int stereo, const Channels<T>& bus) {
        Bands<T> fx;
        fx.wide().each("threshold", -30).each("ratio", 4).set("stereo", stereo).set("knee", 0.1);
        fx.sideChain(bus).prepare(2);
        const auto y = fx.play(x);
        Signal<T> m(kSecond), s(kSecond);
        for (std::size_t i = 0; i < kSecond; ++i)
            m[i] = (y[0][i] + y[1][i]) / 2, s[i] = (y[0][i] - y[1][i]) / 2;
        return std::pair(db(rms(m, kSecond / 2)) - db(rms(mid, kSecond / 2)),
                         db(rms(s, kSecond / 2)) - db(rms(side, kSecond / 2)));
    };
    const auto apart = play(2, {}), linked = play(0, {}), byBus = play(2, {mid, mid});
    EXPECT_NEAR(apart.first, -15, 0.1);
    EXPECT_NEAR(apart.second, 0, 0.01);
    EXPECT_NEAR(linked.first, linked.second, 0.01);
    EXPECT_NEAR(byBus.first, -15, 0.1) << "a bus of two has a mid";
    EXPECT_NEAR(byBus.second, 0, 0.01) << "and no side";
}

TYPED_TEST(Multiband, LearnsTheMeanOfTheBandsPeaksOverASecond)
{
    using T = TypeParam;
    Bands<T> fx;
    fx.wide().prepare(1);
    const auto x = tone<T>(1000, -17.3, kSecond / 2);
    fx.set("learn", 1).run(x);
    fx.set("learn", 0);
    EXPECT_EQ(fx.get("threshold2"), -24) << "half a second is too short";
    fx.set("learn", 1).run(x);
    fx.run(Signal<T>(kSecond));  // a pause does not count
    EXPECT_TRUE(std::isnan(fx.meter("learned2")));
    fx.run(x);
    fx.run(tone<T>(1000, -17.3, 480));
    EXPECT_NEAR(fx.meter("learned2"), -17.5, 0.3);
    fx.set("learn", 0);
    EXPECT_EQ(fx.get("threshold2"), -17.5);
    EXPECT_EQ(fx.get("threshold4"), -24) << "a band of silence keeps its own";
    fx.set("threshold2", -5).set("learn", 1).set("learn", 0);
    EXPECT_EQ(fx.get("threshold2"), -5) << "every time begins anew";
}

TYPED_TEST(Multiband, LinearDelaysTheBusAsTheAudio)
{
    using T = TypeParam;
    Signal<T> burst(kSecond);
    const auto loud = tone<T>(1000, -6, kSecond), x = tone<T>(1000, -40, kSecond);
    std::copy(loud.begin(), loud.begin() + 4800, burst.begin() + 24000);
    Bands<T> fx;
    fx.wide().each("threshold", -30).each("ratio", 4).each("attack", 0.1).each("release", 5);
    const auto y = fx.set("phase", 1).sideChain({burst}).run(x);
    const auto level = [&](std::size_t at) { return db(rms(y, at, at + 480)); };
    const double before = level(24000 + 2400 - 960);
    EXPECT_NEAR(before, -43, 0.2);
    EXPECT_NEAR(level(24000), -43, 0.1) << "not as early as the bus itself";
    EXPECT_LT(level(24000 + 2400 + 480), before - 15);
}

TYPED_TEST(Multiband, ChangesDoNotClick)
{
    using T = TypeParam;
    for (const char* key : {"bands", "phase", "lookAhead", "stereo", "split1", "gain2", "range2",
                            "bandon2", "mute2", "solo0", "amount", "mix", "lowratio2"}) {
        Bands<T> fx;
        fx.each("threshold", -30).each("ratio", 4).prepare(2);
        const auto y = fx.runWhileSwitching(key, sine<T>(9600, 440, kRate, 0.25));
        const double loudest = std::max(0.25, double(peak(y)));
        EXPECT_LT(largestStep(y), loudest * (0.0576 + 0.03)) << key;
    }
}

TEST(MultibandPrecision, FloatIsCloseToDoubleWhileIdle)
{
    for (const auto& [rate, bar] : {std::pair{48000.0, -115.0}, {384000.0, -105.0}}) {
        const auto x = sine<double>(std::size_t(rate), 40, rate, 0.5);
        const auto f = Bands<float>(rate).run(as<float>(x));
        const auto d = Bands<double>(rate).run(x);
        EXPECT_LT(peakDifferenceDb(f, d) - db(0.5), bar) << rate;
    }
}

}  // namespace
}  // namespace quillworks::test
