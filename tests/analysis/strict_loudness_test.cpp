// SPDX-License-Identifier: ISC
// The strict law on the test signals of EBU Tech 3341 and 3342, ITU-R BS.1770 and BS.2217,
// synthesised at four rates. Levels are the peaks of sines in dBFS.
#include <chrono>
#include <complex>

#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr double kOff = -999;

struct Segment {
    double seconds;
    double level;  // dBFS
};
using Segments = std::vector<Segment>;

/// A strictly measuring meter that is fed tones, the same in all channels but for their gains.
class StrictMeter {
public:
    StrictMeter(double rate, const std::string& layout, std::vector<double> gains = {})
        : rate_(rate), fx_("Level Meter", rate)
    {
        VNK::SpeakerArrangement arrangement;
        EXPECT_TRUE(VNK::SpeakerArrangement::named(layout, arrangement));
        gains_ = gains.empty() ? std::vector<double>(std::size_t(arrangement.channels)) : gains;
        fx_.component().setInteger("loudnessStrict", 1);
        fx_.layout(arrangement).prepare(arrangement.channels, kBlock);
        block_.assign(gains_.size(), Signal<float>(kBlock));
    }

    double read(const std::string& key) { return fx_.meter(key); }

    /// Calls f(frame) for each frame's value, spread over the channels by their gains; `poll` after
    /// each `every` frames, counted from the start.
    template <class F, class P> void play(double seconds, F&& f, P&& poll, int every)
    {
        time_ += seconds;
        const auto end = static_cast<std::int64_t>(std::llround(time_ * rate_));
        while (frame_ < end) {
            const auto left = std::min<std::int64_t>(end - frame_, every - frame_ % every);
            const int n = static_cast<int>(std::min<std::int64_t>(left, kBlock));
            for (int i = 0; i < n; ++i)
                block_[0][std::size_t(i)] = static_cast<float>(f(frame_ + i));
            for (std::size_t c = gains_.size(); c-- > 0;) {
                const auto gain = static_cast<float>(std::pow(10, gains_[c] / 20));
                for (std::size_t i = 0; i < std::size_t(n); ++i) block_[c][i] = gain * block_[0][i];
            }
            fx_.processBlock(block_, block_, 0, n);
            frame_ += n;
            if (frame_ % every == 0) poll();
        }
    }
    template <class P> void tone(const Segment& s, double frequency, P&& poll, int every)
    {
        const double peak = s.level == kOff ? 0 : std::pow(10, s.level / 20);
        const double w = 2 * std::numbers::pi * frequency / rate_;
        const double turn = 2 * std::cos(w);
        double a = 0, b = 0;  // of the last two frames, set afresh now and then
        std::int64_t next = -1;
        play(
            s.seconds,
            [&](std::int64_t n) {
                const bool isAfresh = n % 4096 == 0 || n != next;
                const double v = isAfresh ? std::sin(w * double(n)) : turn * a - b;
                b = isAfresh ? std::sin(w * double(n - 1)) : a;
                a = v;
                next = n + 1;
                return peak * v;
            },
            poll, every);
    }
    void tones(const Segments& segments, double frequency = 1000)
    {
        for (const auto& s : segments)
            tone(
                s, frequency, [] {}, kBlock);
    }
    void finish()
    {
        fx_.component().setInteger("loudnessStrict", 2);
        fx_.processBlock(block_, block_, 0, 1);
    }
    int hop() const { return static_cast<int>(rate_ / 100 + 0.5); }

private:
    static constexpr int kBlock = 4096;
    double rate_;
    EffectUnderTest<float> fx_;
    std::vector<double> gains_;
    Channels<float> block_;
    double time_ = 0;
    std::int64_t frame_ = 0;
};

class StrictLaw : public ::testing::TestWithParam<int> {
protected:
    const double rate = GetParam();
};

