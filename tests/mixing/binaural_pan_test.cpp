// SPDX-License-Identifier: ISC
// The binaural pan: what the ears get from a direction, how much room there is, what a fold to mono
// leaves, and whether loudspeakers reach the ears apart.
#include <complex>
#include <functional>

#include "dsp/fft.h"
#include "framework/stereo_field.h"
#include "tests/support/display_under_test.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr std::size_t kLength = 32768;
constexpr const char* kName = "Binaural Pan";

using Settings = std::vector<std::pair<const char*, double>>;
using Spectrum = std::vector<std::complex<double>>;  // bins 0 .. kLength / 2

Spectrum spectrumOf(const Signal<double>& x)
{
    static Fft<double> fft;
    fft.setSize(kLength);
    AlignedBuffer<double> in, out;
    in.require(kLength);
    out.require(kLength);
    std::copy(x.begin(), x.end(), in.data());
    fft.forward(in.data(), out.data());
    Spectrum bins(kLength / 2);
    for (std::size_t k = 1; k < bins.size(); ++k)
        bins[k] = {out.data()[2 * k], out.data()[2 * k + 1]};
    return bins;
}

/// What the ears get of an impulse in one channel.
template <typename T = double>
Channels<T> responses(const Settings& settings, int inputs = 1, std::size_t input = 0)
{
    EffectUnderTest<T> fx(kName, kRate);
    for (const auto& [key, value] : settings) fx.set(key, value);
    fx.layouts(VNK::SpeakerArrangement::withChannels(inputs),
               VNK::SpeakerArrangement::withChannels(2));
    auto x = Channels<T>(static_cast<std::size_t>(inputs), Signal<T>(kLength));
    x[input] = impulse<T>(kLength);
    return fx.prepare(inputs).play(x);
}

/// Sum over the bins from `low` to `high` Hz of f(k), weighted by `weight`(frequency).
template <class F>
double overBand(double low, double high, const std::function<double(double)>& weight, F&& f)
{
    double sum = 0;
    for (std::size_t k = 1; k < kLength / 2; ++k) {
        const double frequency = double(k) * kRate / double(kLength);
        if (frequency >= low && frequency <= high) sum += weight(frequency) * f(k);
    }
    return sum;
}
double white(double)
{
    return 1;
}
double pink(double frequency)
{
    return 1 / frequency;
}
double power(const Channels<double>& ears, double low, double high, double (*weight)(double))
{
    const auto l = spectrumOf(ears[0]), r = spectrumOf(ears[1]);
    return overBand(low, high, weight,
                    [&](std::size_t k) { return std::norm(l[k]) + std::norm(r[k]); });
}
double decibels(double power)
{
    return 10 * std::log10(power);
}

template <typename T> class BinauralPan : public ::testing::Test {};
TYPED_TEST_SUITE(BinauralPan, Precisions);

TYPED_TEST(BinauralPan, TheFrontPassesAsItIsAndWhatComesInForOneEarAsTheMean)
{
    using T = TypeParam;
    const auto x = noise<T>(4800);
    EffectUnderTest<T> fx(kName);
    fx.layouts(VNK::SpeakerArrangement::withChannels(1), VNK::SpeakerArrangement::withChannels(2));
    EXPECT_EQ(fx.set("room", 0).play({x}, 100), (Channels<T>{x, x}));
    EXPECT_EQ(fx.meter("correlation"), 1);
    EXPECT_NEAR(fx.meter("monoloss"), 0, 1e-6);
    EXPECT_EQ(fx.algorithm().getTailLength(), 0u);
    EffectUnderTest<T> both(kName), mean(kName);
    both.layouts(VNK::SpeakerArrangement::withChannels(1),
                 VNK::SpeakerArrangement::withChannels(2));
    const auto ears = both.set("azimuth", 70).play({x});
    const auto single = mean.set("azimuth", 70).run(x);
    for (std::size_t i = 0; i < x.size(); ++i)
        ASSERT_NEAR(single[i], (ears[0][i] + ears[1][i]) / 2, 1e-6) << i;
}

