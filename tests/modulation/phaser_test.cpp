// SPDX-License-Identifier: ISC
// Notches and resonances where they belong, a loop that nothing makes blow up, and the same sweep
// in every rendering.
#include <complex>

#include "tests/support/sanitised.h"
#include "tests/support/song.h"

namespace quillworks::test {
namespace {

constexpr const char* kName = "Phaser";
constexpr int kStages[] = {2, 4, 6, 8, 12, 16, 24};

template <typename T> EffectUnderTest<T> standing(int choice, double frequency, double feedback)
{
    EffectUnderTest<T> fx(kName);
    fx.set("stages", choice).set("frequency", frequency).set("feedback", feedback);
    fx.set("range", 0).set("mix", 100);
    return fx;
}

std::complex<double> responseOf(const Signal<double>& impulseResponse, double hertz, double rate)
{
    const auto step = std::polar(1.0, -2 * std::numbers::pi * hertz / rate);
    std::complex<double> sum = 0, turn = 1;
    for (const double h : impulseResponse) sum += h * turn, turn *= step;
    return sum;
}

/// The law in the frequency domain: stages by the trapezoidal rule, fed back at once.
std::complex<double> expected(int stages, double frequency, double k, double hertz, double rate)
{
    using namespace std::complex_literals;
    const double pi = std::numbers::pi, g = std::tan(pi * frequency / rate);
    const auto s = 1i * std::tan(pi * hertz / rate);
    const auto chain = std::pow((g - s) / (g + s), stages);
    const auto highPass = s / (s + std::tan(pi / rate));
    const double mean = std::pow((g - 1) / (g + 1), stages);
    const double gain = std::sqrt((1 - k * k) * (1 - k * mean) / (1 + k * mean));
    return gain * chain / (1.0 - k * highPass * chain);
}

TEST(PhaserStages, AnswerAsTheFormulaAndPeakWhereTheAnalogueOnesDo)
{
    constexpr double kRate = 44100;
    for (int choice = 0; choice < 7; ++choice)
        for (const double frequency : {150., 1500., 8000.})
            for (const double feedback : {-70., 0., 70.}) {
                auto fx = standing<double>(choice, frequency, feedback);
                fx.sampleRate(kRate);
                const auto y = fx.run(impulse<double>(2 * 44100));
                for (const double hertz : {20., 90., 400., 1300., 4000., 12000., 21000.}) {
                    const auto wanted =
                        expected(kStages[choice], frequency, feedback / 100, hertz, kRate);
                    EXPECT_LT(std::abs(responseOf(y, hertz, kRate) - wanted), 1e-4)
                        << kStages[choice] << " stages, " << frequency << " Hz, " << feedback
                        << " %, at " << hertz;
                }
            }

    double worst = 0;
    for (const double frequency : {500., 1500.})
        for (const double feedback : {-70., 70.}) {
            auto fx = standing<double>(2, frequency, feedback);
            fx.sampleRate(kRate);
            const auto y = fx.run(impulse<double>(8192));
            const auto analogue = [&](double hertz) {
                const std::complex<double> s(0, hertz / frequency);
                const auto chain = std::pow((1.0 - s) / (1.0 + s), 6);
                return std::abs(chain / (1.0 - feedback / 100 * chain));
            };
            const auto digital = [&](double hertz) {
                return std::abs(responseOf(y, hertz, kRate));
            };
            const auto peaks = [](auto&& response) {
                std::vector<double> found;
                double before = 0, now = 0;
                for (double hertz = 60; hertz < 5500; hertz *= std::exp2(1 / 300.0)) {
                    const double next = response(hertz);
                    if (now > before && now >= next) found.push_back(hertz);
                    before = now, now = next;
                }
                return found;
            };
            const auto are = peaks(digital), shall = peaks(analogue);
            for (const double peak : shall) {
                if (peak > 5000) continue;
                double nearest = 1e9;
                for (const double is : are)
                    nearest = std::min(nearest, std::abs(1200 * std::log2(is / peak)));
                worst = std::max(worst, nearest);
            }
        }
    std::printf("[ peaks    ] within %.0f cents\n", worst);
    EXPECT_LT(worst, 20);
}

TEST(PhaserStages, LeaveNothingAtTheNotch)
{
    for (const int choice : {0, 2}) {
        auto fx = standing<double>(choice, 1000, 0);
        const auto y = fx.set("mix", 50).run(impulse<double>(48000));
        const double depth = db(std::abs(responseOf(y, 1000, 48000)));
        std::printf("[ notch    ] %.0f dB\n", depth);
        EXPECT_LT(depth, -90) << kStages[choice];
    }
}

template <typename T> class Phaser : public ::testing::Test {};
TYPED_TEST_SUITE(Phaser, Precisions);

TYPED_TEST(Phaser, KeepsThePowerOfNoiseAtAnyPlaceAndFeedback)
{
    using T = TypeParam;
    double worst = 0;
    for (int choice = 0; choice < 7; ++choice)
        for (const double frequency : {50., 200., 900., 8000.})
            for (const double feedback : {-95., -40., 95.}) {
                if (kIsSanitised && frequency != 200) break;
                auto fx = standing<T>(choice, frequency, feedback);
                // The mean power of an impulse is its energy: no chance in it.
                const auto y = fx.run(impulse<T>(4 * 48000));
                double energy = 0;
                for (const T v : y) energy += double(v) * double(v);
                worst = std::max(worst, std::abs(10 * std::log10(energy)));
                EXPECT_NEAR(10 * std::log10(energy), 0, 0.1)
                    << kStages[choice] << " stages, " << frequency << " Hz, " << feedback << " %";
            }
    std::printf("[ standing ] within %.3f dB\n", worst);
}

TYPED_TEST(Phaser, NeitherGrowsNorFadesHoweverItIsThrown)
{
    using T = TypeParam;
    const auto x = noise<T>(96000, 11, 1);
    double loudest = 0, worst = 0;
    for (const double feedback : {-95., 95.})
        for (int way = 0; way < 4; ++way) {
            EffectUnderTest<T> fx(kName);
            fx.set("stages", 4).set("feedback", feedback).set("mix", 100).set("range", 8);
            fx.set("lfotime", 20).set("wave", way).prepare(2);
            std::mt19937 random(kSeed);
            Channels<T> y(2, x);
            for (int at = 0; at < int(x.size()); at += 16) {
                const double share = way < 2 ? at / 16 % 2 : double(random() % 1000) / 999;
                fx.set("frequency", 50 * std::pow(160, share));
                fx.processBlock(y, y, at, 16);
            }
            for (const auto& channel : y) {
                loudest = std::max(loudest, peak(channel));
                worst = std::max(worst, std::abs(db(rms(channel) / rms(x))));
            }
        }
    std::printf("[ thrown   ] peak %.2f, power within %.2f dB\n", loudest, worst);
    EXPECT_LT(loudest, 8);
    EXPECT_LT(worst, 1);
}

TYPED_TEST(Phaser, SweepsAlikeFromAnyPlaceAndInAnyBlocks)
{
    using T = TypeParam;
    // Quarter 64 begins a sub-block at 120 beats a minute; at the other tempo the grids differ,
    // which edges of a wave would show.
    struct Case {
        double tempo;
        int mode, wave;
        double envelope;
    };
    const int frames = 48000 * 3;
    for (const auto [tempo, mode, wave, envelope] : {Case{133.7, 0, 1, 0},
                                                     {120, 0, 2, -2},
                                                     {120, 0, 4, 3},
                                                     {133.7, 1, 0, 0},
                                                     {120, 2, 0, 0}}) {
        const Song song{.tempo = tempo};
        const auto start = std::int64_t(64 * 60 * 48000 / tempo);
        const auto x = noise<T>(std::size_t(start + frames), 3);
        const auto run = [&, m = mode, w = wave, e = envelope](std::int64_t from, int n,
                                                               int block) {
            EffectUnderTest<T> fx(kName);
            fx.set("mode", m).set("wave", w).set("envelope", e).set("lfosync", 1);
            fx.set("lfobeatsnu", 0.5).set("range", 8).set("feedback", 50);
            const Signal<T> part(x.begin() + from, x.begin() + from + n);
            return song.play<T>(fx, from, n, block, {}, {part, part});
        };
        const auto whole = run(0, 20000, 1000);
        for (const int block : {1, 64}) EXPECT_EQ(run(0, 20000, block), whole) << mode << block;
        const auto all = run(0, int(start) + frames, 1000), part = run(start, frames, 512);
        for (std::size_t c = 0; c < 2; ++c) {
            const Signal<T> later(all[c].begin() + start + 96000, all[c].end());
            const Signal<T> own(part[c].begin() + 96000, part[c].end());
            EXPECT_LT(peakDifferenceDb(own, later), -60) << mode << " " << wave;
        }
    }
}

TEST(PhaserChanges, GoOverWithoutAStep)
{
    const double steady = 2 * std::numbers::pi * 200 / 48000;
    const auto x = sine<double>(96000, 200, 48000);
    struct Case {
        const char* key;
        double a, b;
        int mode;
    };
    for (const auto& [key, a, b, mode] : {Case{"stages", 0, 6, 0},
                                          {"mode", 0, 1, 0},
                                          {"mode", 1, 2, 1},
                                          {"stages", 2, 4, 1},
                                          {"lfosync", 0, 1, 1},
                                          {"wave", 0, 3, 0},
                                          {"feedback", -50, 50, 0},
                                          {"mix", 0, 100, 0}}) {
        EffectUnderTest<double> fx(kName);
        fx.set("mode", mode);
        const auto y = Song{}.play<double>(fx, 0, 96000, 100,
                                           [&, key = key, a = a, b = b](int at) {
                                               if (at % 4700 == 0)
                                                   fx.set(key, at / 4700 % 2 ? a : b);
                                           },
                                           {x, x});
        for (const auto& channel : y)
            EXPECT_LE(largestStep(channel) / steady, 3) << key << " in mode " << mode;
    }
}

TEST(PhaserEndless, GoesTheWayItSays)
{
    // One notch, which takes 4 s for its 4 octaves around 1 kHz.
    for (const int mode : {1, 2}) {
        EffectUnderTest<float> fx(kName);
        fx.set("mode", mode).set("stages", 0).set("frequency", 1000).set("range", 4);
        fx.set("lfotime", 0.25).set("feedback", 95).set("mix", 100);
        const auto y = fx.run(sine<float>(4 * 48000, 1414.2, 48000));
        std::size_t quietest = 0;
        const auto level = [&](std::size_t at) { return rms(y, at, at + 480); };
        for (std::size_t at = 480; at + 480 < y.size(); at += 480)
            if (level(at) < level(quietest)) quietest = at;
        EXPECT_NEAR(double(quietest) / 48000, mode == 1 ? 2.5 : 1.5, 0.05);
        EXPECT_LT(db(level(quietest)), -15);
        EXPECT_NEAR(fx.meter("cycle"), 1, 0.01);
    }
}

TEST(PhaserEndless, LeavesNothingBesideATone)
{
    EffectUnderTest<float> fx(kName);
    fx.set("mode", 1).set("stages", 4).set("mix", 100).set("lfotime", 0.3).set("range", 6);
    constexpr int kFrames = 32768;
    auto y = as<double>(fx.run(sine<float>(96000 + kFrames, 1000, 48000)));
    y.erase(y.begin(), y.begin() + 96000);
    for (int i = 0; i < kFrames; ++i) {
        // Blackman and Harris's window, squared: side lobes below -180 dB.
        const double w = 2 * std::numbers::pi * i / kFrames;
        const double b =
            0.35875 - 0.48829 * std::cos(w) + 0.14128 * std::cos(2 * w) - 0.01168 * std::cos(3 * w);
        y[std::size_t(i)] *= b * b;
    }
    double beside = 0, tone = 0;
    for (double hertz = 10; hertz < 3000; hertz += 1.5) {
        const double power = std::norm(responseOf(y, hertz, 48000));
        (std::abs(hertz - 1000) > 100 ? beside : tone) += power;
    }
    const double level = 10 * std::log10(beside / tone);
    std::printf("[ beside   ] %.0f dB\n", level);
    EXPECT_LT(level, -90);
}

TEST(LfoPhase, IsReadWhereTheOscillatorOfEachEffectIs)
{
    for (const char* name : {"Phaser", "Flanger", "Chorus", "Autofilter", "Analog Delay"}) {
        EffectUnderTest<float> fx(name);
        fx.set("lfosync", 0).set("lfotime", 2);
        fx.run(sine<float>(48000 + 7200, 440, 48000));  // 1.15 s
        EXPECT_NEAR(fx.meter("lfophase"), 0.3, 0.005) << name;
    }
}

}  // namespace
}  // namespace quillworks::test
