// SPDX-License-Identifier: ISC
// What all echo effects owe: loops that never run away, and tempos that move unheard.
#include "tests/support/effect_under_test.h"
#include "tests/support/pitch.h"

namespace quillworks::test {
namespace {

constexpr const char* kEffects[] = {"Beat Delay", "Surround Delay"};
constexpr const char* kAll[] = {"Beat Delay", "Surround Delay", "Groove Delay"};

/// The echo alone, once per pass of the loop.
template <typename T> EffectUnderTest<T> plainEcho(const char* name, double beats, int channels)
{
    EffectUnderTest<T> fx(name, 48000, channels);
    fx.set("duck", 0).set("mix", 100).set("locut", 20).set("hicut", 16000);
    if (name != std::string("Groove Delay")) return std::move(fx.set("beatsnu", beats));
    for (int i = 1; i < 4; ++i) fx.set("tapon" + std::to_string(i), 0);
    fx.set("grid", beats).set("swing", 50).set("length", 1);
    fx.set("tapstep0", 1).set("taplevel0", 0).set("tappan0", 0);
    return fx;
}

template <typename T> class EchoEffects : public ::testing::Test {};
TYPED_TEST_SUITE(EchoEffects, Precisions);

TYPED_TEST(EchoEffects, NeverRunAway)
{
    using T = TypeParam;
    for (const char* name : kEffects) {
        double loudest = 0;
        for (std::uint32_t seed = 1; seed <= 12; ++seed) {
            EffectUnderTest<T> fx(name, seed % 2 ? 48000 : 8000, 2);
            std::mt19937 random(seed);
            const auto draw = [&] { return std::uniform_real_distribution<float>(0, 1)(random); };
            fx.prepare(2, 480);
            Channels<T> x{noise<T>(24000, seed, 8), noise<T>(24000, seed + 50, 8)};
            for (std::size_t i = 0; i < 6000; ++i) x[0][i] = i / 50 % 2 ? T(8) : T(-8);
            x[1][7000] = std::numeric_limits<T>::quiet_NaN();
            x[0][7100] = T(1e30);
            auto y = x;
            for (int at = 0; at < 24000; at += 480) {
                const auto i =
                    static_cast<int>(random() % unsigned(fx.component().countParameters()));
                VNK::ParameterInfo p;
                fx.component().getParameter(i, p);
                const float place = draw();  // squared: short times, which fill the loop
                if (p.isAutomatable() && !p.has(VNK::isBypass))
                    fx.component().setValue(i, fx.component().fromNormalized(i, place * place));
                fx.set("feedback", 100).set("mix", 100).set("duck", 0).set("sync", 0);
                fx.processBlock(x, y, at, 480);
            }
            for (const auto& out : y) {
                ASSERT_TRUE(isFinite(out)) << name << " " << seed;
                loudest = std::max(loudest, peak(out));
            }
        }
        EXPECT_LE(loudest, 6) << name;
        EXPECT_GT(loudest, 1.9) << "else nothing was tried with " << name;
    }
}

/// The echo of a tone while the tempo goes from 120 to 130 at 1 s, within `seconds`.
template <typename T>
Signal<T> followed(const char* name, double frequency, double seconds, std::size_t frames)
{
    auto fx = plainEcho<T>(name, 0.5, 1);
    fx.set("feedback", 0).prepare(1, 96);
    const Channels<T> x{sine<T>(frames, frequency, 48000, 0.5)};
    auto y = x;
    for (int at = 0; at < int(frames); at += 96) {
        fx.tempo(120 + 10 * std::clamp((at / 48000.0 - 1) / seconds, 0.0, 1.0));
        fx.processBlock(x, y, at, 96);
    }
    return y[0];
}

TYPED_TEST(EchoEffects, NeitherClickNorBendWhileTheTempoMoves)
{
    using T = TypeParam;
    for (const char* name : kAll) {
        for (const double f : {523.0, 440.7, 997.3, 1733.1}) {
            const auto y = followed<T>(name, f, 1e-3, 57600);
            const auto tone = sine<T>(4800, f, 48000, 0.5);
            EXPECT_LT(largestStep(y, 40000) / largestStep(tone), 1.02 + 40 / f) << name << f;
            if (f == 523.0) continue;
            EXPECT_LT(worstAbove(y, 4 * f, 48000, 47040, 50400) - db(rms(tone)), -60) << name << f;
        }
        for (const double f : {311.0, 441.0, 699.0, 997.0, 1175.0}) {
            const auto pitch = pitchOf(followed<T>(name, f, 2, 144000), f, 48000, 48000, 144000);
            EXPECT_LE(pitch.offShare, 0.16) << name << f;
            EXPECT_LE(std::abs(pitch.meanCents), 8) << name << f;
        }
    }
}

TYPED_TEST(EchoEffects, AreNoLouderInAnyPassThanBeforeAtFullFeedback)
{
    using T = TypeParam;
    for (const char* name : kAll)
        for (const bool filtered : {false, true}) {
            auto fx = plainEcho<T>(name, 0.125, 2);
            fx.set("feedback", 100);
            fx.set("locut", filtered ? 120 : 20).set("hicut", filtered ? 7000 : 16000);
            fx.play({noise<T>(6000, 1), noise<T>(6000, 2)});
            double before = 1;
            for (int pass = 0; pass < 12; ++pass) {
                const auto y = fx.play({Signal<T>(6000), Signal<T>(6000)});
                const double now = std::hypot(rms(y[0]), rms(y[1]));
                EXPECT_LE(now, before * (1 + 1e-6)) << name << filtered << " " << pass;
                before = now;
            }
            EXPECT_GT(before, 0.05);
        }
}

}  // namespace
}  // namespace quillworks::test