TEST(BinauralDirections, AreAsLateAndAsLoudAsTheHeadMakesThem)
{
    for (const double azimuth : {30., 60., 90., 120., -60.}) {
        const Settings late = {{"azimuth", azimuth}, {"room", 0}};
        const Settings together = {{"azimuth", azimuth}, {"room", 0}, {"timing", 0}};
        const std::size_t far = azimuth > 0 ? 0 : 1;
        const auto a = spectrumOf(responses(late)[far]), b = spectrumOf(responses(together)[far]);
        const double side = std::abs(azimuth) * std::numbers::pi / 180;
        const double angle = std::asin(std::sin(side));
        const double formula = 0.0865 / 343 * (std::sin(angle) + angle);
        for (const double frequency : {200., 1000., 4000.}) {
            const auto k = std::size_t(frequency * double(kLength) / kRate);
            const double w = 2 * std::numbers::pi * double(k) * kRate / double(kLength);
            const double turns = std::arg(a[k] / b[k]) + w * formula;
            EXPECT_NEAR(std::remainder(turns, 2 * std::numbers::pi) / w, 0, 1e-6)
                << azimuth << " at " << frequency;
        }
        EXPECT_EQ(responses(late)[1 - far], responses(together)[1 - far]) << "the near ear waits";
    }
    double least = 100, most = -100;
    const auto loudness = [](double azimuth, double elevation) {
        return decibels(
            power(responses({{"azimuth", azimuth}, {"elevation", elevation}, {"room", 0}}), 100,
                  10000, pink));
    };
    const double front = loudness(0, 0);
    for (int a = -180; a < 180; a += 15) {
        const double level = loudness(a, 0) - front;
        least = std::min(least, level), most = std::max(most, level);
    }
    for (int e = 15; e <= 90; e += 15) {
        const double level = loudness(0, e) - front;
        least = std::min(least, level), most = std::max(most, level);
    }
    EXPECT_GT(least, -0.7);
    EXPECT_LT(most, 0.7);
}

TEST(BinauralRoom, IsAsLoudAndTakesTheEarsAsFarApartAsItShould)
{
    struct Row {
        double room, distance, correlation, directToRoom;
    };
    for (const auto& row : {Row{0, 1.5, 1, 0},
                            {50, 1.5, 0.94, 10.9},
                            {100, 1.5, 0.80, 4.9},
                            {50, 4, 0.72, 0},
                            {100, 4, 0.50, 0}}) {
        const Settings settings = {{"room", row.room}, {"distance", row.distance}};
        auto ears = responses(settings);
        const auto l = spectrumOf(ears[0]), r = spectrumOf(ears[1]);
        const auto sum = [&](const auto& f) { return overBand(300, 4000, white, f); };
        const double ll = sum([&](std::size_t k) { return std::norm(l[k]); });
        const double rr = sum([&](std::size_t k) { return std::norm(r[k]); });
        const double lr = sum([&](std::size_t k) { return (l[k] * std::conj(r[k])).real(); });
        EXPECT_NEAR(lr / std::sqrt(ll * rr), row.correlation, 0.05)
            << row.room << " " << row.distance;
        auto direct = responses({{"room", 0}, {"distance", row.distance}});
        auto room = ears;
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = 0; i < kLength; ++i) room[c][i] -= direct[c][i];
        if (row.directToRoom > 0) {
            EXPECT_NEAR(decibels(power(direct, 1, 24000, white) / power(room, 1, 24000, white)),
                        row.directToRoom, 1)
                << row.room;
        }
    }
}

TEST(BinauralFold, HasNoNotchWithoutEarTiming)
{
    for (const auto& [azimuth, worst] : {std::pair{30., -0.7}, {90., -5.6}}) {
        const auto ears = responses({{"azimuth", azimuth}, {"room", 0}, {"timing", 0}});
        Signal<double> fold(kLength);
        for (std::size_t i = 0; i < kLength; ++i) fold[i] = (ears[0][i] + ears[1][i]) / 2;
        const auto bins = spectrumOf(fold);
        double least = 100;
        for (std::size_t k = 14; k < 13653; ++k)  // 20 Hz .. 20 kHz
            least = std::min(least, decibels(std::norm(bins[k])));
        EXPECT_GE(least, worst - 0.1) << azimuth;
    }
}

