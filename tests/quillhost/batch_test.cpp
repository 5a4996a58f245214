// SPDX-License-Identifier: ISC
// Many files at once, loudness targets, dither and conversion of the rate.
#include <cmath>
#include <complex>
#include <filesystem>
#include <map>
#include <sndfile.h>

#include "program.h"

namespace quillhost_test {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class Batch : public InFolder {
protected:
    /// Integrated loudness and true peak of a file.
    static std::pair<double, double> measured(const std::string& path)
    {
        const auto report = Json::parse(run({"measure", path, "--json"}).out)[0];
        return {report["integrated"], report["truePeak"]};
    }
    /// Noise whose level changes every eight seconds by `spreadDb`.
    static Sound steps(std::size_t frames, double spreadDb)
    {
        auto sound = noise(2, frames, 0.5);
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t c = 0; c < 2; ++c)
                if (i / 384000 % 2) sound.samples[2 * i + c] *= std::pow(10, -spreadDb / 20);
        return sound;
    }
};

TEST_F(Batch, GivesEveryFileTheBitsThatItGetsAloneAndGoesOnBehindABadOne)
{
    for (const char* name : {"a.wav", "b.wav", "d.wav"})
        writeSound(name, noise(2, 30000 + std::size_t(name[0]), 0.5), kWavFloat);
    writeBytes("c.wav", "no sound");
    const Words fx = {"--fx", "limiter:ingain=6", "--fx", "analogdelay"};
    auto words = Words{"render", "a.wav",    "b.wav", "c.wav",  "d.wav", "--out-dir",
                       "o",      "--suffix", "-x",    "--jobs", "3"};
    words.insert(words.end(), fx.begin(), fx.end());
    const auto result = run(words);
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("c.wav: "), std::string::npos) << result.err;
    const auto at = [&](const char* text) { return result.out.find(text); };
    EXPECT_LT(at("o/a-x.wav: 0.6 s"), at("o/b-x.wav"));
    EXPECT_LT(at("o/b-x.wav"), at("o/d-x.wav"));
    EXPECT_NE(at("3 rendered, 1 failed:\n  c.wav"), std::string::npos) << result.out;
    EXPECT_FALSE(std::filesystem::exists("o/c-x.wav"));
    for (const std::string name : {"a", "b", "d"}) {
        Words alone = {"render", name + ".wav", "alone.wav"};
        alone.insert(alone.end(), fx.begin(), fx.end());
        expectSilence(run(alone));
        EXPECT_TRUE(readBytes("alone.wav") == readBytes("o/" + name + "-x.wav")) << name;
    }

    // What is there stays, and is said so before anything is done.
    writeBytes("o/a.wav", "mine");
    const Words skipping = {"render", "a.wav",   "b.wav",           "--out-dir", "o",
                            "--fx",   "mixtool", "--skip-existing", "--dry-run"};
    EXPECT_EQ(run(skipping).out, "a.wav -> o/a.wav (is there, stays)\nb.wav -> o/b.wav\n");
    const auto skipped = run({skipping.begin(), skipping.end() - 1});
    EXPECT_NE(skipped.out.find("1 rendered, 1 skipped"), std::string::npos) << skipped.out;
    EXPECT_EQ(readBytes("o/a.wav"), "mine");
}

TEST_F(Batch, RefusesWhatCannotBeMeant)
{
    writeSound("a.wav", noise(1, 1000), kWav16);
    std::filesystem::create_directory("o");
    std::filesystem::copy_file("a.wav", "o/a.wav");
    const struct {
        Words words;
        const char* pattern;
    } cases[] = {
        {{"a.wav", "o/a.wav", "--out-dir", "p", "--fx", "mixtool"}, "both become p/a.wav"},
        {{"a.wav", "--out-dir", ".", "--fx", "mixtool"}, "a.wav"},
        {{"a.wav", "--out-dir", "a.wav", "--fx", "mixtool"}, "no folder"},
        {{"-", "--out-dir", "o", "--fx", "mixtool"}, "standard input"},
        {{"a.wav", "b.wav", "--jobs", "2", "--fx", "mixtool"}, "--out-dir"},
        {{"a.wav", "b.wav", "c.wav", "--fx", "mixtool"}, "IN and OUT"},
        {{"a.wav", "b.wav", "--true-peak", "-1", "--fx", "mixtool"}, "--normalize"},
        {{"a.wav", "b.wav", "--target", "loudest"}, "ebu-r128"},
        {{"a.wav", "b.wav", "--target", "podcast", "--normalize", "-20"}, "leave one out"},
        {{"a.wav", "-", "--normalize", "-20"}, "name a file"},
        {{"a.wav", "--out-dir", "o", "--extension", "doc", "--fx", "mixtool"}, "not known"},
    };
    for (const auto& c : cases) {
        Words words = {"render"};
        words.insert(words.end(), c.words.begin(), c.words.end());
        expectFailure(run(words), 2, c.pattern);
    }
    EXPECT_EQ(files(), (Words{"a.wav", "o"}));
}

