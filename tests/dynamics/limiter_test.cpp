// SPDX-License-Identifier: ISC
// The limiter as a whole: nothing passes its ceiling, and what need not be limited is left alone.
#include "dynamics/limiter.h"

#include "tests/support/effect_under_test.h"
#include "tests/support/listener.h"

namespace quillworks::test {
namespace {

double workingCeiling(double ceilingDb)
{
    return std::pow(10, (ceilingDb - 0.001) / 20);
}

/// A quarter of a second of each kind of material that limiters fail on, two channels each.
template <typename T> std::vector<Channels<T>> hardMaterial(double rate)
{
    const auto frames = std::size_t(rate / 4);
    const auto gated = [&](Signal<T> x) {
        for (std::size_t i = 0; i < frames; ++i)
            if (std::fmod(double(i) / rate, 0.05) > 0.02) x[i] = 0;
        return x;
    };
    const auto bursts = [&](std::uint32_t seed) { return gated(noise<T>(frames, seed, 8)); };
    auto clipped = sine<T>(frames, 97, rate, 3);
    const auto hiss = noise<T>(frames, 5, 2);
    for (std::size_t i = 0; i < frames; ++i)
        clipped[i] = std::clamp(clipped[i] + hiss[i], T(-1), T(1));
    auto spikes = noise<T>(frames, 6, 0.1);
    for (std::size_t i = 100; i < frames; i += 997) spikes[i] = T(i % 2 ? 10 : -10);
    auto square = sine<T>(frames, 1237, rate, 1, 0.1);
    for (auto& v : square) v = std::copysign(T(1), v);
    const auto low = sine<T>(frames, 31, rate, 4);
    const auto quarter = gated(sine<T>(frames, rate / 4, rate, 2, std::numbers::pi / 4));
    return {{bursts(1), bursts(2)}, {clipped, low}, {spikes, square}, {quarter, quarter}};
}

/// True peak by 8 times oversampling with a Kaiser-windowed sinc, `reach` samples to each side.
template <typename T> double truePeak(const Signal<T>& x, int reach, double beta)
{
    const auto bessel = [](double z) {
        double sum = 1, term = 1;
        for (int k = 1; k < 50; ++k) sum += term *= z * z / (4.0 * k * k);
        return sum;
    };
    double most = peak(x);
    for (int phase = 1; phase < 8; ++phase) {
        std::vector<double> h;
        for (int k = -reach + 1; k <= reach; ++k) {
            const double t = phase / 8.0 - k, u = t / reach;
            h.push_back(std::sin(std::numbers::pi * t) / (std::numbers::pi * t) *
                        bessel(beta * std::sqrt(std::max(0.0, 1 - u * u))) / bessel(beta));
        }
        for (std::size_t i = 0; i + h.size() <= x.size(); ++i) {
            double y = 0;
            for (std::size_t k = 0; k < h.size(); ++k) y += h[k] * double(x[i + k]);
            most = std::max(most, std::abs(y));
        }
    }
    return most;
}

template <typename T> double truePeak(const Channels<T>& x)
{
    double most = 0;
    for (const auto& channel : x)
        most = std::max({most, truePeak(channel, 12, 6), truePeak(channel, 32, 10)});
    return most;
}

template <typename T> class Limiter : public ::testing::Test {
protected:
    EffectUnderTest<T> fx{"Limiter"};
};
TYPED_TEST_SUITE(Limiter, Precisions);

TYPED_TEST(Limiter, NoSamplePassesTheWorkingCeiling)
{
    int run = 0;
    const int blocks[] = {64, 1, 333, 32, 17};
    for (double rate : {44100., 48000., 96000., 192000.})
        for (const auto& x : hardMaterial<TypeParam>(rate))
            for (int attack : {0, 1, 2})
                for (double release : {1.0, 180.0, 3000.0}) {
                    EffectUnderTest<TypeParam> limiter("Limiter", rate);
                    const double ceiling = -0.3 * (run % 5), threshold = run % 3 * -3.0;
                    limiter.set("attack", attack).set("release", release).set("ingain", 6);
                    limiter.set("ceiling", ceiling).set("thresholdrel", threshold);
                    limiter.set("clipper", run / 2 % 2).set("softclip", run / 4 % 2);
                    limiter.set("abmode", run / 3 % 2).set("highqual", run % 7 == 6);
                    const auto y = limiter.play(x, blocks[run % 5]);
                    const double allowed = workingCeiling(double(limiter.get("ceiling")));
                    for (const auto& channel : y) {
                        ASSERT_LE(peak(channel), allowed * (1 + 1e-15)) << rate << ", run " << run;
                        ASSERT_GT(peak(channel), 0.1) << "nothing is muted";
                    }
                    ++run;
                }
}

TYPED_TEST(Limiter, TruePeakStaysBelowTheCeilingForOtherMeters)
{
    int run = 0;
    for (double rate : {44100., 48000., 96000., 192000.})
        for (const auto& x : hardMaterial<TypeParam>(rate)) {
            EffectUnderTest<TypeParam> limiter("Limiter", rate);
            limiter.set("highqual", 1).set("ingain", 12).set("attack", run % 3);
            limiter.set("ceiling", -1).set("release", run % 2 ? 1 : 180).set("abmode", run / 2 % 2);
            limiter.set("clipper", run / 3 % 2).set("softclip", 1);
            EXPECT_LE(db(truePeak(limiter.play(x))), -1 + 0.1) << rate << ", material " << run % 4;
            ++run;
        }
}

TYPED_TEST(Limiter, HoldsWhileParametersMove)
{
    for (bool isTruePeak : {false, true}) {
        EffectUnderTest<TypeParam> limiter("Limiter", 48000);
        limiter.set("highqual", isTruePeak).set("ceiling", -6).prepare(2, 128);
        std::mt19937 random(kSeed);
        const auto uniform = [&](double low, double high) {
            return std::uniform_real_distribution<double>(low, high)(random);
        };
        const auto x =
            Channels<TypeParam>{noise<TypeParam>(96000, 1, 4), noise<TypeParam>(96000, 2, 1)};
        auto y = x;
        for (int at = 0; at < 96000; at += 96) {
            limiter.set("ingain", uniform(0, 18)).set("thresholdrel", uniform(-12, 0));
            limiter.set("release", uniform(1, 3000)).set("attack", std::floor(uniform(0, 3)));
            for (const char* key : {"clipper", "softclip", "abmode"})
                limiter.set(key, uniform(0, 1) < 0.2 ? 1 : 0);
            limiter.processBlock(x, y, at, 96);
        }
        EXPECT_LE(std::max(peak(y[0]), peak(y[1])), workingCeiling(-6) * (1 + 1e-15));
        if (isTruePeak) {
            EXPECT_LE(db(truePeak(y)), -6 + 0.1);
        }
    }
}

TYPED_TEST(Limiter, FollowsAGlidingCeiling)
{
    this->fx.set("ingain", 12).set("ceiling", 0).prepare(1, 32);
    const auto x = noise<TypeParam>(96000, 1, 1);
    Channels<TypeParam> in{x}, out{x};
    double ceiling = 1, target = 1;  // linear; half-way every 5 sub-blocks at 48 kHz
    for (int at = 0; at < 96000; at += 32) {
        const double before = ceiling;
        if (at % 1600 == 0 && at > 0) {
            const float value = -12 * float(at * 7 % 1300) / 1300;
            this->fx.set("ceiling", value);
            target = std::pow(10, double(value) / 20);
        }
        ceiling = (ceiling - target) * std::exp2(-0.2) + target;
        this->fx.processBlock(in, out, at, 32);
        const double most = workingCeiling(0) * std::max(before, ceiling) + 1e-9;
        for (int i = at; i < at + 32; ++i) ASSERT_LE(std::abs(out[0][std::size_t(i)]), most) << i;
    }
}

TYPED_TEST(Limiter, IsAPureDelayOfTheReportedLatencyBelowTheThreshold)
{
    struct Row {
        double rate;
        bool isTruePeak;
        std::uint32_t latency;
    };
    for (const Row& row : {Row{44100, false, 66}, Row{48000, false, 72}, Row{96000, false, 144},
                           Row{192000, false, 288}, Row{44100, true, 109}, Row{48000, true, 115},
                           Row{192000, true, 331}}) {
        EffectUnderTest<TypeParam> limiter("Limiter", row.rate);
        limiter.set("highqual", row.isTruePeak).set("softclip", row.isTruePeak).prepare(2);
        EXPECT_EQ(limiter.algorithm().getLatency(), row.latency) << row.rate;
        const Channels<TypeParam> x{noise<TypeParam>(5000, 1, 0.4), noise<TypeParam>(5000, 2, 0.4)};
        for (int block : {512, 47, 1}) {
            limiter.prepare(2);
            const auto y = limiter.play(x, block);
            for (std::size_t c = 0; c < 2; ++c)
                for (std::size_t i = 0; i < y[c].size(); ++i)
                    ASSERT_EQ(y[c][i], i < row.latency ? 0 : x[c][i - row.latency]) << i;
        }
        EXPECT_EQ(limiter.meter("reduction"), 0);
    }
}

TYPED_TEST(Limiter, AnnouncesItsLatencyAndStartsAfreshWhenTheDetectorChanges)
{
    Listener listener;
    this->fx.prepare(1).component().setListener(&listener);
    const auto x = noise<TypeParam>(4800, 1, 4);
    this->fx.run(x);
    EXPECT_LT(this->fx.meter("minreduction"), -10);
    for (const std::uint32_t latency : {115u, 72u}) {
        const auto before = listener.count("processSetupChanged");
        this->fx.set("highqual", latency == 115 ? 1 : 0);
        EXPECT_EQ(listener.count("processSetupChanged"), before + 1);
        EXPECT_EQ(this->fx.algorithm().getLatency(), latency);
        this->fx.run(Signal<TypeParam>(32));
        EXPECT_EQ(this->fx.meter("minreduction"), 0);
        const auto y = this->fx.run(x);
        EXPECT_LE(peak(y), workingCeiling(0));
        for (std::size_t i = 0; i < latency; ++i) ASSERT_EQ(y[i], 0);
    }
    this->fx.component().setListener(nullptr);
}

TYPED_TEST(Limiter, SettlesOnItsCurve)
{
    // A constant, long enough for every release, seen through the whole effect.
    for (double threshold : {0.0, -6.0, -12.0})
        for (double gain : {0.0, 3.0, 6.0, 12.0}) {
            this->fx.set("thresholdrel", threshold).set("ingain", gain).set("attack", 0).prepare(1);
            const auto y = this->fx.run(constant<TypeParam>(48000, 0.5));
            const double level = db(0.5) + gain, corner = threshold - 0.001;
            const double knee = std::min(-0.33 * threshold, 3.0), wall = corner - 2 * threshold;
            double expected = std::min(level, -0.001);
            if (threshold < 0) {
                const auto bent = [](double x, double k) {  // below the straight line
                    return x < -k ? 0 : x < k ? (x + k) * (x + k) / (4 * k) : x;
                };
                expected =
                    level - 0.5 * (bent(level - corner, knee) + bent(level - wall, 2 * knee));
            }
            EXPECT_NEAR(db(double(y.back())), expected, 2e-4) << threshold << ", " << gain;
        }
}

TYPED_TEST(Limiter, SoftClipIsForSamplePeaksAndHasARatioOfItsOwn)
{
    const auto x = hardMaterial<TypeParam>(48000)[0];
    this->fx.set("highqual", 1).set("thresholdrel", -6);
    const auto plain = this->fx.prepare(2).play(x);
    EXPECT_EQ(this->fx.set("softclip", 1).prepare(2).play(x), plain);
    EXPECT_NE(this->fx.set("highqual", 0).prepare(2).play(x), plain);

    // 3 dB above a threshold of -12 dB, a knee of 3 dB either way: the far end of the knee.
    const auto settled = [](bool isWall, bool isTruePeak) {
        LimiterCore<TypeParam> core;
        LimiterSettings s{};
        s.inputGain = 1, s.threshold = -12, s.attackSeconds = 0.0001f;
        s.releaseSeconds = 0.1f;
        s.wall = isWall, s.truePeak = isTruePeak, s.ratio = 8;
        ProcessSpec spec;
        spec.sampleRate = 48000, spec.maxFrames = 512, spec.channels = 1;
        core.prepare(spec);
        core.apply(s, ~0u);
        core.reset();
        double last = 0;
        for (int call = 0; call < 100; ++call) {
            auto buffer = constant<TypeParam>(512, workingCeiling(-9));
            TypeParam* const channel[] = {buffer.data()};
            AudioBlock<TypeParam> block;
            block.frames = 512;
            block.channel = channel;
            block.channels = 1;
            core.process(block);
            last = double(buffer.back());
        }
        return db(last) + 0.001;
    };
    EXPECT_NEAR(settled(true, false), -12 + 3 / 8.0, 1e-4);
    EXPECT_NEAR(settled(false, false), -12 + 3 / 2.0, 1e-4);
    EXPECT_NEAR(settled(true, true), -12 + 3 / 2.0, 1e-4);
}

TYPED_TEST(Limiter, LeavesASustainedSineClean)
{
    const auto residual = [&](double frequency) {
        this->fx.prepare(1);
        auto y = this->fx.run(sine<TypeParam>(96000, frequency, 48000, 1));
        const double level = amplitudeAt(y, frequency, 48000, 48000, 96000);
        double total = 0;
        for (std::size_t i = 48000; i < 96000; ++i) total += double(y[i]) * double(y[i]);
        return db(std::sqrt(std::max(0.0, total / 48000 - level * level / 2)) / level);
    };
    for (int attack : {0, 1, 2})
        for (double frequency : {60.0, 100.0, 3000.0}) {
            this->fx.set("ingain", 6).set("attack", attack).set("clipper", 0).set("softclip", 0);
            EXPECT_LE(residual(frequency), -100) << attack << ": " << frequency;
        }
    this->fx.set("clipper", 1);
    EXPECT_NEAR(residual(50), -31, 4) << "the gain follows the wave";
    this->fx.set("clipper", 0).set("softclip", 1);
    EXPECT_LT(residual(50), -25);
}

TYPED_TEST(Limiter, RecoversAsFastAsItsModeSays)
{
    // From 12 dB to 1 dB, in milliseconds after the end of a burst.
    const auto recovery = [&](int mode, double seconds) {
        this->fx.set("abmode", mode).set("release", 180).set("ingain", 0).prepare(1);
        auto x = constant<TypeParam>(120000, 0.1);
        const auto end = std::size_t(seconds * 48000);
        std::fill_n(x.begin(), end, TypeParam(4));
        const auto y = this->fx.run(x);
        for (std::size_t i = end + 72; i < y.size(); ++i)
            if (y[i] > 0.1 * std::pow(10, -1.0 / 20)) return double(i - end - 72) / 48;
        return 1e9;
    };
    const double shortA = recovery(0, 0.005), longA = recovery(0, 2), shortB = recovery(1, 0.005),
                 longB = recovery(1, 2);
    EXPECT_NEAR(shortA, 96, 5);
    EXPECT_NEAR(longA, 96, 5);
    EXPECT_NEAR(shortB, 43, 5);
    EXPECT_NEAR(longB, 168, 8);
}

TYPED_TEST(Limiter, ShrugsOffWhatIsNoSound)
{
    for (bool isTruePeak : {false, true})
        for (double bad : {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e30}) {
            this->fx.set("highqual", isTruePeak).set("ingain", 0).set("release", 180);
            const auto clean = noise<TypeParam>(96000, 3, 0.1);
            auto x = clean;
            x[12000] = TypeParam(bad);
            const auto y = this->fx.prepare(1).run(x), reference = this->fx.prepare(1).run(clean);
            ASSERT_TRUE(isFinite(y));
            EXPECT_LE(peak(y), workingCeiling(0));
            for (std::size_t i = 90000; i < y.size(); ++i) ASSERT_EQ(y[i], reference[i]) << bad;
            if (std::isnan(bad)) {
                x[12000] = 0;
                EXPECT_EQ(this->fx.prepare(1).run(x), y) << "what is no number counts as silence";
            }
        }
}

TYPED_TEST(Limiter, HoldsTheDeepestReductionUntilItIsReset)
{
    this->fx.prepare(1);
    this->fx.run(constant<TypeParam>(9600, 4));
    EXPECT_NEAR(this->fx.meter("reduction"), -12.04, 0.01);
    this->fx.run(constant<TypeParam>(48000, 0.1));
    EXPECT_NEAR(this->fx.meter("reduction"), 0, 0.01);
    EXPECT_NEAR(this->fx.meter("minreduction"), -12.04, 0.01);
    this->fx.set("resetmin", 1).run(constant<TypeParam>(512, 0.1));
    EXPECT_NEAR(this->fx.meter("minreduction"), 0, 0.01);
}

}  // namespace
}  // namespace quillworks::test
