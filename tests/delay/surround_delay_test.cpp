// SPDX-License-Identifier: ISC
// Surround delay: ways that lose nothing in any layout, and echoes that take them to the sample.
#include <set>

#include "delay/echo_pattern.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

using VNK::Speaker;

VNK::SpeakerArrangement layoutOf(const char* name)
{
    VNK::SpeakerArrangement layout;
    EXPECT_TRUE(VNK::SpeakerArrangement::named(name, layout)) << name;
    return layout;
}

TEST(EchoOrder, NamesEverySpeakerOnceInEveryLayout)
{
    for (const char* name : {"mono", "stereo", "lcr", "quad", "5.0", "5.1", "7.0", "7.1", "5.1.4",
                             "7.1.2", "7.1.4", "9.1.6", "3", "8", "16"}) {
        const auto layout = layoutOf(name);
        const SpeakerField field(layout);
        const int centre = layout.find(Speaker::C);
        for (int pattern = 0; pattern < kEchoPatterns; ++pattern)
            for (const int without : {-1, centre}) {
                const auto to = echoOrder(field, static_cast<EchoPattern>(pattern), without);
                EXPECT_EQ(std::set<int>(to.begin(), to.end()).size(), to.size()) << name << pattern;
                EXPECT_EQ(int(to.size()), layout.channels);
                if (without >= 0) {
                    EXPECT_EQ(to[std::size_t(without)], without);
                }
                for (int c = 0; c < layout.channels; ++c)
                    EXPECT_TRUE(!field[c].isLfe || to[std::size_t(c)] == c) << name << pattern;
            }
    }
}

TEST(EchoOrder, TakesTheWaysThatItsNamesSay)
{
    const auto layout = layoutOf("7.1.4");
    const SpeakerField field(layout);
    using enum Speaker;
    struct Row {
        EchoPattern pattern;
        std::vector<std::vector<Speaker>> rings;
    };
    for (const Row& row : {
             Row{EchoPattern::Clockwise, {{R, Rs, Rrs, Lrs, Ls, L}, {Rtf, Rtr, Ltr, Ltf}}},
             Row{EchoPattern::Anticlockwise, {{L, Ls, Lrs, Rrs, Rs, R}, {Ltf, Ltr, Rtr, Rtf}}},
             Row{EchoPattern::FrontToBack, {{L, Ls, Lrs}, {R, Rs, Rrs}, {Ltf, Ltr}, {Rtf, Rtr}}},
             Row{EchoPattern::SideToSide, {{L, R}, {Ls, Rs}, {Lrs, Rrs}, {Ltf, Rtf}, {Ltr, Rtr}}},
             Row{EchoPattern::Opposite, {{R, Lrs}, {Rs, Ls}, {Rrs, L}, {Rtf, Ltr}, {Rtr, Ltf}}},
             Row{EchoPattern::Zigzag, {{R, Rtf, Rs, Rrs, Rtr, Lrs, Ltr, Ls, Ltf, L}}},
             Row{EchoPattern::UpAndDown, {{Rtf, R}, {Rtr, Rrs}, {Ltr, Lrs}, {Ltf, L}, {Rs}, {Ls}}},
         }) {
        const auto to = echoOrder(field, row.pattern, layout.find(C));
        for (const auto& ring : row.rings)
            for (std::size_t i = 0; i < ring.size(); ++i)
                EXPECT_EQ(layout.speakers[to[std::size_t(layout.find(ring[i]))]],
                          ring[(i + 1) % ring.size()])
                    << int(row.pattern) << " " << i;
    }
}

template <typename T> class SurroundDelay : public ::testing::Test {
protected:
    /// Echoes alone, every 2400 frames, without filters or ducking.
    static EffectUnderTest<T> bare(const VNK::SpeakerArrangement& layout)
    {
        EffectUnderTest<T> fx("Surround Delay", 48000, layout.channels);
        fx.layout(layout).set("locut", 20).set("hicut", 16000).set("duck", 0).set("mix", 100);
        fx.set("sync", 0).set("time", 50).prepare(layout.channels);
        return fx;
    }
    static Channels<T> silence(const VNK::SpeakerArrangement& layout, std::size_t frames)
    {
        return Channels<T>(std::size_t(layout.channels), Signal<T>(frames));
    }
};
TYPED_TEST_SUITE(SurroundDelay, Precisions);

TYPED_TEST(SurroundDelay, EachRepeatIsInOneSpeakerAsLoudAsTheFeedbackSays)
{
    using T = TypeParam;
    const auto layout = layoutOf("7.1.4");
    const SpeakerField field(layout);
    for (int pattern = 0; pattern < kEchoPatterns; ++pattern) {
        auto fx = this->bare(layout);
        fx.set("pattern", pattern).set("feedback", 70).set("lfe", 0);
        const int first = pattern % 2 ? layout.find(Speaker::Ls) : layout.find(Speaker::Rtr);
        auto x = this->silence(layout, 24000);
        x[std::size_t(first)][7] = 1;
        const auto y = fx.play(x, 777);
        auto wanted = this->silence(layout, 24000);
        const auto to =
            echoOrder(field, static_cast<EchoPattern>(pattern), layout.find(Speaker::C));
        double height = 1;
        int at = first;
        for (std::size_t k = 1; k < 10; ++k) {
            const T heard = y[std::size_t(at)][7 + 2400 * k];
            EXPECT_NEAR(db(double(heard) / height), 0, 0.01) << pattern << " " << k;
            wanted[std::size_t(at)][7 + 2400 * k] = heard;
            at = to[std::size_t(at)];
            height *= 0.7;
        }
        EXPECT_EQ(y, wanted) << pattern << ": something else sounds";
    }
}