TEST_P(StrictLaw, IntegratedLoudness)
{
    const Segments steady{{20, 0}}, brief{{5, 0}};  // which channel counts shows soon
    const double off = kOff;
    const struct {
        const char* name;
        const char* layout;
        double frequency;
        std::vector<double> gains;  // dB
        Segments segments;
        double lufs;
    } cases[] = {
        {"3341-1", "stereo", 1000, {}, {{20, -23}}, -23},
        {"3341-2", "stereo", 1000, {}, {{20, -33}}, -33},
        {"3341-3", "stereo", 1000, {}, {{10, -36}, {60, -23}, {10, -36}}, -23},
        {"3341-4",
         "stereo",
         1000,
         {},
         {{10, -72}, {10, -36}, {60, -23}, {10, -36}, {10, -72}},
         -23},
        {"3341-5", "stereo", 1000, {}, {{20, -26}, {20.1, -20}, {20, -26}}, -23},
        {"3341-6", "5.0", 1000, {-28, -28, -24, -30, -30}, steady, -23},
        {"1770 calibration", "mono", 997, {}, steady, -3.01},
        {"3341 calibration", "stereo", 1000, {}, {{20, -18}}, -18},
        {"absolute gate",
         "stereo",
         1000,
         {},
         {{0.8, -90.309},
          {0.5, -69.481},
          {0.5, -90.309},
          {0.5, -69.481},
          {0.5, -90.309},
          {0.5, -69.481},
          {0.7, -90.309}},
         -69.5},
        {"relative gate",
         "stereo",
         1000,
         {},
         {{0.5, -90.309}, {0.9, -19.9}, {1.3, -7.1}, {0.8, -19.9}, {0.5, -90.309}},
         -10},
        {"25 Hz", "stereo", 25, {}, {{20, -11.9162}}, -23},
        {"100 Hz", "stereo", 100, {}, {{20, -21.1755}}, -23},
        {"500 Hz", "stereo", 500, {}, {{20, -22.3515}}, -23},
        {"2 kHz", "stereo", 2000, {}, {{20, -26.3803}}, -24},
        {"10 kHz", "stereo", 10000, {}, {{20, -27.3509}}, -24},
        {"L", "5.1", 1000, {-20.9964, off, off, off, off, off}, brief, -24},
        {"C", "5.1", 1000, {off, off, -20.9964, off, off, off}, brief, -24},
        {"Ls", "5.1", 1000, {off, off, off, off, -22.4886, off}, brief, -24},
        {"Rs", "5.1", 1000, {off, off, off, off, off, -22.4886}, brief, -24},
        {"sum", "5.1", 1000, {-28.6456, -28.6456, -28.6456, -6, -28.6456, -28.6456}, brief, -24},
        {"six channels without places", "6", 1000, {-30, -30, -30, -30, -30, -30}, brief, -25.23},
    };
    for (const auto& c : cases) {
        StrictMeter meter(rate, c.layout, c.gains);
        meter.tones(c.segments, c.frequency);
        meter.finish();
        EXPECT_NEAR(meter.read("integrated"), c.lufs, 0.1) << c.name;
        if (c.segments.size() == 1 && c.gains.empty()) {
            EXPECT_NEAR(meter.read("momentaryMax"), c.lufs, 0.1) << c.name;
            EXPECT_NEAR(meter.read("shortTermMax"), c.lufs, 0.1) << c.name;
        }
    }
}

/// Gain in dB of the weighting as ITU-R BS.1770 tabulates it for 48 kHz.
double weightingGain(double frequency)
{
    const auto z = std::polar(1.0, -2 * std::numbers::pi * frequency / 48000);
    const auto h = (1.53512485958697 + z * (-2.69169618940638 + z * 1.19839281085285)) /
                   (1.0 + z * (-1.69065929318241 + z * 0.73248077421585)) * (1.0 + z * (-2.0 + z)) /
                   (1.0 + z * (-1.99004745483398 + z * 0.99007225036621));
    return db(std::abs(h));
}

