// SPDX-License-Identifier: ISC
// The spectrum meter: what it reads of tones and noise, and what its displays remember.
#include "analysis/spectrum_peaks.h"
#include "tests/support/display_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> struct SpectrumUnderTest : DisplayUnderTest<T> {
    explicit SpectrumUnderTest(double rate = 48000) : DisplayUnderTest<T>("Spectrum Meter", rate) {}
    /// The level shown at the bin nearest to a frequency.
    double levelAt(double frequency, const char* key = "level", int curve = 0)
    {
        const auto spectrum = this->shown("spectrum");
        const auto& bins = spectrum.list.at("frequency");
        const auto k = std::size_t(std::lround(frequency / bins[1]));
        const auto path = "channels/" + std::to_string(curve) + "/" + key;
        const auto at = spectrum.list.find(path);
        return at == spectrum.list.end() ? spectrum.value.at(path) : at->second[k];
    }
};

template <typename T> class SpectrumMeter : public ::testing::Test {};
TYPED_TEST_SUITE(SpectrumMeter, Precisions);

TYPED_TEST(SpectrumMeter, ReadsLevelAndFrequencyOfATone)
{
    constexpr int kLengths[] = {2048, 8192, 16384, 32768};
    std::mt19937 random(kSeed);
    for (const double rate : {44100.0, 48000.0, 96000.0})
        for (int resolution = 0; resolution <= 3; ++resolution) {
            const int n = kLengths[resolution] * (rate > 50000 ? 2 : 1);
            SpectrumUnderTest<TypeParam> fx(rate);
            fx.set("resolution", resolution).set("average", 0).prepare(1, 4096);
            for (int i = 0; i < (resolution < 2 ? 40 : 8); ++i) {
                const double bin = rate / n, from = 5 * bin, to = rate / 2 - 5 * bin;
                const double f = std::uniform_real_distribution<double>(from, to)(random);
                const double phase = std::uniform_real_distribution<double>(0, 6.3)(random);
                SCOPED_TRACE(::testing::Message() << f << " Hz at " << rate << ", " << n);
                fx.show(sine<TypeParam>(std::size_t(n) * 5 / 4, f, rate, 1, phase), 4096);
                EXPECT_NEAR(fx.meter("peaklevel"), 0, 0.002);
                EXPECT_NEAR(fx.meter("level"), 0, 0.01);
                const auto spectrum = fx.shown("spectrum");
                ASSERT_EQ(spectrum.value.at("length"), n);
                EXPECT_NEAR(spectrum.value.at("channels/0/peaks/0/frequency") / bin, f / bin,
                            0.001);
                // A tone near either end stands beside its own image.
                if (f < 64 * bin || f > rate / 2 - 64 * bin) continue;
                const auto& level = spectrum.list.at("channels/0/level");
                const auto k = std::size_t(std::lround(f / bin));
                for (std::size_t far = 6; far < 60; ++far)
                    EXPECT_LT(std::max(level[k - far], level[k + far]), -97) << far;
            }
        }
}

TYPED_TEST(SpectrumMeter, WeighsAsSoundLevelMetersDo)
{
    // IEC 61672-1 at the exact centres of thirds, dB.
    constexpr int kA = 1, kC = 3;
    struct Case {
        int weighting, third;  // counted from 1 kHz
        double level;
    };
    for (const auto& [weighting, third, level] :
         {Case{kA, -15, -39.44}, Case{kA, -12, -26.19}, Case{kA, -9, -16.10}, Case{kA, -6, -8.63},
          Case{kA, -3, -3.23}, Case{kA, 3, 1.20}, Case{kA, 6, 0.97}, Case{kA, 9, -1.11},
          Case{kA, 12, -6.60}, Case{kC, -15, -3.01}, Case{kC, 12, -8.53}}) {
        const double f = 1000 * std::pow(10, third / 10.0);
        SCOPED_TRACE(f);
        const auto x = sine<TypeParam>(192000, f, 48000);
        const Signal<TypeParam> before(x.begin(), x.begin() + 96000),
            after(x.begin() + 96000, x.end());
        SpectrumUnderTest<TypeParam> fx;
        fx.set("resolution", 3).set("weighting", weighting).set("offset", 94);
        fx.set("mode", 1).set("average", 4).prepare(1, 4096);
        fx.show(before, 4096);
        fx.set("resethold", 1);
        fx.show(after, 4096);
        EXPECT_NEAR(fx.meter("peaklevel"), 94 + level, 0.02);
        if (f > 100) {
            EXPECT_NEAR(fx.meter("level"), 94 + level, 0.02);
        }
        const auto bands = fx.shown("bands");
        const auto& centres = bands.list.at("centre");
        const auto band = std::lower_bound(centres.begin(), centres.end(), f - 0.1);
        EXPECT_NEAR(bands.list.at("channels/0/level")[std::size_t(band - centres.begin())],
                    94 + level, 0.03);
    }
}

