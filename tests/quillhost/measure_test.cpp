// SPDX-License-Identifier: ISC
// quillhost measure: figures of files, side by side, and limits.
#include <cmath>
#include <numbers>
#include <sndfile.h>

#include "program.h"

namespace quillhost_test {
namespace {

constexpr int kFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

struct Tone {
    double seconds, level;  // peak in dBFS
};

/// 1 kHz in all channels, each with a gain in dB.
Sound tones(const std::vector<Tone>& segments, const std::vector<double>& gains = {0, 0},
            int rate = 48000)
{
    Sound s{int(gains.size()), rate, 0, {}};
    double time = 0;
    for (const auto& segment : segments) {
        time += segment.seconds;
        const auto end = std::size_t(std::llround(time * rate));
        for (std::size_t i = s.frames(); i < end; ++i) {
            const double v = std::sin(2 * std::numbers::pi * 1000 * double(i) / rate);
            for (const double gain : gains)
                s.samples.push_back(v * std::pow(10, (segment.level + gain) / 20));
        }
    }
    return s;
}

class Measure : public InFolder {
protected:
    static Json measure(Words words, int code = 0)
    {
        words.insert(words.begin(), {"measure", "--json"});
        const auto result = run(words);
        EXPECT_EQ(result.code, code) << result.err;
        return Json::parse(result.out);
    }
};

TEST_F(Measure, FiguresOfFilesOfManyKinds)
{
    writeSound("gated.wav", tones({{5, -36}, {20, -23}, {5, -36}}), kFloat);
    writeSound("range.flac", tones({{10, -20}, {10, -30}}, {0, 0}, 44100),
               SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    // With a mask the surrounds weigh more and the LFE nothing.
    const std::vector<double> surround{-28.6456, -28.6456, -28.6456, -6, -28.6456, -28.6456};
    writeSound("5.1.wav", tones({{5, 0}}, surround), SF_FORMAT_WAVEX | SF_FORMAT_DOUBLE);
    ASSERT_EQ(maskOf("5.1.wav"), 0x3Fu);
    const auto r = measure({"gated.wav", "range.flac", "5.1.wav"});
    ASSERT_EQ(r.size(), 3u);
    EXPECT_NEAR(r[0]["integrated"], -23, 0.1);
    EXPECT_NEAR(r[0]["momentaryMax"], -23, 0.1);
    EXPECT_NEAR(r[0]["shortTermMax"], -23, 0.1);
    EXPECT_NEAR(r[0]["truePeak"], -23, 0.1);
    EXPECT_EQ(r[0]["frames"], 30 * 48000);
    EXPECT_NEAR(r[1]["range"], 10, 1);
    EXPECT_NEAR(double(r[1]["rangeHigh"]) - double(r[1]["rangeLow"]), r[1]["range"], 1e-3);
    EXPECT_EQ(r[1]["sampleRate"], 44100);
    EXPECT_NEAR(r[2]["integrated"], -24, 0.1);
    ASSERT_EQ(r[2]["samplePeak"].size(), 6u);
    EXPECT_NEAR(r[2]["samplePeak"][3], -6, 0.01);
    EXPECT_NEAR(r[2]["rms"][0], -28.6456, 0.01);
}

TEST_F(Measure, NothingToReportIsNullAndMissesATarget)
{
    writeSound("silence.wav", tones({{4, -999}}), kFloat);
    writeSound("brief.wav", tones({{0.3, -20}}), kFloat);
    const auto r = measure({"silence.wav", "brief.wav", "--target", "-23"}, 1);
    for (const char* key : {"integrated", "momentaryMax", "shortTermMax", "range", "rangeLow"})
        for (const auto& file : r) EXPECT_TRUE(file[key].is_null()) << key;
    EXPECT_TRUE(r[0]["truePeak"].is_null());
    EXPECT_NEAR(r[1]["truePeak"], -20, 0.1);
}

TEST_F(Measure, ResultsComeInOrderWhateverTheNumberOfJobs)
{
    Words files;
    for (int i = 0; i < 7; ++i) {
        files.push_back(std::to_string(i) + ".wav");
        writeSound(files.back(), tones({{i == 0 ? 12.0 : 1.0, -20.0 - i}}), kFloat);
    }
    auto one = files, four = files;
    one.insert(one.end(), {"--jobs", "1"});
    four.insert(four.end(), {"--jobs", "4"});
    const auto r = measure(one);
    EXPECT_EQ(r, measure(four));
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(r[i]["file"], files[i]);
        EXPECT_NEAR(r[i]["integrated"], -20.0 - double(i), 0.1);
    }
}

TEST_F(Measure, AFileThatCannotBeReadFailsAlone)
{
    writeBytes("text.wav", "not a sound");
    writeSound("good.wav", tones({{1, -20}}), kFloat);
    const auto result = run({"measure", "missing.wav", "good.wav", "text.wav"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.err;
    EXPECT_NE(result.err.find("missing.wav"), std::string::npos);
    EXPECT_NE(result.err.find("text.wav"), std::string::npos);
    EXPECT_NE(result.out.find("good.wav"), std::string::npos);
}

TEST_F(Measure, LimitsDecideTheExitCode)
{
    writeSound("a.wav", tones({{1, -20}}), kFloat);
    const struct {
        Words limits;
        int code;
    } cases[] = {{{"--target", "-20.3"}, 0},
                 {{"--target", "-21"}, 1},
                 {{"--target", "-21", "--tolerance", "1.1"}, 0},
                 {{"--max-true-peak", "-19"}, 0},
                 {{"--max-true-peak", "-21"}, 1},
                 {{"--tolerance", "1"}, 2},
                 {{"--jobs", "0"}, 2}};
    for (const auto& c : cases) {
        Words words{"measure", "a.wav"};
        words.insert(words.end(), c.limits.begin(), c.limits.end());
        const auto result = run(words);
        EXPECT_EQ(result.code, c.code) << c.limits[0] << " " << c.limits[1];
        EXPECT_EQ(result.out.find("missed") != std::string::npos, c.code == 1);
    }
    expectFailure(run({"measure"}), 2, "FILE");
    const auto piped = run({"measure", "-"}, readBytes("a.wav"));
    EXPECT_EQ(piped.code, 0);
    EXPECT_NE(piped.out.find("-20.0"), std::string::npos) << piped.out;
}

}  // namespace
}  // namespace quillhost_test
