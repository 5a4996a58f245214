// SPDX-License-Identifier: ISC
// What the tone generator promises of its signals: purity, levels between the samples, formulas and
// channels.
#include <map>
#include <numbers>

#include "tests/support/effect_under_test.h"
#include "tests/support/power_spectrum.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr std::size_t kSecond = 48000;

enum { Sine, Triangle, Sawtooth, Square, Pulse, TwoTone, Multitone, White, Pink, PeriodicPink };
enum { LogSweep = 10, LinearSweep, Impulses };
enum { Walk = 17, Ident };

template <typename T> struct GeneratorUnderTest : EffectUnderTest<T> {
    explicit GeneratorUnderTest(int wave, double rate = kRate, int channels = 1)
        : EffectUnderTest<T>("Tone Generator", rate, channels)
    {
        this->set("wave", wave).set("level", 0);
    }
    Channels<T> generate(std::size_t frames, int channels = 1)
    {
        return this->play(Channels<T>(std::size_t(channels), Signal<T>(frames)));
    }
};

/// Power of each line of one period of `n` samples, so that a sine of peak 1 has 1.
template <typename T> std::vector<double> lines(const Signal<T>& x, std::size_t from, std::size_t n)
{
    AlignedBuffer<double> signal(n), bins(n);
    for (std::size_t i = 0; i < n; ++i) signal[i] = double(x[from + i]);
    Fft<double> fft;
    fft.setSize(std::uint32_t(n));
    fft.forward(signal.data(), bins.data());
    std::vector<double> power(n / 2);
    for (std::size_t k = 0; k < n / 2; ++k)
        power[k] = fft.binPower(bins.data(), std::uint32_t(k)) * 4 / (double(n) * double(n));
    return power;
}

/// Largest magnitude between the samples, by eighths, the ends left out.
template <typename T> double truePeak(const Signal<T>& x)
{
    constexpr int kHalf = 48;
    const KaiserWindow window(10);
    double largest = 0;
    for (int p = 0; p < 8; ++p) {
        double taps[2 * kHalf];
        for (int k = -kHalf; k < kHalf; ++k)
            taps[k + kHalf] = sinc(k + p / 8.0) * window((k + p / 8.0) / kHalf);
        for (std::size_t i = kHalf; i + kHalf < x.size(); ++i) {
            double y = 0;
            for (int k = -kHalf; k < kHalf; ++k)
                y += taps[k + kHalf] * double(x[i - std::size_t(k)]);
            largest = std::max(largest, std::abs(y));
        }
    }
    return largest;
}

template <typename T> class ToneGenerator : public ::testing::Test {};
TYPED_TEST_SUITE(ToneGenerator, Precisions);

TYPED_TEST(ToneGenerator, WavesHaveTheirHarmonicsAndNothingElse)
{
    constexpr std::size_t kLines = 65536, kLine = 6827;  // no harmonic's alias is a harmonic
    // Power of the n-th harmonic over that of the first.
    const auto square = [](double n) { return std::fmod(n, 2) / (n * n); };
    const std::map<int, std::function<double(double)>> waves{
        {Sine, [](double n) { return n == 1 ? 1 : 0; }},
        {Triangle, [&](double n) { return square(n) / (n * n); }},
        {Sawtooth, [](double n) { return 1 / (n * n); }},
        {Square, square},
        {Pulse, [](double n) {
             const double x = std::sin(std::numbers::pi * n / 4) / n;
             return 2 * x * x;
         }}};
    for (const auto& [wave, harmonic] : waves) {
        GeneratorUnderTest<TypeParam> fx(wave);
        fx.set("frequency", kLine * kRate / kLines);
        const auto power = lines(fx.generate(kLines + kSecond)[0], kSecond, kLines);
        double rest = 0;
        for (std::size_t k = 1; k < power.size(); ++k) {
            const double expected = k % kLine == 0 ? harmonic(double(k / kLine)) : 0;
            if (expected < 1e-6) {
                rest += power[k];
            } else if (double(k) < 0.43 * kLines) {
                EXPECT_NEAR(10 * std::log10(power[k] / power[kLine] / expected), 0, 0.001)
                    << wave << ", line " << k;
            }
        }
        EXPECT_LT(10 * std::log10(rest / power[kLine]), -120) << wave;
        EXPECT_NEAR(fx.meter("frequencyinuse"), kLine * kRate / kLines, 1e-3);
    }
}