TYPED_TEST(SpectrumMeter, WhiteNoiseHasItsDensityEverywhere)
{
    // Uniform noise of peak 0.5: power 1/12 up to half the sample rate.
    SpectrumUnderTest<TypeParam> fx;
    fx.set("reading", 1).set("average", 4).set("smooth", 4).set("hold", 0).prepare(1, 4096);
    fx.show(noise<TypeParam>(48000 * 40), 4096);
    const double density = 10 * std::log10(1.0 / 12 / 24000);
    for (const double f : {1000.0, 4000.0, 10000.0, 18000.0})
        EXPECT_NEAR(fx.levelAt(f), density, 0.3) << f;
    EXPECT_NEAR(fx.meter("level"), 10 * std::log10(2.0 / 12), 0.02) << "a sine's level";
}

TYPED_TEST(SpectrumMeter, ShowsTheSameAtEveryBlockLength)
{
    const Channels<TypeParam> x = {noise<TypeParam>(30000, 1), noise<TypeParam>(30000, 2)};
    for (int mode = 0; mode <= 2; ++mode)
        for (int source = 0; source <= 3; ++source) {
            std::vector<Shown> first;
            for (const int block : {30000, 511, 64}) {
                SpectrumUnderTest<TypeParam> fx;
                fx.set("mode", mode).set("source", source).set("resolution", 0);
                fx.prepare(2, 30000);
                fx.show(x, block);
                std::vector<Shown> shown;
                for (const char* name : {"spectrum", "bands", "sonogram"})
                    shown.push_back(fx.shown(name));
                EXPECT_EQ(shown[1].list.contains("channels/0/level"), mode == 1);
                EXPECT_EQ(shown[2].list.at("time").size(), mode == 2 ? 28u : 0u);
                if (first.empty()) first = shown;
                for (std::size_t d = 0; d < shown.size(); ++d)
                    EXPECT_EQ(shown[d], first[d]) << mode << source << d << " " << block;
            }
        }
}

TYPED_TEST(SpectrumMeter, SourcesAreWhatTheySay)
{
    // Left 1 kHz, right 3 kHz.
    const auto a = sine<TypeParam>(20000, 1000, 48000, 0.5),
               b = sine<TypeParam>(20000, 3000, 48000, 0.25);
    struct Case {
        int source, curve;
        double low, high;  // dB at 1 and 3 kHz
        const char* name;
    };
    const double left = -6.02, right = -12.04, none = -144;
    for (const auto& [source, curve, low, high, name] :
         {Case{0, 0, left, none, "L"}, Case{0, 1, none, right, "R"},
          Case{1, 0, left, right, "Loudest"}, Case{2, 0, left - 6.02, right - 6.02, "Sum"},
          Case{3, 0, left - 6.02, right - 6.02, "Mid"},
          Case{3, 1, left - 6.02, right - 6.02, "Side"}}) {
        SpectrumUnderTest<TypeParam> fx;
        fx.set("source", source).set("window", 2).prepare(2);
        fx.show({a, b});
        const auto path = "channels/" + std::to_string(curve) + "/name";
        EXPECT_EQ(fx.shown("spectrum").label.at(path), name);
        for (const auto& [f, level] : {std::pair(1000.0, low), std::pair(3000.0, high)})
            if (level > none)
                EXPECT_NEAR(fx.levelAt(f, "level", curve), level, 0.02) << name;
            else
                EXPECT_LT(fx.levelAt(f, "level", curve), -80) << name;
    }
    SpectrumUnderTest<TypeParam> mono;
    mono.set("source", 3).prepare(1);
    mono.show(a);
    EXPECT_FALSE(mono.shown("spectrum").label.contains("channels/1/name"));
}

