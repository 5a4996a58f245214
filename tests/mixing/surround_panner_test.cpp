// SPDX-License-Identifier: ISC
// The surround panner: power, symmetry and smoothness on every layout, and the LFE send.
#include "dsp/fft.h"
#include "framework/speakers.h"
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr const char* kLayouts[] = {"mono", "stereo", "lcr",   "quad",  "5.0",   "5.1", "7.0",
                                    "7.1",  "5.1.4",  "7.1.2", "7.1.4", "9.1.6", "8",   "32"};

VNK::SpeakerArrangement layoutOf(const char* name)
{
    VNK::SpeakerArrangement layout;
    EXPECT_TRUE(VNK::SpeakerArrangement::named(name, layout)) << name;
    return layout;
}

/// A panner whose gains are read from what it makes of a constant.
template <typename T> struct Panner {
    explicit Panner(const char* name, double rate = 48000)
        : layout(layoutOf(name)), field(layout), fx("Surround Panner", rate)
    {
        fx.layouts(layoutOf("mono"), layout).prepare();
    }
    Panner& at(double azimuth, double elevation = 0, double radius = 100)
    {
        const double a = azimuth * std::numbers::pi / 180;
        fx.set("x", radius * std::sin(a)).set("y", radius * std::cos(a));
        fx.set("elevation", elevation);
        return *this;
    }
    /// Of each channel, once it has arrived.
    std::vector<double> gains()
    {
        fx.algorithm().reset();
        std::vector<double> result;
        for (const auto& out : fx.play({{T(1)}})) result.push_back(double(out[0]));
        return result;
    }

    VNK::SpeakerArrangement layout;
    SpeakerField field;
    EffectUnderTest<T> fx;
};

double power(const std::vector<double>& gains)
{
    double sum = 0;
    for (const double g : gains) sum += g * g;
    return sum;
}

template <typename T> class SurroundPanner : public ::testing::Test {};
TYPED_TEST_SUITE(SurroundPanner, Precisions);

TYPED_TEST(SurroundPanner, KeepsPowerAndSymmetryOnEveryLayoutWhateverIsSet)
{
    std::mt19937 random(kSeed);
    const auto within = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    for (const char* name : kLayouts) {
        Panner<TypeParam> panner(name);
        for (int i = 0; i < 200; ++i) {
            panner.fx.set("mode", i % 4 == 3).set("spread", i % 3 ? within(0, 100) : 0);
            panner.fx.set("divergence", i % 2 ? within(0, 100) : 0);
            panner.fx.set("centre", within(0, 100));
            const double azimuth = i % 5 ? within(-180, 180) : 45 * i, radius = within(0, 140);
            const double elevation = i % 7 ? within(0, 90) : 90;
            const auto g = panner.at(azimuth, elevation, radius).gains();
            const auto mirrored = panner.at(-azimuth, elevation, radius).gains();
            ASSERT_NEAR(power(g), 1, 1e-6) << name << " " << i;
            for (int c = 0; c < panner.field.channels(); ++c)
                ASSERT_NEAR(g[std::size_t(c)], mirrored[std::size_t(panner.field.mirror(c))], 1e-6)
                    << name << ", channel " << c << ", case " << i;
        }
    }
}

TYPED_TEST(SurroundPanner, FullSpreadAndTheMiddleAreAllSpeakersAlikeAndNoDegreeIsAJump)
{
    for (const char* name : kLayouts) {
        Panner<TypeParam> panner(name);
        const auto isEven = [&](const std::vector<double>& gains) {
            const double alike = std::sqrt(
                1.0 / double(panner.field.earRing().size() + panner.field.heightRing().size()));
            for (int c = 0; c < panner.field.channels(); ++c)
                EXPECT_NEAR(gains[std::size_t(c)], panner.field[c].isLfe ? 0 : alike, 1e-6) << name;
        };
        // Of a ring of 32 the neighbours are 11.25 degrees apart.
        const double largestStep = panner.layout.channels == 32 ? 0.16 : 0.07;
        for (double elevation : {0., 30., 90.}) {
            auto last = panner.at(-1, elevation).gains();
            for (int a = 0; a < 360; ++a) {
                const auto now = panner.at(a, elevation).gains();
                for (std::size_t c = 0; c < now.size(); ++c)
                    ASSERT_LE(std::abs(now[c] - last[c]), largestStep) << name << " " << a;
                last = now;
            }
            isEven(panner.at(77, elevation, 0).gains());
            panner.fx.set("spread", 100);
            isEven(panner.at(77, elevation).gains());
            panner.fx.set("spread", 0);
        }
    }
}