TEST_F(Batch, BringsFilesToALoudnessUnderACeiling)
{
    auto quiet = noise(2, 480000, 0.02), peaks = noise(2, 480000, 0.05);
    for (std::size_t i = 0; i < peaks.samples.size(); i += 9601) peaks.samples[i] = 0.9;
    writeSound("quiet.wav", quiet, kWavFloat);
    writeSound("peaks.wav", peaks, kWavFloat);
    const auto result = run({"render", "quiet.wav", "peaks.wav", "--out-dir", "o", "--normalize",
                             "-20", "--true-peak", "-2", "--strict", "--json"});
    EXPECT_EQ(result.code, 0) << result.err;
    const auto report = Json::parse(result.out);
    for (const std::size_t i : {0u, 1u}) {
        const auto [loudness, peak] = measured(report[i]["output"]);
        EXPECT_NEAR(loudness, -20, 0.1) << i;
        EXPECT_LE(peak, -1.95) << i;
        EXPECT_EQ(report[i]["limited"], i == 1);
        EXPECT_NEAR(report[i]["after"]["integrated"], loudness, 0.01);
        EXPECT_NEAR(report[i]["before"]["integrated"],
                    measured(i ? "peaks.wav" : "quiet.wav").first, 0.01);
    }

    // Together they keep what lies between them.
    EXPECT_EQ(
        run({"render", "quiet.wav", "peaks.wav", "--out-dir", "p", "--album", "--normalize", "-40"})
            .code,
        0);
    EXPECT_NEAR(measured("p/peaks.wav").first - measured("p/quiet.wav").first,
                measured("peaks.wav").first - measured("quiet.wav").first, 0.1);

    // What the ceiling does not allow is said, and fails where it is asked to.
    const auto loud = run(
        {"render", "peaks.wav", "loud.wav", "--normalize", "-1", "--true-peak", "-6", "--strict"});
    EXPECT_EQ(loud.code, 1);
    EXPECT_NE(loud.out.find("missed: "), std::string::npos) << loud.out;
    EXPECT_LE(measured("loud.wav").second, -5.9);
}

TEST_F(Batch, NarrowsTheRange)
{
    writeSound("in.wav", steps(48000 * 40, 20), kWavFloat);
    const auto result = Json::parse(
        run({"render", "in.wav", "out.wav", "--normalize", "-23", "--range-max", "12", "--json"})
            .out);
    EXPECT_GT(result["before"]["range"], 15);
    EXPECT_LE(result["after"]["range"], 12.1);
    EXPECT_NEAR(result["after"]["integrated"], -23, 0.1);
}

TEST_F(Batch, DitherTurnsDistortionIntoNoise)
{
    // A tone of half a step at 16 bits: rounded it vanishes, dithered it is there.
    Sound tone;
    for (int i = 0; i < 48000; ++i)
        tone.samples.push_back(0.45 / 32768 * std::sin(2 * M_PI * 1000 * i / 48000));
    writeSound("in.wav", tone, kWavFloat);
    struct Found {
        double tone, noise, low;  // steps; the last where the ear is sharpest
    };
    const auto found = [&](const char* kind) {
        expectSilence(run({"render", "in.wav", "out.wav", "--fx", "mixtool", "--format", "pcm16",
                           "--dither", kind}));
        const auto x = readSound("out.wav").samples;
        double re = 0, im = 0, sum = 0, low = 0;
        std::vector<double> errors;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double y = x[i] * 32768, w = 2 * M_PI * 1000 * double(i) / 48000;
            re += y * std::cos(w), im += y * std::sin(w);
            const double error = y - tone.samples[i] * 32768;
            sum += error * error;
            errors.push_back(error);
        }
        const double n = double(x.size());
        for (int f = 2500; f < 4500; f += 20) {
            std::complex<double> bin = 0;
            for (std::size_t i = 0; i < errors.size(); ++i)
                bin += std::polar(errors[i], 2 * M_PI * f * double(i) / 48000);
            low += std::norm(bin) / n;
        }
        return Found{2 * std::hypot(re, im) / n, std::sqrt(sum / n), std::sqrt(low / 100)};
    };
    EXPECT_EQ(found("none").tone, 0);
    const auto plain = found("tpdf"), shaped = found("shaped");
    EXPECT_NEAR(plain.tone, 0.45, 0.02);
    EXPECT_NEAR(plain.noise, 0.5, 0.01);  // a quarter of a step squared
    EXPECT_NEAR(shaped.tone, 0.45, 0.02);
    EXPECT_GT(shaped.noise, 2 * plain.noise);
    EXPECT_LT(shaped.low, 0.5 * plain.low);
    const auto bytes = readBytes("out.wav");
    found("shaped");
    EXPECT_TRUE(bytes == readBytes("out.wav")) << "the same in every run";
}

TEST_F(Batch, ConvertsTheRateWithoutDelay)
{
    Sound tone;
    tone.channels = 2;
    for (int i = 0; i < 44100; ++i)
        for (const double f : {997.0, 15000.0})
            tone.samples.push_back(0.5 * std::sin(2 * M_PI * f * i / 44100));
    tone.rate = 44100;
    writeSound("in.wav", tone, kWavFloat);
    for (const auto& [rate, frames] : std::map<int, std::size_t>{{48000, 48000}, {96000, 96000}}) {
        expectSilence(run({"render", "in.wav", "out.wav", "--rate", std::to_string(rate)}));
        const auto out = readSound("out.wav");
        EXPECT_EQ(out.rate, rate);
        ASSERT_EQ(out.frames(), frames);
        double worst = 0;
        for (std::size_t i = frames / 4; i < frames * 3 / 4; ++i)
            for (const int c : {0, 1})
                worst = std::max(
                    worst, std::abs(out.at(i, c) - 0.5 * std::sin(2 * M_PI * (c ? 15000 : 997) *
                                                                  double(i) / rate)));
        EXPECT_LT(worst, 1e-5) << rate;
    }
}

}  // namespace
}  // namespace quillhost_test