TYPED_TEST(SpectrumMeter, HoldsForItsTimeThenFalls)
{
    for (int mode = 0; mode <= 1; ++mode) {
        SpectrumUnderTest<TypeParam> fx;
        fx.set("mode", mode).set("average", 0).set("hold", 1).prepare();
        const char* const display = mode ? "bands" : "spectrum";
        const auto held = [&] {
            const auto shown = fx.shown(display);
            const auto& hold = shown.list.at("channels/0/hold");
            return *std::max_element(hold.begin(), hold.end());
        };
        fx.show(sine<TypeParam>(24000, 1000, 48000));
        EXPECT_NEAR(held(), 0, 0.5);
        fx.show(Signal<TypeParam>(48000 * 19 / 10, 0));
        EXPECT_NEAR(held(), 0, 0.5) << "still held";
        fx.show(Signal<TypeParam>(48000 * 11 / 10, 0));
        // 0.2 s later at most, since windows reach back.
        EXPECT_NEAR(held(), -18, 4) << "1 s of 20 dB/s";
        fx.set("resethold", 1);
        fx.show(Signal<TypeParam>(48000, 0));
        EXPECT_LT(held(), -100) << "from now on";
        fx.set("hold", 0);
        fx.displays->updateDisplays();
        EXPECT_TRUE(std::isnan(fx.shown(display).value.at("channels/0/hold")));
    }
}

TEST(SpectrumReference, IsShownWhereLengthAndBandsAreItsOwn)
{
    SpectrumUnderTest<float> fx;
    fx.set("mode", 1).prepare();
    fx.show(sine<float>(48000, 1000, 48000));
    fx.set("store", 1).set("compare", 1);
    fx.show(sine<float>(48000, 1000, 48000, 0.1));
    EXPECT_NEAR(fx.levelAt(1000, "reference"), 0, 1);
    EXPECT_NEAR(fx.levelAt(1000), -20, 1);
    EXPECT_TRUE(fx.shown("bands").list.contains("channels/0/reference"));
    for (const auto& [key, other] : {std::pair("resolution", 0), std::pair("source", 2)}) {
        const float own = fx.get(key);
        fx.set(key, other);
        fx.show(Signal<float>(48000, 0.1f));
        EXPECT_TRUE(std::isnan(fx.levelAt(1000, "reference"))) << key;
        fx.set(key, own);
        fx.algorithm().reset();
        fx.show(Signal<float>(48000, 0.1f));
        EXPECT_NEAR(fx.levelAt(1000, "reference"), 0, 1) << "stays over a reset";
    }
    fx.set("bands", 2);
    fx.displays->updateDisplays();
    EXPECT_FALSE(fx.shown("bands").list.contains("channels/0/reference"));
}

TEST(SpectrumSonogram, RowsAndTimesAreThoseOfTheSound)
{
    SpectrumUnderTest<float> fx;
    fx.set("mode", 2).set("freqlow", 100).set("freqhigh", 10000).prepare();
    auto x = sine<float>(48000, 1000, 48000);
    std::fill_n(x.begin(), 24000, 0.0f);
    fx.show(x);
    const auto loudest = [&](const Shown& shown, std::size_t column) {
        const auto& rows = shown.list.at("channels/0/level/" + std::to_string(column));
        return std::size_t(std::max_element(rows.begin(), rows.end()) - rows.begin());
    };
    auto shown = fx.shown("sonogram");
    const auto times = shown.list.at("time");
    ASSERT_GT(times.size(), 10u);
    EXPECT_NEAR(times[0], 4096 / 48000.0, 1e-9);
    for (std::size_t i = 0; i < times.size(); ++i) {
        const auto& rows = shown.list.at("channels/0/level/" + std::to_string(i));
        ASSERT_EQ(rows.size(), 512u);
        if (times[i] < 0.4) {
            EXPECT_EQ(rows[256], -144);
        }
        if (times[i] < 0.6) continue;
        EXPECT_NEAR(rows[loudest(shown, i)], 0, 1);
        EXPECT_NEAR(shown.list.at("frequency")[loudest(shown, i)], 1000, 10);
    }
    fx.set("freqlow", 500).set("freqhigh", 2000);
    fx.displays->updateDisplays();
    shown = fx.shown("sonogram");
    ASSERT_EQ(shown.list.at("time"), times) << "what was there stays";
    EXPECT_NEAR(shown.list.at("frequency")[loudest(shown, times.size() - 1)], 1000, 10);
}

TEST(SpectrumPeaks, BesideZeroHertzWhereTheBinsLieInALineAreFinite)
{
    // Four times the power at 0 Hz, the peak and its neighbour: 3, 0 and -3 dB, then 6, 0 and 0 dB.
    for (const std::vector<double>& powers :
         {std::vector<double>{0.5, 1, 0.5, 0.01, 0.01}, {0.999, 1, 0.999, 0.01, 0.01}})
        for (const auto& peak : peaksOf(powers, std::vector<double>(powers.size(), 1), 8, 48000,
                                        WindowShape::Nuttall, 4)) {
            EXPECT_NEAR(peak.level, 0, 3);
            EXPECT_NEAR(peak.frequency, 6000, 6000);
        }
}

}  // namespace
}  // namespace quillworks::test