TYPED_TEST(SurroundDelay, TheRearAnswersLaterTheCentreStaysFreeAndLfeIsItsOwn)
{
    using T = TypeParam;
    const auto layout = layoutOf("5.1");
    const auto at = [&](Speaker s) { return std::size_t(layout.find(s)); };
    auto fx = this->bare(layout);
    fx.set("pattern", 0).set("stagger", 50).set("feedback", 0).set("lfe", -6);
    auto x = this->silence(layout, 4800);
    x[at(Speaker::C)][0] = x[at(Speaker::Ls)][0] = x[at(Speaker::LFE)][0] = 1;
    const auto y = fx.play(x);
    auto wanted = this->silence(layout, 4800);
    const auto delay = [](double azimuth) {
        const double rear = (1 - std::cos(azimuth * std::numbers::pi / 180)) / 2;
        return std::size_t(2400 * (1 + 0.5 * rear) + 0.5);
    };
    wanted[at(Speaker::L)][delay(30)] = wanted[at(Speaker::R)][delay(30)] = T(std::sqrt(0.5));
    wanted[at(Speaker::Ls)][delay(110)] = 1;
    wanted[at(Speaker::LFE)][2400] = T(std::pow(10, -0.3));
    EXPECT_LT(peakDifferenceDb(y, wanted), -130);
    EXPECT_EQ(fx.meter("longestdelay"), float(delay(110)));
    const auto z = fx.set("centre", 1).play(this->silence(layout, 4800));
    EXPECT_EQ(peak(z[at(Speaker::C)]), 0);
    EXPECT_EQ(peak(fx.play(x)[at(Speaker::C)]), 1) << "switched on it has its own";
}

TYPED_TEST(SurroundDelay, APointIsTheMiddleOfAllWithThePowerOfOne)
{
    using T = TypeParam;
    const auto layout = layoutOf("7.1.4");
    auto fx = this->bare(layout);
    fx.set("source", 1).set("pattern", 0).set("feedback", 0);
    std::mt19937 random(kSeed);
    for (int turn = 0; turn < 40; ++turn) {
        fx.set("start", double(random() % 361) - 180).set("startheight", int(random() % 91));
        fx.set("centre", turn % 2).play(this->silence(layout, 9600));
        auto x = this->silence(layout, 4800);
        for (const Speaker s : {Speaker::C, Speaker::L, Speaker::Rtr})
            x[std::size_t(layout.find(s))][0] = T(0.5);  // of two of them half counts
        double power = 0;
        const auto y = fx.play(x);
        for (const auto& out : y) power += double(out[2400]) * double(out[2400]);
        EXPECT_NEAR(std::sqrt(power), 1, 1e-5) << turn;
        EXPECT_TRUE(turn % 2 || peak(y[std::size_t(layout.find(Speaker::C))]) == 0) << turn;
    }
    fx.set("start", 30).set("startheight", 0).play(this->silence(layout, 9600));
    auto x = this->silence(layout, 4800);
    x[std::size_t(layout.find(Speaker::C))][0] = 1;
    const auto y = fx.play(x);
    EXPECT_NEAR(y[std::size_t(layout.find(Speaker::R))][2400], 1, 1e-6) << "clockwise is right";
    x[std::size_t(layout.find(Speaker::C))][0] = 0;
    x[std::size_t(layout.find(Speaker::LFE))][0] = 1;
    for (const auto& out : fx.play(x)) EXPECT_EQ(peak(out), 0) << "LFE keeps its own";
}

TYPED_TEST(SurroundDelay, AFrozenRingRepeatsBitByBit)
{
    using T = TypeParam;
    const auto layout = layoutOf("5.1");
    auto fx = this->bare(layout);
    fx.set("locut", 120).set("hicut", 7000).set("stagger", 30).set("feedback", 60);
    Channels<T> x(6);
    for (std::uint32_t c = 0; c < 6; ++c) x[c] = noise<T>(9600, c, 0.3);
    fx.play(x);
    fx.set("freeze", 1).play(x);
    // The ring of four without the centre: once through L and R, and through Ls and Rs.
    const auto samples = [](double azimuth) {
        const double rear = (1 - std::cos(azimuth * std::numbers::pi / 180)) / 2;
        return std::size_t(2400 * (1 + 0.3 * rear) + 0.5);
    };
    const std::size_t round = 2 * (samples(30) + samples(110));
    for (auto& s : x) s.resize(3 * round, T(0.1));
    const auto y = fx.play(x, 1000);
    for (const auto& out : y) {
        for (std::size_t i = round; i < out.size(); ++i) ASSERT_EQ(out[i], out[i - round]) << i;
    }
    EXPECT_GT(rms(y[0]), 0.01);
}

}  // namespace
}  // namespace quillworks::test
