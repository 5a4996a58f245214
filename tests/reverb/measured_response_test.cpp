// SPDX-License-Identifier: ISC
// Responses solved out of sweeps that went through systems of known response.
#include "reverb/measured_response.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <random>

#include "dsp/fft.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using Response = std::vector<double>;

const std::function<bool()> kNever = [] { return false; };

/// Linear convolution, cut to the length of x.
std::vector<double> convolved(const std::vector<double>& x, const Response& h)
{
    Fft<double> fft;
    fft.setSize(static_cast<std::uint32_t>(x.size() + h.size()));
    std::vector<double> a(x), b(h);
    a.resize(fft.length()), b.resize(fft.length());
    fft.forward(a.data(), a.data());
    fft.forward(b.data(), b.data());
    fft.multiply(a.data(), b.data(), a.data());
    fft.inverse(a.data(), a.data());
    a.resize(x.size());
    return a;
}

/// Gaussian noise that falls by 60 dB in `t60` seconds, behind a direct sound of 1 at `delay`.
Response room(double t60, double seconds, std::size_t delay, double fs, unsigned seed = 1)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> gauss;
    Response h(delay + static_cast<std::size_t>(seconds * fs));
    for (std::size_t i = delay; i < h.size(); ++i)
        h[i] = 0.03 * gauss(random) * std::pow(10, -3 * double(i - delay) / fs / t60);
    h[delay] = 1;
    return h;
}

/// A measurement through f(sweep and silence), one path.
template <class F>
SweepMeasurement measured(const SweepSettings& settings, double tailSeconds, F&& f,
                          double noiseLevel = 0)
{
    SweepMeasurement m{Sweep(settings)};
    m.excitation = m.sweep.samples();
    m.tail = static_cast<std::size_t>(tailSeconds * settings.sampleRate);
    std::vector<double> played(m.excitation.begin(), m.excitation.end());
    played.resize(m.frames());
    played = f(std::move(played));
    std::mt19937 random(5);
    std::normal_distribution<double> gauss(0, noiseLevel);
    const auto withNoise = [&](double x) {
        return static_cast<float>(noiseLevel > 0 ? x + gauss(random) : x);
    };
    auto& recorded = m.recorded.emplace_back();
    for (const double x : played) recorded.push_back(withNoise(x));
    auto& noise = m.noise.emplace_back();
    for (int i = 0; i < 19200; ++i) noise.push_back(withNoise(0));
    return m;
}

constexpr SolveOptions kPlain{Align::AsRecorded, 0, false, false, true};

double magnitudeDb(const Response& h, double frequency, double fs)
{
    double re = 0, im = 0;
    for (std::size_t i = 0; i < h.size(); ++i) {
        const double w = 2 * std::numbers::pi * std::fmod(frequency * double(i) / fs, 1.0);
        re += h[i] * std::cos(w), im -= h[i] * std::sin(w);
    }
    return test::db(std::hypot(re, im));
}

/// Energy of x between two frequencies, in dB.
double energyDb(std::vector<double> x, double from, double to, double fs)
{
    Fft<double> fft;
    fft.setSize(static_cast<std::uint32_t>(x.size()));
    x.resize(fft.length());
    fft.forward(x.data(), x.data());
    double sum = 0;
    const double bin = double(fft.length()) / fs;
    for (auto k = std::uint32_t(from * bin); k < std::uint32_t(to * bin); ++k)
        sum += fft.binPower(x.data(), k);
    return 10 * std::log10(sum + 1e-300);
}

TEST(MeasuredResponse, ALoopbackIsAUnitImpulseAtItsPlace)
{
    struct Case {
        double fs, seconds, from, ringingDb;  // what the missing lows ring, before as behind
        std::size_t delay;
    };
    for (const auto& [fs, seconds, from, ringingDb, delay] : {Case{48000, 10, 20, -60, 4800},
                                                              {44100, 8, 20, -60, 5000},
                                                              {8000, 4, 10, -50, 1000},
                                                              {96000, 6, 15, -65, 20000},
                                                              {48000, 1, 100, -50, 4800},
                                                              {48000, 1, 5, -60, 0}}) {
        const auto m = measured({fs, seconds, from, 0.25}, 0.5, [d = delay](auto x) {
            x.insert(x.begin(), std::size_t(d), 0.0);
            x.resize(x.size() - d);
            return x;
        });
        const auto solved = solveMeasurement(m, kPlain, kNever).value();
        const auto& h = solved.paths[0];
        EXPECT_NEAR(h[delay], 1, 2 * from / fs) << fs;
        double before = 0;
        for (auto i = delay - std::min(delay, std::size_t(0.05 * fs));
             i + std::size_t(0.001 * fs) < delay; ++i)
            before = std::max(before, std::abs(h[i]));
        EXPECT_LE(test::db(before), ringingDb) << fs;
        // Cut a millisecond before the sound it must be as flat.
        const auto cut = solveMeasurement(m, {Align::ToOnset, 0, false, false, false}, kNever);
        for (double f = 2 * from; f < 0.4 * fs; f *= 1.23)
            for (const auto* response : {&h, &cut->paths[0]})
                ASSERT_NEAR(magnitudeDb(*response, f, fs), 0,
                            seconds < 3 || fs < 44100 ? 0.1 : 0.05)
                    << fs << ", " << f;
        EXPECT_EQ(solved.figures.latency, double(delay));
        EXPECT_EQ(solved.figures.noiseFloor, -200);
        EXPECT_FALSE(solved.figures.isDisturbed);
        EXPECT_LT(solved.figures.thd, 0.001);
    }
}