TYPED_TEST(SurroundPanner, CentreDivergenceAndDistanceDoWhatTheySay)
{
    Panner<TypeParam> panner("5.1");
    const auto expect = [&](std::vector<double> powers, const char* what) {
        const auto g = panner.gains();
        for (std::size_t c = 0; c < g.size(); ++c)
            EXPECT_NEAR(g[c] * g[c], powers[c], 1e-6) << what << ", channel " << c;
    };
    expect({0, 0, 1, 0, 0, 0}, "front");
    panner.fx.set("centre", 30);
    expect({0.35, 0.35, 0.3, 0, 0, 0}, "centre");
    panner.fx.set("centre", 100).set("divergence", 50);  // a third of it, 30 degrees to each side
    expect({1 / 6., 1 / 6., 2 / 3., 0, 0, 0}, "divergence");
    panner.fx.set("divergence", 0).set("mode", 1).set("y", 40).set("spread", 10);
    std::vector<double> powers(6);
    double sum = 0;
    for (int c = 0; c < 6; ++c) {
        if (c == 3) continue;
        const auto u = panner.field[c].direction();
        const double square = std::pow(u[0] - 0.4, 2) + u[1] * u[1] + 0.08;
        sum += powers[std::size_t(c)] = std::pow(square, -2);
    }
    for (double& p : powers) p /= sum;
    expect(powers, "by distance");
}

/// A turn of 2 s, set anew every sub-block.
template <typename T> Channels<T> turned(Panner<T>& panner, const Signal<T>& in)
{
    Channels<T> out(std::size_t(panner.layout.channels));
    panner.gains();
    for (std::size_t at = 0; at + 32 <= in.size(); at += 32) {
        panner.at(360.0 * double(at) / double(in.size()));
        const auto y = panner.fx.play({Signal<T>(&in[at], &in[at] + 32)});
        for (std::size_t c = 0; c < y.size(); ++c)
            out[c].insert(out[c].end(), y[c].begin(), y[c].end());
    }
    return out;
}

TEST(SurroundPannerInMotion, KeepsThePowerBetweenGridPointsAndAToneClean)
{
    for (const auto& [rate, dip] : {std::pair{8000., 0.003}, {48000., 0.001}})
        for (const bool isSpread : {false, true}) {
            Panner<double> panner("9.1.6", rate);
            panner.fx.set("spread", isSpread ? 30 : 0).set("width", 90);
            const auto y = turned(panner, constant<double>(std::size_t(2 * rate), 1));
            for (std::size_t i = 0; i < y[0].size(); ++i) {
                double sum = 0;
                for (const auto& out : y) sum += out[i] * out[i];
                ASSERT_NEAR(10 * std::log10(sum), 0, dip) << rate << " " << i;
            }
        }
    constexpr std::size_t kLength = 65536;
    Fft<double> fft;
    fft.setSize(kLength);
    for (const auto& [name, bar] : {std::pair{"5.1", -90.}, {"9.1.6", -80.}}) {
        Panner<double> panner(name);
        const auto y = turned(panner, sine<double>(96000, 997, 48000));
        double loudest = 0, aside = 0;
        for (const auto& out : y) {
            AlignedBuffer<double> x, spectrum;
            x.require(kLength);
            spectrum.require(kLength);
            for (std::size_t i = 0; i < kLength; ++i) {  // Blackman-Harris
                const double w = 2 * std::numbers::pi * double(i) / double(kLength);
                x.data()[i] =
                    out[i + 15000] * (0.35875 - 0.48829 * std::cos(w) + 0.14128 * std::cos(2 * w) -
                                      0.01168 * std::cos(3 * w));
            }
            fft.forward(x.data(), spectrum.data());
            for (std::uint32_t k = 1; k < kLength / 2; ++k) {
                const double f = k * 48000.0 / double(kLength);
                const double level = fft.binPower(spectrum.data(), k);
                loudest = std::max(loudest, level);
                if (std::abs(f - 997) > 200) aside = std::max(aside, level);
            }
        }
        EXPECT_LT(10 * std::log10(aside / loudest), bar) << name;
        RecordProperty(name, std::to_string(10 * std::log10(aside / loudest)));
    }
}

TYPED_TEST(SurroundPanner, SendsTheLowsOfAllInputsToTheLfeAndTellsItsGains)
{
    EffectUnderTest<TypeParam> fx("Surround Panner");
    fx.layouts(layoutOf("stereo"), layoutOf("5.1")).set("lfe", 0).set("level", -6);
    for (const auto& [frequency, level] : {std::pair{40., 0.}, {120., -3.01}, {480., -48.2}}) {
        const auto tone = sine<TypeParam>(48000, frequency, 48000);
        const auto y = fx.play({tone, tone}, 500);
        EXPECT_NEAR(db(rms(y[3], 24000) / rms(tone, 24000)), level - 6, 0.1) << frequency;
        // The inputs are 60 degrees apart: in L and R, exactly there.
        for (std::size_t c = 0; c < 2; ++c)
            EXPECT_NEAR(db(rms(y[c], 24000) / rms(tone, 24000)), -6, 1e-3) << frequency;
    }
    for (const auto& [key, gain] : {std::pair{"leftgain0", 1.},
                                    {"leftgain1", 0.},
                                    {"leftgain3", 1.},
                                    {"rightgain0", 0.},
                                    {"rightgain1", 1.},
                                    {"rightgain3", 1.},
                                    {"outpeak0", -6.},
                                    {"outpeak2", -144.}})
        EXPECT_NEAR(fx.meter(key), gain, 1e-4) << key;
    fx.set("lfe", -96).play({Signal<TypeParam>(48000), Signal<TypeParam>(48000)});
    const auto y = fx.play(Channels<TypeParam>(2, constant<TypeParam>(480, 1)));
    EXPECT_EQ(peak(y[3]), 0);
}

}  // namespace
}  // namespace quillworks::test
