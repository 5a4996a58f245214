// SPDX-License-Identifier: ISC
// The phase meter: correlations, what mono costs, delays, the stereo field.
#include "dsp/fft.h"
#include "tests/support/display_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> struct PhaseUnderTest : DisplayUnderTest<T> {
    explicit PhaseUnderTest(double rate = 48000) : DisplayUnderTest<T>("Phase Meter", rate) {}
};

template <typename T> Signal<T> inverted(Signal<T> x)
{
    for (T& v : x) v = -v;
    return x;
}

/// x later by a number of samples, which may be negative.
template <typename T> Signal<T> shifted(const Signal<T>& x, int by)
{
    Signal<T> y(x.size(), T(0));
    for (int i = 0; i < int(x.size()); ++i)
        if (i - by >= 0 && i - by < int(x.size())) y[std::size_t(i)] = x[std::size_t(i - by)];
    return y;
}

template <typename T> class PhaseMeter : public ::testing::Test {};
TYPED_TEST_SUITE(PhaseMeter, Precisions);

TYPED_TEST(PhaseMeter, CorrelationBalanceAndWhatMonoCosts)
{
    const std::size_t n = 48000 * 10;
    const auto x = noise<TypeParam>(n, 1), y = noise<TypeParam>(n, 2);
    auto quiet = x;
    for (auto& v : quiet) v *= TypeParam(0.5);
    const Signal<TypeParam> silence(n, 0);
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        const Signal<TypeParam>&left, &right;
        double correlation, tolerance, mono, monoTolerance, balance, side;
    };
    const auto minus = inverted(x);
    for (const auto& c :
         {Case{x, x, 1, 1e-9, 0, 1e-6, 0, -144}, Case{x, minus, -1, 1e-9, -144, 1e-6, 0, 144},
          Case{x, y, 0, 0.03, -3.01, 0.1, 0, 0},
          Case{x, quiet, 1, 1e-9, -0.458, 0.001, 6.02, -9.54},
          Case{x, silence, kNone, 0, -3.01, 0.01, 144, 0},
          Case{silence, silence, kNone, 0, kNone, 0, kNone, kNone}}) {
        PhaseUnderTest<TypeParam> fx;
        fx.set("time", 3).set("finddelay", 0).prepare(2, 4096);
        fx.show({c.left, c.right}, 4096);
        const auto expect = [&](const char* key, double value, double tolerance) {
            if (std::isnan(value)) {
                EXPECT_TRUE(std::isnan(fx.meter(key))) << key;
            } else {
                EXPECT_NEAR(fx.meter(key), value, tolerance) << key;
            }
        };
        expect("correlation", c.correlation, c.tolerance);
        expect("mono", c.mono, c.monoTolerance);
        expect("balance", c.balance, 0.1);
        expect("sidemid", c.side, 0.2);
    }
}

TYPED_TEST(PhaseMeter, TheLowestCorrelationCountsFromTheLastReset)
{
    const auto x = noise<TypeParam>(48000, 1);
    PhaseUnderTest<TypeParam> fx;
    fx.set("time", 0).prepare(2);
    fx.show({x, x});
    EXPECT_NEAR(fx.meter("mincorrelation"), 1, 1e-6);
    fx.show({x, inverted(x)});
    EXPECT_NEAR(fx.meter("mincorrelation"), -1, 0.01);
    fx.show({x, x});
    EXPECT_NEAR(fx.meter("mincorrelation"), -1, 0.01);
    fx.set("resethold", 1);
    fx.show({x, x});
    EXPECT_GT(fx.meter("mincorrelation"), 0.99);
    fx.algorithm().reset();
    fx.show({inverted(x), x}, 512);
    EXPECT_NEAR(fx.meter("mincorrelation"), -1, 1e-6);
}