TEST(MeasuredResponse, ARoomComesBackAndIsJudged)
{
    const double fs = 48000;
    const auto h = room(0.4, 0.8, 480, fs);
    const SweepSettings sweep{fs, 10, 20, 0.5};
    const auto through = [&](auto x) { return convolved(x, h); };
    const auto solved = solveMeasurement(measured(sweep, 1, through), kPlain, kNever).value();
    auto difference = solved.paths[0];
    for (std::size_t i = 0; i < h.size(); ++i) difference[i] -= h[i];
    EXPECT_LE(energyDb(difference, 60, 18000, fs) - energyDb(h, 60, 18000, fs), -60);
    EXPECT_EQ(solved.figures.latency, 480);
    EXPECT_NEAR(solved.figures.t30, 0.4, 0.04);
    EXPECT_GT(solved.figures.c80, 10);

    // With noise of -60 dB: what is foretold of the noise in it is there, and cut off.
    SolveOptions options{Align::ToOnset, 0, false, false, false};
    const auto noisy = measured(sweep, 1, through, 0.001);
    const auto whole = solveMeasurement(noisy, options, kNever).value();
    EXPECT_NEAR(whole.figures.noiseFloor, -60, 0.1);
    EXPECT_NEAR(whole.figures.t30, solved.figures.t30, 0.01);
    EXPECT_NEAR(whole.figures.c80, solved.figures.c80, 0.1);
    EXPECT_NEAR(test::db(test::peak(whole.paths[0]) / test::rms(whole.paths[0], 40000)),
                whole.figures.responseToNoise, 1);
    EXPECT_GT(whole.figures.responseToNoise, 100);
    const auto first = std::max_element(whole.paths[0].begin(), whole.paths[0].end());
    EXPECT_EQ(first - whole.paths[0].begin(), 48) << "1 ms before the first sound";
    options.trim = options.normalise = true;
    const auto cut = solveMeasurement(noisy, options, kNever).value();
    EXPECT_LT(cut.paths[0].size(), 0.75 * fs);
    EXPECT_GT(cut.paths[0].size(), 0.4 * fs);
    EXPECT_NEAR(cut.paths[0].back(), 0, 1e-30);
    EXPECT_NEAR(test::db(test::peak(cut.paths[0])), -1, 1e-9);
    options = {Align::MinusLatency, 0.005, false, false, false};
    EXPECT_EQ(solveMeasurement(noisy, options, kNever)->paths[0][240], whole.paths[0][48]);
    EXPECT_FALSE(solveMeasurement(noisy, options, [] { return true; }));
}

TEST(MeasuredResponse, DistortionIsReadApart)
{
    // Orders 2 and 3 of x + a x^2 + b x^3 under a sine of 0.5.
    const double fs = 48000, a = 0.0991, b = 0.0496, first = 1 + 0.75 * b * 0.25;
    const double second = test::db(a * 0.5 / 2 / first), third = test::db(b * 0.25 / 4 / first);
    for (const double noise : {0.0, 0.001}) {
        const auto bent = measured(
            {fs, 10, 20, 0.5}, 1,
            [=](auto x) {
                for (double& v : x) v += a * v * v + b * v * v * v;
                return x;
            },
            noise);
        const auto solved = solveMeasurement(bent, kPlain, kNever).value();
        const double linear = magnitudeDb(solved.paths[0], 1000, fs);
        const auto order = [&](std::size_t n) {
            return magnitudeDb(solved.harmonics[n - 2][0], 1000 * double(n), fs) - linear;
        };
        EXPECT_NEAR(order(2), second, noise > 0 ? 0.5 : 0.1);
        EXPECT_NEAR(order(3), third, noise > 0 ? 1.8 : 0.1);
        if (noise > 0) continue;
        EXPECT_LT(order(4), -100);
        EXPECT_LT(order(5), -100);
        EXPECT_NEAR(solved.figures.thd,
                    100 * std::hypot(std::pow(10, second / 20), std::pow(10, third / 20)), 0.02);
    }
    // A distorted room that outlasts the way between the orders: a longer sweep is wanted.
    const auto hall = room(3, 2, 0, fs);
    const auto blurred = measured({fs, 2, 20, 0.5}, 2, [&](auto x) {
        for (double& v : x) v += 0.1 * v * v;
        return convolved(x, hall);
    });
    const auto solved = solveMeasurement(blurred, kPlain, kNever).value();
    EXPECT_GT(solved.figures.betterSweep, 8);
}

