// SPDX-License-Identifier: ISC
// Responses on their way into a convolver: rates, cuts, paths, loudness.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <sstream>
#include <string>

#include "dsp/fft.h"
#include "reverb/response.h"

namespace quillworks::test {
namespace {

VNK::Sound<float> fileOf(std::vector<std::vector<float>> channels, double rate)
{
    VNK::Sound<float> file{rate, std::move(channels), 0};
    file.framesInFile = file.frames();
    return file;
}

std::vector<float> hall(double rate, double seconds, unsigned seed, std::size_t delay = 0)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    std::vector<float> x(static_cast<std::size_t>(rate * seconds));
    for (std::size_t i = delay + 1; i < x.size(); ++i)
        x[i] =
            float(0.05 * normal(random) * std::pow(10, -3 * double(i - delay) / double(x.size())));
    x[delay] = 1;
    return x;
}

double energyOf(const std::vector<double>& x)
{
    double sum = 0;
    for (const double v : x) sum += v * v;
    return sum;
}

double gainAt(const std::vector<double>& x, double f, double rate)
{
    std::complex<double> sum;
    for (std::size_t i = 0; i < x.size(); ++i)
        sum += x[i] * std::polar(1.0, -2 * std::numbers::pi * f / rate * double(i));
    return std::abs(sum);
}

double decibels(double ratio)
{
    return 20 * std::log10(ratio + 1e-30);
}

TEST(Response, AtItsOwnRateAndUncutIsTheFileItself)
{
    const auto file = fileOf({hall(48000, 0.1, 1), hall(48000, 0.1, 2)}, 48000);
    const auto response = shapedResponse(file, {}, 48000);
    ASSERT_EQ(response.size(), 2u);
    for (std::size_t c = 0; c < 2; ++c)
        EXPECT_TRUE(std::equal(response[c].begin(), response[c].end(), file.channels[c].begin(),
                               file.channels[c].end()));
}

TEST(Response, KeepsItsFrequencyResponseAtAnotherRate)
{
    std::vector<float> direct(2205);
    direct[220] = 1;
    const auto y = shapedResponse(fileOf({direct}, 44100), {}, 48000)[0];
    for (double f = 20; f <= 20000; f *= 1.1)
        EXPECT_NEAR(decibels(gainAt(y, f, 48000)), 0, 0.05) << f;
    for (double f = 22100; f < 24000; f += 150) EXPECT_LT(decibels(gainAt(y, f, 48000)), -110) << f;
}

TEST(Response, HasItsFirstSampleInPlaceAtEveryRate)
{
    for (const double from : {8000., 44100., 48000., 384000.})
        for (const double to : {8000., 44100., 48000., 192000.}) {
            SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
            std::vector<float> one(1000);
            one[0] = 0.7f;
            const auto y = shapedResponse(fileOf({one}, from), {}, to)[0];
            EXPECT_EQ(y.size(), static_cast<std::size_t>(std::ceil(1000 / from * to)));
            EXPECT_EQ(y[0], double(0.7f));
            EXPECT_EQ(energyOf(y), double(0.7f) * double(0.7f)) << "and nothing else";
        }
    // With a room behind it that begins at once.
    const auto room = hall(48000, 0.25, 3);
    const auto before = shapedResponse(fileOf({room}, 48000), {}, 48000)[0];
    const auto up = shapedResponse(fileOf({room}, 48000), {}, 192000)[0];
    EXPECT_NEAR(decibels(gainAt(up, 1000, 192000) / gainAt(before, 1000, 48000)), 0, 0.1);
    EXPECT_NEAR(decibels(gainAt(up, 100, 192000) / gainAt(before, 100, 48000)), 0, 0.1);
}

TEST(Response, IsCutStretchedAndFaded)
{
    const auto file = fileOf({hall(48000, 0.5, 4, 100), hall(48000, 0.5, 5, 100)}, 48000);
    const auto whole = shapedResponse(file, {}, 48000);
    const auto late = shapedResponse(file, {.start = 0.01}, 48000);
    EXPECT_EQ(late[0], std::vector<double>(whole[0].begin() + 480, whole[0].end()));

    for (const double stretch : {0.5, 0.73, 2.0}) {
        const auto drawn = shapedResponse(file, {.stretch = stretch}, 48000);
        EXPECT_EQ(drawn[0].size(), static_cast<std::size_t>(std::ceil(24000 * stretch)));
        EXPECT_NEAR(energyOf(drawn[0]) + energyOf(drawn[1]),
                    energyOf(whole[0]) + energyOf(whole[1]), 1e-9);
        const auto loudest = std::max_element(drawn[0].begin(), drawn[0].end());
        EXPECT_NEAR(double(loudest - drawn[0].begin()), 100 * stretch, 1);
    }

    const auto half = shapedResponse(file, {.length = 0.5}, 48000);
    ASSERT_EQ(half[0].size(), 12000u);
    EXPECT_TRUE(std::equal(half[0].begin(), half[0].begin() + 9600, whole[0].begin()));
    EXPECT_NEAR(half[0][10800] / whole[0][10800], 0.5, 0.001);
    EXPECT_LT(std::abs(half[0].back()), 2e-7 * std::abs(whole[0][11999]));

    auto mirrored = half;
    reverseResponse(mirrored);
    EXPECT_TRUE(std::equal(mirrored[1].rbegin(), mirrored[1].rend(), half[1].begin()));
    EXPECT_EQ(shapedResponse(file, {.start = 2, .length = 0}, 48000)[0], std::vector<double>{0});

    auto cut = file;
    cut.framesInFile = 100000;
    const auto faded = shapedResponse(cut, {}, 48000);
    EXPECT_EQ(faded[0][23519], whole[0][23519]);
    EXPECT_LT(std::abs(faded[0].back()), 1e-4 * std::abs(whole[0].back()));

    EXPECT_THROW(shapedResponse(file, {}, 44100, [] { return true; }), Cancelled);
}

TEST(Response, DecaysFasterFromAPointOn)
{
    ResponseChannels response{std::vector<double>(48000)};
    for (std::size_t i = 0; i < 48000; ++i)
        response[0][i] = std::pow(10, -3 * double(i) / 48000 / 1.5);
    const auto before = response[0];
    shortenDecay(response, 0.2, 1.5, 0.5, 48000);
    EXPECT_EQ(response[0][9600], before[9600]);
    EXPECT_NEAR(response[0][9600 + 36000], before[9600] * 1e-3, 1e-9) << "0.75 s to fall by 60 dB";
    shortenDecay(response, 0, 0, 0.5, 48000);
    EXPECT_NEAR(response[0][9600], before[9600], 0) << "an unknown decay stays";
}

/// "0>0:2" for a path from input 0 to output 0 by what the third channel holds; "a+b" for a mean,
/// "a*b" at equal energy. Channels hold 1, 10, 100, ... in a sample of their own.
std::string routed(int inFile, ResponseRouting routing, const char* layoutName)
{
    ResponseChannels file;
    for (int c = 0; c < inFile; ++c) {
        auto& x = file.emplace_back(std::size_t(inFile));
        x[std::size_t(c)] = 1;
    }
    VNK::SpeakerArrangement layout;
    EXPECT_TRUE(VNK::SpeakerArrangement::named(layoutName, layout));
    const auto matrix = routedResponse(file, routing, layout);
    std::ostringstream text;
    std::vector<int> used(matrix.responses.size());
    for (const auto& path : matrix.paths) {
        const auto& x = matrix.responses[std::size_t(path.response)];
        used[std::size_t(path.response)] = 1;
        text << (text.tellp() ? " " : "") << path.input << ">" << path.output << ":";
        const char* between = "";
        for (std::size_t c = 0; c < x.size(); ++c) {
            if (x[c] == 0) continue;
            text << between << c;
            between = std::abs(x[c] - std::sqrt(0.5)) < 1e-12 ? "*" : "+";
        }
    }
    for (const int use : used) EXPECT_EQ(use, 1) << "no response without a path";
    return text.str();
}

TEST(Response, IsRoutedByTheChannelsOfFileAndLayout)
{
    using enum ResponseRouting;
    const struct {
        const char* layout;
        ResponseRouting routing;
        int channels;
        const char* paths;
    } cases[] = {
        {"mono", Auto, 1, "0>0:0"},
        {"mono", Auto, 2, "0>0:0"},
        {"mono", Mono, 2, "0>0:0+1"},
        {"mono", Stereo, 4, "0>0:0"},
        {"mono", TrueStereo, 4, "0>0:0"},
        {"stereo", Auto, 1, "0>0:0 1>1:0"},
        {"stereo", Auto, 2, "0>0:0 1>1:1"},
        {"stereo", Auto, 3, "0>0:0 1>1:1"},
        {"stereo", Auto, 4, "0>0:0 1>0:2 0>1:1 1>1:3"},
        {"stereo", Mono, 3, "0>0:0+1+2 1>1:0+1+2"},
        {"stereo", Stereo, 1, "0>0:0 1>1:0"},
        {"stereo", Stereo, 4, "0>0:0 1>1:1"},
        {"stereo", TrueStereo, 1, "0>0:0 1>0:0 0>1:0 1>1:0"},
        {"stereo", TrueStereo, 2, "0>0:0 1>0:0 0>1:1 1>1:1"},
        {"stereo", TrueStereo, 3, "0>0:0 1>0:2 0>1:1 1>1:0"},
        // L R C LFE Ls Rs
        {"5.1", Auto, 1, "0>0:0 1>1:0 2>2:0 4>4:0 5>5:0"},
        {"5.1", Auto, 2, "0>0:0 1>1:1 2>2:0*1 4>4:0 5>5:1"},
        {"5.1", Auto, 4, "0>0:0 1>1:1 2>2:2 4>4:0 5>5:1"},
        {"5.1", Auto, 5, "0>0:0 1>1:1 2>2:2 4>4:3 5>5:4"},
        {"5.1", Auto, 6, "0>0:0 1>1:1 2>2:2 4>4:4 5>5:5"},
        {"5.1", TrueStereo, 4, "0>0:0 1>0:2 0>1:1 1>1:3 2>2:0+3 4>4:0 5>4:2 4>5:1 5>5:3"},
        {"lcr", Auto, 9, "0>0:0 1>0:3 2>0:6 0>1:1 1>1:4 2>1:7 0>2:2 1>2:5 2>2:8"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(routed(c.channels, c.routing, c.layout), c.paths)
            << c.layout << " " << c.channels << " " << int(c.routing);
}

TEST(Response, IsLevelledForPinkNoise)
{
    for (const double rate : {8000., 48000., 192000.}) {
        ResponseMatrix one{{{1}}, {{0, 0, 0}}};
        EXPECT_NEAR(autoLevelGain(one, rate), 0.5, 1e-5);
    }
    ResponseMatrix two{{{0.5}, {0, 0.25}}, {{0, 0, 0}, {1, 0, 1}, {1, 1, 0}}};
    EXPECT_NEAR(autoLevelGain(two, 48000), 0.5 / std::sqrt((0.25 + 0.0625 + 0.25) / 2), 1e-5);
    EXPECT_EQ(autoLevelGain({{{0, 0}}, {{0, 0, 0}}}, 48000), 1);

    // A dull room with a resonance, against its spectrum.
    const auto noise = hall(48000, 1.2, 6);
    std::vector<double> x(noise.begin(), noise.end());
    double low = 0;
    for (auto& v : x) v = low += 0.05 * (v - low);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] += 0.002 * std::sin(2 * std::numbers::pi * 440 / 48000 * double(i)) *
                std::exp(-double(i) / 4000);
    Fft<double> fft;
    fft.setSize(1 << 17);
    auto spectrum = x;
    spectrum.resize(fft.length());
    fft.forward(spectrum.data(), spectrum.data());
    double power = 0, weight = 0;
    for (std::uint32_t k = 1; k < 1 << 16; ++k) {
        const double f = 48000.0 * k / (1 << 17);
        if (f < 100 || f > 8000) continue;
        power += fft.binPower(spectrum.data(), k) / f;
        weight += 1 / f;
    }
    const double gain = autoLevelGain({{x}, {{0, 0, 0}}}, 48000);
    EXPECT_NEAR(decibels(gain / (0.5 / std::sqrt(power / weight))), 0, 0.1);
}

}  // namespace
}  // namespace quillworks::test