TEST_P(StrictLaw, WeightingFollowsTheTabulatedCurve)
{
    EXPECT_NEAR(weightingGain(997), 0.691, 0.001);
    for (const double frequency : {20., 25., 50., 100., 200., 500., 1e3, 2e3, 4e3, 1e4, 1.7e4}) {
        StrictMeter meter(rate, "mono");
        meter.tones({{2, 0}}, frequency);
        meter.finish();
        EXPECT_NEAR(meter.read("momentaryMax"), weightingGain(frequency) - 0.691 - 3.0103, 0.05)
            << frequency << " Hz";
    }
    StrictMeter sweep(rate, "mono");  // its level follows the inverse of the curve
    double phase = 0;
    sweep.play(
        20,
        [&](std::int64_t n) {
            const double frequency = 20 * std::pow(1000, double(n) / rate / 20);
            phase += 2 * std::numbers::pi * frequency / rate;
            const double level = -18 + 0.691 + 3.0103 - weightingGain(frequency);
            return std::pow(10, level / 20) * std::sin(phase);
        },
        [] {}, sweep.hop());
    sweep.finish();
    EXPECT_NEAR(sweep.read("integrated"), -18, 0.1);
    EXPECT_NEAR(sweep.read("momentaryMax"), -18, 0.1);
}

TEST_P(StrictLaw, SlidingWindowsReadTheSameAtEveryInstant)
{
    StrictMeter shortTerm(rate, "stereo"), momentary(rate, "stereo");
    double seconds = 0;
    for (int i = 0; i < 5; ++i)
        for (const Segment s : {Segment{1.34, -20}, Segment{1.66, -30}})
            shortTerm.tone(
                s, 1000,
                [&] {
                    if ((seconds += 0.01) <= 3.0) return;
                    EXPECT_NEAR(shortTerm.read("loundessShortTerm"), -23, 0.1) << seconds;
                },
                shortTerm.hop());
    seconds = 0;
    for (int i = 0; i < 25; ++i)
        for (const Segment s : {Segment{0.18, -20}, Segment{0.22, -30}})
            momentary.tone(
                s, 1000,
                [&] {
                    if ((seconds += 0.01) <= 1.0) return;
                    EXPECT_NEAR(momentary.read("loundessMomentary"), -23, 0.1) << seconds;
                },
                momentary.hop());
}

TEST_P(StrictLaw, MaximaCatchBurstsAtEveryOffset)
{
    for (int i = 0; i < 20; ++i) {
        StrictMeter shortTerm(rate, "stereo"), momentary(rate, "stereo");
        shortTerm.tones({{i * 0.15, kOff}, {3, -23}, {1, kOff}});
        momentary.tones({{i * 0.02, kOff}, {0.4, -23}, {1, kOff}});
        shortTerm.finish();
        momentary.finish();
        EXPECT_NEAR(shortTerm.read("shortTermMax"), -23, 0.1) << i;
        EXPECT_NEAR(momentary.read("momentaryMax"), -23, 0.1) << i;
    }
}

TEST_P(StrictLaw, LiveMaximaFollowRisingBursts)
{
    for (const bool isMomentary : {false, true}) {
        StrictMeter meter(rate, "stereo");
        const double length = isMomentary ? 0.4 : 3, step = isMomentary ? 0.02 : 0.15;
        const char* key = isMomentary ? "loundessMomentary" : "loundessShortTerm";
        for (int i = 0; i < 20; ++i) {
            double largest = -144;
            for (const Segment s : {Segment{i * step, kOff}, Segment{length, -38.0 + i},
                                    Segment{length - i * step, kOff}})
                meter.tone(
                    s, 1000, [&] { largest = std::max(largest, meter.read(key)); }, meter.hop());
            EXPECT_NEAR(largest, -38 + i, 0.1) << key << " " << i;
        }
    }
}

