// SPDX-License-Identifier: ISC
// The dual pan: the matrix of its settings, the bass of the side, and the guard of the fold.
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> class DualPan : public ::testing::Test {
protected:
    EffectUnderTest<T> fx{"Dual Pan"};
    Channels<T> stereo{noise<T>(9600, 1), noise<T>(9600, 2)};
};
TYPED_TEST_SUITE(DualPan, Precisions);

TYPED_TEST(DualPan, OutputIsTheMatrixOfTheSettings)
{
    const double h = std::sqrt(0.5), c = std::cos(std::numbers::pi / 6), s = 0.5;
    struct Case {
        std::vector<std::pair<const char*, double>> settings;
        double m[2][2];  // output = m * input
    };
    const Case cases[] = {
        {{{"spread", 0}}, {{h, h}, {h, h}}},
        {{{"spread", 0}, {"law", 1}}, {{0.594604, 0.594604}, {0.594604, 0.594604}}},  // -4.515 dB
        {{{"spread", 0}, {"law", 2}}, {{0.5, 0.5}, {0.5, 0.5}}},
        {{{"spread", 0}, {"law", 4}}, {{1, 1}, {1, 1}}},
        {{{"law", 4}}, {{std::sqrt(2.), 0}, {0, std::sqrt(2.)}}},
        {{{"position", 50}, {"law", 3}}, {{1, 0}, {0.5, 1}}},  // the right one is there already
        {{{"spread", 50}, {"position", 50}, {"law", 2}}, {{0.5, 0}, {0.5, 1}}},
        {{{"spread", -100}, {"levelleft", -48}}, {{0, 1}, {0, 0}}},
        {{{"width", 0}, {"levelright", -6}}, {{0.5, 0.250594}, {0.5, 0.250594}}},
        {{{"width", 200}}, {{1.5, -0.5}, {-0.5, 1.5}}},
        {{{"rotate", 30}}, {{c, -s}, {s, c}}},
        {{{"rotate", 30}, {"width", 0}}, {{(c - s) / 2, (c - s) / 2}, {(c + s) / 2, (c + s) / 2}}},
    };
    for (const auto& test : cases) {
        EffectUnderTest<TypeParam> fx("Dual Pan");
        for (const auto& [key, value] : test.settings) fx.set(key, value);
        const auto& x = this->stereo;
        const auto y = fx.play(x);
        for (std::size_t i = 0; i < y[0].size(); ++i)
            for (std::size_t o = 0; o < 2; ++o)
                ASSERT_NEAR(y[o][i], test.m[o][0] * x[0][i] + test.m[o][1] * x[1][i], 1e-6)
                    << "case " << &test - cases << " frame " << i;
    }
}

TYPED_TEST(DualPan, DefaultsAndTradedSidesAreTheInputBitForBit)
{
    EXPECT_EQ(this->fx.play(this->stereo, 100), this->stereo);
    EffectUnderTest<TypeParam> traded("Dual Pan");
    const auto once = traded.set("spread", -100).play(this->stereo, 100);
    EXPECT_EQ(once, (Channels<TypeParam>{this->stereo[1], this->stereo[0]}));
    traded.set("spread", 100).set("monobass", 90).set("guard", 1).play(once);
    traded.set("monobass", 0).set("guard", 0);
    for (int i = 0; i < 6; ++i) traded.play(this->stereo);
    EXPECT_EQ(traded.play(this->stereo), this->stereo) << "after glides";
}

TYPED_TEST(DualPan, OneChannelIsHeardOnBothSidesAndPannedAsThem)
{
    const auto mono = VNK::SpeakerArrangement::withChannels(1);
    this->fx.layouts(mono, VNK::SpeakerArrangement::withChannels(2));
    const auto x = this->stereo[0];
    const auto y = this->fx.set("spread", 50).prepare().play({x}, 77);
    const double gain = std::cos(std::numbers::pi / 8) + std::sin(std::numbers::pi / 8);
    for (std::size_t i = 0; i < x.size(); ++i)
        for (const auto& out : y) ASSERT_NEAR(out[i], gain * x[i], 1e-6) << i;
    this->fx.set("bypass", 1).play({x});
    EXPECT_EQ(this->fx.play({x}), (Channels<TypeParam>{x, x}));
}