TYPED_TEST(ToneGenerator, NothingPassesTheLevelBetweenTheSamplesAndRmsIsWhatItSays)
{
    for (int wave = Sine; wave <= PeriodicPink; ++wave)
        for (const double f : {100.0, 3001.0, 18000.0}) {
            if (f > 100 && wave > TwoTone) continue;
            SCOPED_TRACE(::testing::Message() << "wave " << wave << ", " << f << " Hz");
            GeneratorUnderTest<TypeParam> fx(wave);
            fx.set("frequency", f).set("width", 10);
            EXPECT_LT(db(truePeak(fx.generate(16384)[0])), 0.02);
            EXPECT_NEAR(fx.meter("peakbound"), 0, 1e-4);
            // 200000 samples know white noise within 0.02 dB; pink noise has most of its power in
            // octaves of which they hold little.
            GeneratorUnderTest<TypeParam> byRms(wave);
            byRms.set("frequency", f).set("width", 10).set("level", -20).set("reference", 1);
            const double tolerance = wave == Pink ? 0.6 : 0.08;
            if (f == 100) {  // harmonics beyond the band are none of the RMS
                EXPECT_NEAR(db(rms(byRms.generate(6 * 32768)[0])) + db(std::sqrt(2.0)), -20,
                            tolerance);
            }
        }
    GeneratorUnderTest<TypeParam> narrow(Pulse);
    narrow.set("width", 1).set("reference", 1);
    EXPECT_LT(db(truePeak(narrow.generate(16384)[0])), 0.02);
    EXPECT_GT(narrow.meter("lowered"), 15) << "its RMS cannot be had below 0 dB";
}

TYPED_TEST(ToneGenerator, PeriodicSignalsAreLinesAtAnyRateFromAnyStart)
{
    for (const double rate : {44100.0, 96000.0}) {
        const std::size_t period = rate < 50000 ? 32768 : 65536;
        GeneratorUnderTest<TypeParam> fx(PeriodicPink, rate);
        const auto x = fx.generate(2 * period)[0];
        const auto power = lines(x, 12345, period);
        const double unit = rate / double(period);
        const auto first = std::size_t(std::ceil(20 / unit));
        const auto last = std::size_t(std::min(20000.0, 0.45 * rate) / unit);
        double rest = 0;
        for (std::size_t k = 1; k < power.size(); ++k) {
            const double flat = power[k] * double(k) / (power[first] * double(first));
            if (k >= first && k <= last)
                ASSERT_NEAR(10 * std::log10(flat), 0, 0.001) << rate << ", line " << k;
            else
                rest += power[k];
        }
        EXPECT_LT(10 * std::log10(rest), -120);
        EXPECT_LT(db(peak(x) / rms(x)), 6.5);
    }
    GeneratorUnderTest<TypeParam> snapped(Sine);
    snapped.set("frequency", 1000).set("snap", 1);
    const auto power = lines(snapped.generate(32768)[0], 0, 32768);
    EXPECT_NEAR(power[683], 1, 1e-6) << "1000 Hz lies between lines 682 and 683";
}

TYPED_TEST(ToneGenerator, SweepsFollowTheirFormula)
{
    constexpr double kFrom = 20, kTo = 12000, kSeconds = 0.7, kPause = 0.1, kPi = std::numbers::pi;
    for (const int wave : {LogSweep, LinearSweep})
        for (const bool isUp : {true, false}) {
            const double from = isUp ? kFrom : kTo, to = isUp ? kTo : kFrom;
            const double ratio = std::log(to / from);
            const double m = std::round(from * kSeconds / ratio), scale = m / from;
            const double length = wave == LogSweep ? scale * ratio : kSeconds;
            const auto value = [&](double t) {
                if (t >= length) return 0.0;
                const double cycles = wave == LogSweep
                                          ? m * std::expm1(t / scale)
                                          : from * t + (to - from) * t * t / (2 * length);
                const double end = std::min({1.0, t / 0.005, (length - t) / 0.005});
                return std::sin(2 * kPi * cycles) * (0.5 - 0.5 * std::cos(kPi * end));
            };
            GeneratorUnderTest<TypeParam> fx(wave);
            fx.set("frequency", from).set("frequency2", to);
            fx.set("length", kSeconds).set("pause", kPause);
            const auto x = fx.generate(2 * kSecond)[0];
            const auto second = std::size_t(std::ceil((length + kPause) * kRate - 1e-3));
            double worst = 0;
            for (std::size_t i = 0; i < 2 * second; ++i)
                worst = std::max(worst, std::abs(double(x[i]) - value(double(i % second) / kRate)));
            EXPECT_LT(db(worst), -135) << wave << (isUp ? " up" : " down");
            EXPECT_FALSE(std::isnan(fx.meter("progress")));
        }
}