TEST_P(StrictLaw, LoudnessRange)
{
    const struct {
        Segments segments;
        double range;
    } cases[] = {{{{20, -20}, {20, -30}}, 10},
                 {{{20, -20}, {20, -15}}, 5},
                 {{{20, -40}, {20, -20}}, 20},
                 {{{20, -50}, {20, -35}, {20, -20}, {20, -35}, {20, -50}}, 15}};
    for (const auto& c : cases) {
        StrictMeter meter(rate, "stereo");
        meter.tones(c.segments);
        meter.finish();
        EXPECT_NEAR(meter.read("range"), c.range, 0.2);
        EXPECT_NEAR(meter.read("rangeHigh") - meter.read("rangeLow"), c.range, 0.2);
    }
}

/// Amplitude in 4 fs / fs = 1 of the signals whose true peak lies between the samples.
Signal<float> steadySine(double samplesPerPeriod, double phaseDegrees, double amplitude,
                         double rate)
{
    auto x = sine<float>(std::size_t(rate), 1 / samplesPerPeriod, 1, amplitude,
                         phaseDegrees * std::numbers::pi / 180);
    const auto fade = std::size_t(rate / 100);
    for (std::size_t i = 0; i < fade; ++i) {
        x[i] *= float(i) / float(fade);
        x[x.size() - 1 - i] *= float(i) / float(fade);
    }
    return x;
}

/// One period of fs/4 at full scale within fs/6 at half: made at four times the rate, low-passed
/// (511 taps, Kaiser window with beta 8) and decimated from the given offset.
Signal<float> hiddenPeak(int offset)
{
    Signal<double> y;
    const auto add = [&](int samples, double period, double peak) {
        for (int i = 0; i < samples; ++i)
            y.push_back(peak * std::sin(2 * std::numbers::pi * i / period));
    };
    add(24 * 200, 24, 0.5);
    add(16, 16, 1);
    add(24 * 200, 24, 0.5);
    for (std::size_t i = 0; i < 480; ++i) {
        y[i] *= double(i) / 480;
        y[y.size() - 1 - i] *= double(i) / 480;
    }
    const auto bessel = [](double x) {
        double term = 1, sum = 1;
        for (int k = 1; k < 60; ++k) sum += term *= (x / 2 / k) * (x / 2 / k);
        return sum;
    };
    constexpr int half = 255;
    std::vector<double> h;
    double total = 0;
    for (int i = -half; i <= half; ++i) {
        const double t = std::numbers::pi * i * (23.0 / 24) / 4;
        const double place = double(i) / (half + 1);
        h.push_back((i == 0 ? 1 : std::sin(t) / t) * bessel(8 * std::sqrt(1 - place * place)));
        total += h.back();
    }
    Signal<float> x;
    for (int n = offset; n < int(y.size()); n += 4) {
        double sum = 0;
        for (int i = -half; i <= half; ++i)
            if (n - i >= 0 && n - i < int(y.size()))
                sum += h[std::size_t(i + half)] * y[std::size_t(n - i)];
        x.push_back(float(sum / total));
    }
    return x;
}

TEST_P(StrictLaw, TruePeak)
{
    // The two interpolators' own readings, within the standard's +0.2 / -0.4 dB of -6, 3 and 0.
    const bool isAnnex2 = rate != 44100;
    const struct {
        Signal<float> signal;
        double annex2, other;
    } cases[] = {{steadySine(4, 0, 0.5, rate), -6.217, -5.922},
                 {steadySine(4, 45, 0.5, rate), -5.976, -6.240},
                 {steadySine(6, 60, 0.5, rate), -6.313, -6.269},
                 {steadySine(8, 67.5, 0.5, rate), -6.026, -6.218},
                 {steadySine(4, 45, 1.41, rate), 3.029, 2.765},
                 {hiddenPeak(0), -0.150, -0.009},
                 {hiddenPeak(1), -0.086, -0.043},
                 {hiddenPeak(2), -0.208, -0.229},
                 {hiddenPeak(3), -0.086, -0.043}};
    for (const auto& c : cases) {
        EffectUnderTest<float> fx("Level Meter", rate);
        fx.play({c.signal, c.signal});
        EXPECT_NEAR(fx.meter("loudnessTruePeak"), isAnnex2 ? c.annex2 : c.other, 0.02)
            << &c - cases + 15;
    }
}