TEST(MeasuredResponse, ADropOutIsToldAndALoopbackTakesTheConverterOut)
{
    const double fs = 48000;
    const SweepSettings settings{fs, 6, 20, 0.5};
    const auto h = room(0.3, 0.6, 480, fs);
    auto m = measured(
        settings, 1, [&](auto x) { return convolved(x, h); }, 0.0003);
    EXPECT_FALSE(solveMeasurement(m, {}, kNever)->figures.isDisturbed);
    auto dropped = m;
    std::fill_n(dropped.recorded[0].begin() + 240000, 960, 0.0f);
    EXPECT_TRUE(solveMeasurement(dropped, {}, kNever)->figures.isDisturbed);

    // A converter with a colour, 100 samples late, on both ways.
    const Response converter = [] {
        Response c(400);
        for (std::size_t i = 0; i < 300; ++i) c[100 + i] = (i ? 0.2 : 1) * std::pow(0.9, double(i));
        return c;
    }();
    m = measured(settings, 1, [&](auto x) { return convolved(convolved(x, converter), h); });
    m.reference = measured(settings, 1, [&](auto x) { return convolved(x, converter); }).recorded;
    const auto solved = solveMeasurement(m, kPlain, kNever).value();
    EXPECT_EQ(solved.figures.latency, 480);
    auto difference = solved.paths[0];
    for (std::size_t i = 0; i < h.size(); ++i) difference[i] -= h[i];
    EXPECT_LE(energyDb(difference, 60, 18000, fs) - energyDb(h, 60, 18000, fs), -50);
}

TEST(MeasuredResponse, AFileOfTheSweepTellsWhichItIs)
{
    struct Case {
        SweepSettings settings;
        double lead, tail;
        int sources, bits;  // bits 0: as computed
    };
    for (const auto& [settings, lead, tail, sources, bits] :
         {Case{{48000, 8, 20, 0.125}, 0.1, 4, 1, 0},
          {{44100, 3, 31.7, 1}, 0.1, 0.5, 2, 24},
          {{96000, 10, 12.345678, 0.5}, 0.1, 1, 1, 0},
          {{48000, 5, 20, 0.004}, 0.1, 0.5, 2, 16},
          {{8000, 1, 200, 0.1}, 0, 0.7, 3, 0},
          {{48000, 1, 5, 1}, 0.1, 0.5, 1, 16}}) {
        const Sweep sweep(settings);
        const auto samples = sweep.samples();
        const double fs = settings.sampleRate;
        const SweepSchedule wanted{std::size_t(lead * fs), sweep.frames(), std::size_t(tail * fs),
                                   sources};
        std::vector<std::vector<float>> file(std::size_t(sources),
                                             std::vector<float>(wanted.frames()));
        std::vector<const float*> channels;
        for (int s = 0; s < sources; ++s) {
            auto& x = file[std::size_t(s)];
            std::copy(samples.begin(), samples.end(), x.begin() + std::ptrdiff_t(wanted.start(s)));
            const float steps = std::exp2(float(bits - 1));
            for (float& v : x)
                if (bits > 0) v = std::round(v * steps) / steps;
            channels.push_back(x.data());
        }
        const auto found = SweepFile::recognise(channels, wanted.frames(), fs);
        ASSERT_TRUE(found) << settings.from;
        EXPECT_NEAR(found->sweep.from(), settings.from, 1e-6 * settings.from);
        EXPECT_NEAR(found->sweep.harmonicLead(2), sweep.harmonicLead(2), 1e-6);
        EXPECT_EQ(found->samples.size(), samples.size());
        EXPECT_EQ(found->schedule.lead, wanted.lead);
        EXPECT_EQ(found->schedule.tail, wanted.tail);
        EXPECT_EQ(found->schedule.sources, sources);
    }
    const auto sine = test::sine<float>(96000, 440, 48000);
    const auto noise = test::noise<float>(96000);
    const std::vector<float> silence(96000);
    for (const auto& x : {sine, noise, silence}) {
        const float* const channel = x.data();
        EXPECT_FALSE(SweepFile::recognise({&channel, 1}, x.size(), 48000));
    }
}

}  // namespace
}  // namespace quillworks