TYPED_TEST(PhaseMeter, FindsDelaysAndPolarity)
{
    for (const double rate : {8000.0, 48000.0, 96000.0}) {
        const auto n = std::size_t(3 * rate);
        const auto x = noise<TypeParam>(n, 1), other = noise<TypeParam>(n, 2, 0.05);
        const int farthest = int(0.02 * rate);
        for (const int delay : {0, 1, 7, -48, farthest, -farthest})
            for (const bool isInverted : {false, true}) {
                auto right = shifted(x, delay);
                if (isInverted) right = inverted(right);
                for (std::size_t i = 0; i < n; ++i) right[i] += other[i];
                PhaseUnderTest<TypeParam> fx(rate);
                fx.prepare(2, 4096);
                fx.show({x, right}, 4096);
                EXPECT_NEAR(fx.meter("delay") * rate / 1000, delay, 0.01) << rate << isInverted;
                EXPECT_EQ(fx.meter("polarity"), isInverted ? -1 : 1) << rate << delay;
                EXPECT_GT(fx.meter("delayconfidence"), 0.5);
            }
    }
    // Between the samples: two tones of noise mixed give a delay of half a sample.
    auto x = noise<TypeParam>(144000, 1), y = x;
    for (std::size_t i = 1; i < y.size(); ++i) y[i] = TypeParam(0.5) * (x[i] + x[i - 1]);
    PhaseUnderTest<TypeParam> fx;
    fx.prepare(2, 4096);
    fx.show({x, y}, 4096);
    EXPECT_NEAR(fx.meter("delay") * 48, 0.5, 0.3);
    PhaseUnderTest<TypeParam> apart;
    apart.prepare(2, 4096);
    apart.show({x, noise<TypeParam>(144000, 3)}, 4096);
    EXPECT_LT(apart.meter("delayconfidence"), 0.2);
    EXPECT_TRUE(std::isnan(apart.meter("delay")) && std::isnan(apart.meter("polarity")));
    apart.set("finddelay", 0);
    apart.displays->updateDisplays();
    EXPECT_TRUE(std::isnan(apart.meter("delayconfidence")));
}

/// The same noise with the octave around `centre` inverted in every bin.
template <typename T> Signal<T> withInvertedOctave(const Signal<T>& x, double centre, double rate)
{
    Fft<double> fft;
    fft.setSize(static_cast<std::uint32_t>(x.size()));
    auto bins = as<double>(x);
    fft.forward(bins.data(), bins.data());
    const double perBin = rate / double(x.size()), edge = std::pow(10, 0.15);
    for (std::size_t k = 1; k < x.size() / 2; ++k) {
        const double f = double(k) * perBin;
        if (f < centre / edge || f >= centre * edge) continue;
        bins[2 * k] *= -1;
        bins[2 * k + 1] *= -1;
    }
    fft.inverse(bins.data(), bins.data());
    return as<T>(bins);
}

TYPED_TEST(PhaseMeter, ComparesBandByBand)
{
    const auto x = noise<TypeParam>(1 << 18, 1);
    for (const double centre : {251.19, 1000.0, 3981.1}) {
        PhaseUnderTest<TypeParam> fx;
        fx.set("time", 2).prepare(2, 4096);
        fx.show({x, withInvertedOctave(x, centre, 48000)}, 4096);
        const auto bands = fx.shown("bandcorrelation");
        const auto& centres = bands.list.at("centre");
        ASSERT_EQ(centres.size(), 10u);
        for (std::size_t b = 0; b < centres.size(); ++b) {
            const double octaves = std::abs(std::log2(centres[b] / centre));
            const double value = bands.list.at("value")[b];
            EXPECT_EQ(bands.value.at("valid/" + std::to_string(b)), 1) << centres[b];
            if (octaves < 0.5) {
                EXPECT_NEAR(value, -1, centre < 900 ? 0.05 : 0.02) << centre;
            } else if (octaves > 1.5 && centres[b] > 100) {
                EXPECT_NEAR(value, 1, 0.01) << centres[b] << " of " << centre;
            }
            EXPECT_GT(bands.list.at("coherence")[b], octaves > 1.5 ? 0.9 : 0.8) << centres[b];
        }
    }
    // A tone says nothing of the other bands.
    PhaseUnderTest<TypeParam> fx;
    fx.prepare(2, 4096);
    const auto tone = sine<TypeParam>(48000, 1000, 48000);
    fx.show({tone, tone}, 4096);
    const auto bands = fx.shown("bandcorrelation");
    for (std::size_t b = 0; b < 10; ++b)
        EXPECT_EQ(bands.value.at("valid/" + std::to_string(b)), b == 5) << b;
}