// Arithmetic over minutes of sound: the level meter's own tests show what a sanitizer can find.
#ifdef __SANITIZE_ADDRESS__
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(StrictLaw);
#else
INSTANTIATE_TEST_SUITE_P(Rates, StrictLaw, ::testing::Values(44100, 48000, 96000, 192000),
                         ::testing::PrintToStringParamName());
#endif

TEST(StrictLawResults, AreNothingForSilenceAndForLessThanAWindow)
{
    StrictMeter silence(48000, "stereo"), brief(48000, "stereo"), none(48000, "stereo");
    silence.tones({{4, kOff}});
    brief.tones({{0.39, -10}});
    for (auto* meter : {&silence, &brief, &none}) {
        meter->finish();
        for (const char* key : {"integrated", "momentaryMax", "shortTermMax", "range"})
            EXPECT_TRUE(std::isnan(meter->read(key))) << key;
    }
    EXPECT_TRUE(std::isnan(silence.read("truePeak")));
    EXPECT_TRUE(std::isnan(silence.read("samplePeak0")));
    EXPECT_NEAR(brief.read("samplePeak1"), -10, 0.01);
    EXPECT_NEAR(brief.read("programmeRms0"), -10, 0.01);

    StrictMeter lfe(48000, "5.1", {kOff, kOff, kOff, 0, kOff, kOff});
    lfe.tones({{4, 0}});
    lfe.finish();
    EXPECT_TRUE(std::isnan(lfe.read("integrated")));
    EXPECT_NEAR(lfe.read("samplePeak3"), 0, 0.01);
}

TEST(StrictLawResults, StandAfterTheEndAndTruePeakIncludesTheLastSample)
{
    EffectUnderTest<double> fx("Level Meter");
    fx.component().setInteger("loudnessStrict", 1);
    auto x = sine<double>(48000, 1000, 48000, 0.1);
    x.back() = 0.9;  // its interpolated surroundings lie beyond the end
    fx.run(x);
    fx.component().setInteger("loudnessStrict", 2);
    fx.run(noise<double>(48000, kSeed, 1.0));
    EXPECT_NEAR(fx.meter("samplePeak0"), db(0.9), 1e-4);
    EXPECT_GE(fx.meter("truePeak"), fx.meter("samplePeak0"));
    EXPECT_NEAR(fx.meter("integrated"), -20 - 3.01, 0.1);

    fx.component().setInteger("loudnessStrict", 1);  // the next programme starts from nothing
    fx.run(sine<double>(48000, 1000, 48000, 0.01));
    EXPECT_NEAR(fx.meter("samplePeak0"), -40, 0.01);
    EXPECT_NEAR(fx.meter("loudnessIntegral"), -43.0, 0.1);
}

TEST(StrictLawResults, ProgrammesEndWithinAFewBlocks)
{
    // Silence that is measured sample by sample would take the time of a thousand blocks.
    constexpr int kFrames = 512;
    const auto milliseconds = [](auto&& f) {
        const auto start = std::chrono::steady_clock::now();
        f();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
    };
    double block = 1e9, end = 1e9;
    for (int run = 0; run < 3; ++run) {
        EffectUnderTest<float> fx("Level Meter", 384000);
        fx.component().setInteger("loudnessStrict", 1);
        Channels<float> x(16, noise<float>(64 * kFrames));
        fx.play(x, kFrames);
        block = std::min(block, milliseconds([&] { fx.processBlock(x, x, 0, kFrames); }));
        fx.component().setInteger("loudnessStrict", 2);
        end = std::min(end, milliseconds([&] { fx.processBlock(x, x, 0, kFrames); }));
    }
    EXPECT_LT(end, 30 * block);
    RecordProperty("blocks", std::to_string(end / block));
}

}  // namespace
}  // namespace quillworks::test