TEST(BinauralSpeakers, ReachTheEarsApartAndNeverMoreThanTheyAreStable)
{
    for (const auto& [angle, largest] : {std::pair{20., 0.76}, {60., 0.69}, {90., 0.66}}) {
        // What a speaker makes at the far ear re the near one, and what is taken off for it.
        const auto speaker = responses({{"azimuth", angle / 2}, {"room", 0}});
        const auto near = spectrumOf(speaker[1]), far = spectrumOf(speaker[0]);
        const auto ears = responses({{"azimuth", 90}, {"room", 0}});
        const auto feeds =
            responses({{"azimuth", 90}, {"room", 0}, {"playback", 1}, {"speakerangle", angle}});
        const auto ear = spectrumOf(ears[0]), left = spectrumOf(feeds[0]),
                   right = spectrumOf(feeds[1]);
        const auto takenOff = [&](std::size_t k) { return (ear[k] - left[k]) / right[k]; };
        double most = 0;
        for (std::size_t k = 14; k < 10922; ++k) most = std::max(most, std::abs(takenOff(k)));
        EXPECT_NEAR(most, largest, 0.015) << angle;
        if (angle != 60) continue;
        for (const auto& [low, high] :
             {std::pair{500., 1000.}, {1000., 2000.}, {2000., 4000.}, {4000., 6000.}}) {
            const double own = overBand(low, high, white, [&](std::size_t k) {
                return std::norm(1. - far[k] / near[k] * takenOff(k));
            });
            const double other = overBand(low, high, white, [&](std::size_t k) {
                return std::norm(far[k] / near[k] - takenOff(k));
            });
            EXPECT_GE(decibels(own / other), 14) << low;
        }
    }
}

TYPED_TEST(BinauralPan, AutomationOfAnyParameterMakesNoStep)
{
    const auto tone = sine<TypeParam>(2400, 1000, kRate);
    for (const char* key : {"azimuth", "elevation", "width", "distance", "room", "timing", "head",
                            "playback", "speakerangle"}) {
        EffectUnderTest<TypeParam> fx(kName, kRate, 2);
        fx.set("playback", 1).set("azimuth", 50).prepare(2, 480);
        const auto y = fx.runWhileSwitching(key, tone);
        EXPECT_LE(largestStep(y, 480), 0.17 * peak(y)) << key;
    }
}

TEST(BinauralField, LeansToTheEarThatHearsMoreAndStandsUprightInMono)
{
    struct Row {
        double azimuth;
        int outputs;
        double lean;  // of the points, mean of x/y by power: the sign is what counts
    };
    for (const auto& [azimuth, outputs, lean] : {Row{-90, 2, -1}, {90, 2, 1}, {90, 1, 0}}) {
        EffectUnderTest<float> fx(kName, kRate);
        fx.layouts(VNK::SpeakerArrangement::withChannels(1),
                   VNK::SpeakerArrangement::withChannels(outputs));
        fx.set("azimuth", azimuth).set("room", 0);
        const auto displays = fx.component().queryInterface<VNK::IEffectDisplays>();
        displays->setDisplaysOpen(true);
        fx.play({noise<float>(4800, 1)});
        displays->updateDisplays();
        Shown field;
        ASSERT_TRUE(displays->snapshot(kRecentField, &field));
        const auto &x = field.list["x"], &y = field.list["y"];
        ASSERT_GT(x.size(), 4000u);
        double across = 0, up = 0, xx = 0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            across += x[i] * y[i];
            up += y[i] * y[i];
            xx += x[i] * x[i];
        }
        if (lean == 0) {
            EXPECT_LT(xx, 1e-9 * up);
        } else {
            EXPECT_GT(lean * across / up, 0.2) << azimuth;
        }
    }
}

}  // namespace
}  // namespace quillworks::test