TYPED_TEST(DualPan, MonoBassFiltersTheSideAndLeavesTheFold)
{
    this->fx.set("monobass", 200);
    const auto fold = [](const Channels<TypeParam>& x, std::size_t i, double side) {
        return (double(x[0][i]) + side * double(x[1][i])) / 2;
    };
    const auto y = this->fx.play(this->stereo, 77);
    for (std::size_t i = 0; i < y[0].size(); ++i)
        ASSERT_NEAR(fold(y, i, 1), fold(this->stereo, i, 1), 1e-6) << i;
    for (const auto& [frequency, gain] : {std::pair{50., -24.1}, std::pair{200., -3.01}}) {
        const auto tone = sine<TypeParam>(48000, frequency, 48000);
        auto inverted = tone;
        for (auto& v : inverted) v = -v;
        const auto side = this->fx.play({tone, inverted});
        EXPECT_NEAR(db(rms(side[0], 24000) / rms(tone, 24000)), gain, 0.05) << frequency;
    }
}

TYPED_TEST(DualPan, GuardHoldsTheCorrelationAtZeroUntilTheSideIsTwelveDecibelsDown)
{
    const auto mid = noise<TypeParam>(96256, 3), side = noise<TypeParam>(96256, 4);
    for (const auto& [given, held] : {std::pair{0.5, 0.5}, {-0.3, 0.}, {-0.6, 0.}, {-0.9, -0.09}}) {
        const double m = std::sqrt((1 + given) / 2), s = std::sqrt((1 - given) / 2);
        Channels<TypeParam> x(2, mid);
        for (std::size_t i = 0; i < mid.size(); ++i) {
            x[0][i] = static_cast<TypeParam>(m * double(mid[i]) + s * double(side[i]));
            x[1][i] = static_cast<TypeParam>(m * double(mid[i]) - s * double(side[i]));
        }
        EffectUnderTest<TypeParam> fx("Dual Pan");
        const auto y = fx.set("guard", 1).play(x);
        double xy = 0, power = 0;
        for (std::size_t i = 48000; i < mid.size(); ++i) {
            xy += double(y[0][i]) * double(y[1][i]);
            power += (double(y[0][i]) * double(y[0][i]) + double(y[1][i]) * double(y[1][i])) / 2;
        }
        EXPECT_NEAR(xy / power, held, 0.02) << given;
        EXPECT_NEAR(fx.meter("correlation"), held, 0.05) << given;
        EXPECT_NEAR(fx.meter("guardgain"), std::clamp(db(m / s), -12., 0.), 0.5) << given;
        const Signal<TypeParam> last(y[0].end() - 512, y[0].end());
        EXPECT_NEAR(fx.meter("outpeak0"), db(peak(last)), 1e-4) << given;
    }
}

TYPED_TEST(DualPan, AutomationOfAnyParameterMakesNoStep)
{
    const Channels<TypeParam> x{sine<TypeParam>(2400, 1000, 48000),
                                sine<TypeParam>(2400, 1000, 48000, 1, 2)};
    for (const char* key : {"panleft", "panright", "position", "spread", "levelleft", "levelright",
                            "law", "width", "rotate", "monobass", "guard"}) {
        EffectUnderTest<TypeParam> fx("Dual Pan");
        VNK::ParameterInfo info;
        fx.prepare(2, 480).component().getParameter(fx.indexOf(key), info);
        Channels<TypeParam> y(2);
        for (int turn = 0; turn < 6; ++turn) {
            const auto part = fx.set(key, turn % 2 ? info.minimum : info.maximum).play(x, 37);
            for (std::size_t c = 0; c < 2; ++c)
                y[c].insert(y[c].end(), part[c].begin(), part[c].end());
        }
        for (const auto& out : y)
            EXPECT_LE(largestStep(out), 0.15 * std::max(1.0, peak(out))) << key;
    }
}

}  // namespace
}  // namespace quillworks::test