TYPED_TEST(ToneGenerator, ChangesMakeNoClick)
{
    const auto change = [](const char* key, double value, double again) {
        GeneratorUnderTest<TypeParam> fx(Sine);
        fx.set("frequency", 1000);
        auto y = fx.generate(4800)[0];
        for (const double v : {value, again}) {
            fx.set(key, v);
            const auto more = fx.generate(4811)[0];
            y.insert(y.end(), more.begin(), more.end());
        }
        return largestStep(y);
    };
    EXPECT_LT(change("level", -40, 0), 0.15);
    EXPECT_LT(change("run", 0, 1), 0.15);
    EXPECT_LT(change("wave", Triangle, Sine), 0.15);
    EXPECT_LT(change("channels", 2, 1), 0.15);
    EXPECT_LT(change("invert", 1, 0), 0.15);
    EXPECT_LT(change("frequency", 900, 1000), 0.15);
}

TYPED_TEST(ToneGenerator, PlaysToTheChannelsItIsToldInTime)
{
    const auto sounding = [](int mode, double seconds, int channels = 3) {
        GeneratorUnderTest<TypeParam> fx(Sine, kRate, channels);
        fx.set("channels", mode);
        const auto from = std::size_t(seconds * kRate);
        const auto y = fx.generate(from + 960, channels);
        std::string heard;
        for (const auto& c : y) heard += rms(c, from) > 0.5 ? '1' : '0';
        return heard;
    };
    EXPECT_EQ(sounding(0, 0), "111");
    EXPECT_EQ(sounding(2, 0), "010");
    EXPECT_EQ(sounding(9, 0), "000") << "beyond the layout";
    EXPECT_EQ(sounding(Walk, 0), "100");
    EXPECT_EQ(sounding(Walk, 2.2), "001");
    EXPECT_EQ(sounding(Walk, 3.2), "100");
    EXPECT_EQ(sounding(Ident, 0.1), "111");
    EXPECT_EQ(sounding(Ident, 3.1), "011");
    EXPECT_EQ(sounding(Ident, 3.3), "111");

    GeneratorUnderTest<TypeParam> fx(White, kRate, 2);
    fx.set("invert", 1).set("level", -20);
    auto y = fx.generate(4800, 2);
    for (std::size_t i = 0; i < 4800; ++i) ASSERT_EQ(y[0][i], -y[1][i]);
    fx.set("independent", 1);
    y = fx.generate(kSecond, 2);
    double product = 0;
    for (std::size_t i = 4800; i < kSecond; ++i) product += double(y[0][i]) * double(y[1][i]);
    EXPECT_LT(std::abs(product / double(kSecond)) / (rms(y[0]) * rms(y[1])), 0.02);
}

TYPED_TEST(ToneGenerator, AddsToTheInputOrReplacesItWhateverItHolds)
{
    const auto x = noise<TypeParam>(9600, 3, 0.1);
    GeneratorUnderTest<TypeParam> alone(Impulses);
    alone.set("frequency", 7.5).set("level", -6);
    auto bad = x;
    bad[100] = std::numeric_limits<TypeParam>::quiet_NaN();
    const auto y = alone.run(bad);
    for (std::size_t i = 0; i < y.size(); ++i)
        ASSERT_NEAR(y[i], i % 6400 == 0 ? std::pow(10, -0.3) : 0, 1e-7) << i;
    GeneratorUnderTest<TypeParam> added(Impulses);
    added.set("frequency", 7.5).set("level", -6).set("through", 1);
    const auto sum = added.run(x);
    for (std::size_t i = 0; i < y.size(); ++i) ASSERT_NEAR(sum[i], x[i] + y[i], 1e-7) << i;
}

TEST(ToneGeneratorNoise, HasEqualOctaves)
{
    for (const int wave : {White, Pink}) {
        GeneratorUnderTest<float> fx(wave);
        constexpr std::size_t kLines = 65536;
        std::vector<double> octaves(7);
        for (int run = 0; run < 60; ++run) {
            const auto power = powerSpectrum(fx.generate(kLines)[0], 0, kLines);
            for (std::size_t o = 0; o < octaves.size(); ++o) {
                const auto from = std::size_t(177 * (1 << o)) * kLines / kSecond;
                for (std::size_t k = from; k < 2 * from; ++k)
                    octaves[o] += power[k] / (wave == White ? double(from) : 1);
            }
        }
        for (const double octave : octaves)  // the lowest are known within 0.1 dB
            EXPECT_NEAR(10 * std::log10(octave / octaves.back()), 0, 0.3) << wave;
    }
}

}  // namespace
}  // namespace quillworks::test