TYPED_TEST(PhaseMeter, PointsLieWhereTheSoundIs)
{
    const auto x = sine<TypeParam>(48000, 440, 48000, 0.01);
    const Signal<TypeParam> silence(48000, 0);
    struct Case {
        const Signal<TypeParam>&left, &right;
        double x, y;  // direction
    };
    const auto minus = inverted(x);
    for (const auto& c : {Case{x, x, 0, 1}, Case{x, silence, -1, 1}, Case{silence, x, 1, 1},
                          Case{x, minus, -1, 0}}) {
        PhaseUnderTest<TypeParam> fx;
        fx.set("persistence", 0.1).prepare(2);
        fx.show({c.left, c.right});
        const auto field = fx.shown("goniometer");
        ASSERT_EQ(field.list.size(), 4 * 4800u);
        double radius = 0, across = 0;
        for (const auto& [path, point] : field.list) {
            radius = std::max(radius, std::hypot(point[0], point[1]));
            across = std::max(across, std::abs(point[0] * c.y - point[1] * c.x));
        }
        EXPECT_NEAR(20 * std::log10(radius / 0.9), 0, 1.1) << "filled by the gain";
        EXPECT_LT(across, 1e-3);
    }
    PhaseUnderTest<TypeParam> fx;
    fx.set("autogain", 0).set("gain", 20).prepare(2);
    fx.show({x, x});
    EXPECT_EQ(fx.shown("goniometer").value.at("gain"), 20);
}

TYPED_TEST(PhaseMeter, ShowsTheSameAtEveryBlockLength)
{
    const Channels<TypeParam> x = {noise<TypeParam>(50000, 1), noise<TypeParam>(50000, 2)};
    const auto shown = [&](int block) {
        PhaseUnderTest<TypeParam> fx;
        fx.set("bands", 1).set("persistence", 0.05).prepare(2, 50000);
        fx.show(x, block);
        std::vector<Shown> all;
        for (const char* name : {"goniometer", "bandcorrelation", "matrix"})
            all.push_back(fx.shown(name));
        for (const char* key : {"correlation", "mincorrelation", "mono", "delayconfidence"})
            all.back().value[key] = fx.meter(key);
        return all;
    };
    const auto first = shown(50000);
    EXPECT_TRUE(first == shown(511));
    EXPECT_TRUE(first == shown(64));
}

TEST(PhaseMeterPairs, FollowTheLayoutAndWhatIsMissingIsNothing)
{
    const auto x = noise<float>(48000, 1), y = noise<float>(48000, 2);
    const Signal<float> silence(48000, 0);
    VNK::SpeakerArrangement surround;
    ASSERT_TRUE(VNK::SpeakerArrangement::named("5.1", surround));
    PhaseUnderTest<float> fx;
    fx.set("pair", 1).layout(surround).prepare(6);
    fx.show({x, inverted(x), y, silence, y, y});  // L R C LFE Ls Rs
    EXPECT_NEAR(fx.meter("correlation"), 1, 1e-6);
    const auto matrix = fx.shown("matrix");
    EXPECT_EQ(matrix.label.at("channels/4/name"), "Ls");
    EXPECT_NEAR(matrix.list.at("value/0")[1], -1, 1e-6);
    EXPECT_NEAR(matrix.list.at("value/4")[2], 1, 1e-6);
    EXPECT_TRUE(std::isnan(matrix.list.at("value/0")[3]));
    fx.set("pair", 0);
    fx.show({x, inverted(x), y, silence, y, y});
    EXPECT_NEAR(fx.meter("correlation"), -1, 1e-6);
    fx.set("pair", 2);
    fx.show({x, x, x, x, x, x});
    for (const char* key : {"correlation", "mincorrelation", "balance", "mono", "sidemid", "delay"})
        EXPECT_TRUE(std::isnan(fx.meter(key))) << key;
    EXPECT_TRUE(fx.shown("goniometer").list.empty());
    EXPECT_EQ(fx.shown("bandcorrelation").value.at("valid/5"), 0);
}

}  // namespace
}  // namespace quillworks::test
