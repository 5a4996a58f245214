// SPDX-License-Identifier: ISC
// quillhost ir: sweeps, what comes back of them, chains, and what cannot be solved.
#include <algorithm>
#include <cmath>
#include <sndfile.h>

#include "program.h"

namespace quillhost_test {
namespace {

constexpr int kFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class Ir : public InFolder {};

TEST_F(Ir, SweepsAreSolvedBySourceAndMicrophone)
{
    const Words sweep{"ir",     "sweep", "sweep.wav",  "--rate", "8000",      "--length", "1",
                      "--tail", "0.5",   "--channels", "2",      "--in-turn", "--json"};
    const auto told = Json::parse(run(sweep).out);
    EXPECT_EQ(told["sources"], 2);
    EXPECT_EQ(told["to"], 4000);
    EXPECT_EQ(told["lead"], 0.1);
    const auto played = readSound("sweep.wav");
    EXPECT_NEAR(double(played.frames()),
                8000 * (0.1 + 2 * (told["sweepLength"].get<double>() + 0.5)), 3);

    // Three microphones and a loopback: 40 samples late, at 0.5, -0.25 and 0.125 of either source.
    Sound recorded{4, 8000, 0, std::vector<double>(4 * played.frames())};
    const double gains[] = {0.5, -0.25, 0.125};
    for (std::size_t i = 40; i < played.frames(); ++i) {
        const double x = played.at(i - 40, 0) + played.at(i - 40, 1);
        for (std::size_t m = 0; m < 3; ++m) recorded.samples[4 * i + m] = gains[m] * x;
        recorded.samples[4 * i + 3] = played.at(i - 10, 0) + played.at(i - 10, 1);
    }
    writeSound("recorded.wav", recorded, kFloat);
    const Words solve{"ir",        "solve",  "recorded.wav", "--sweep",
                      "sweep.wav", "--json", "-o",           "o.wav"};
    const auto with = [&](Words more) {
        Words words = solve;
        words.insert(words.end(), more.begin(), more.end());
        const auto result = run(words);
        EXPECT_EQ(result.code, 0) << result.err;
        return Json::parse(result.out);
    };
    const auto plain = with({"--align", "as recorded"});
    for (const char* const key :
         {"latency", "noiseFloor", "responseToNoise", "thd", "t30", "c80", "clipped", "disturbed"})
        EXPECT_TRUE(plain.contains(key)) << key;
    EXPECT_EQ(plain["latency"], 10);
    auto response = readSound("o.wav");
    ASSERT_EQ(response.channels, 8) << "sources by microphones";
    for (int c = 0; c < 6; ++c)
        EXPECT_NEAR(response.at(40, c / 3 * 4 + c % 3), gains[c % 3], 0.002) << c;

    EXPECT_EQ(with({"--reference", "3", "--harmonics", "--align", "0"})["latency"], 30);
    response = readSound("o.wav");
    ASSERT_EQ(response.channels, 6);
    EXPECT_NEAR(response.at(30, 4), -0.25, 0.002);
    EXPECT_EQ(readSound("o H5.wav").channels, 6);
    with({"--trim", "--normalise"});
    EXPECT_LT(readSound("o.wav").frames(), 4000u);
}

TEST_F(Ir, AChainGivesItsResponseWithItsLatency)
{
    const auto mixtool = run({"ir", "of", "--fx", "mixtool", "-o", "mix.wav", "--json"});
    ASSERT_EQ(mixtool.code, 0) << mixtool.err;
    const auto mix = readSound("mix.wav");
    ASSERT_EQ(mix.channels, 4) << "left and right of left, of right";
    for (const int path : {0, 3}) EXPECT_NEAR(mix.at(0, path), 1, 0.001);
    for (const int path : {1, 2}) EXPECT_NEAR(mix.at(0, path), 0, 1e-6);
    const auto limiter = run({"ir", "of", "--fx", "limiter", "--layout", "mono", "--length", "2",
                              "-o", "limiter.wav", "--json"});
    const auto latency = Json::parse(run({"info", "limiter", "--json"}).out)["latency"];
    EXPECT_EQ(Json::parse(limiter.out)["latency"], latency);
    const auto shown = Json::parse(run({"ir", "show", "limiter.wav", "--json"}).out);
    EXPECT_EQ(shown["latency"], latency);
    EXPECT_EQ(shown["t60"].size(), 10u);
    EXPECT_GT(shown["length"], 0.4);
}

TEST_F(Ir, WhatCannotBeSolvedIsSaid)
{
    writeSound("noise.wav", noise(2, 48000), kFloat);
    writeSound(
        "other.wav",
        [] {
            auto sound = noise(1, 48000);
            sound.rate = 44100;
            return sound;
        }(),
        kFloat);
    ASSERT_EQ(run({"ir", "sweep", "sweep.wav", "--length", "1", "--tail", "0.5"}).code, 0);
    Sound silence{1, 48000, 0, std::vector<double>(48000)};
    writeSound("silence.wav", silence, kFloat);
    const auto fails = [](const Words& words, int code, const char* pattern) {
        expectFailure(run(words), code, pattern);
    };
    fails({"ir", "solve", "noise.wav", "--sweep", "noise.wav", "-o", "o.wav"}, 1, ".*no sweep.*");
    fails({"ir", "solve", "other.wav", "--sweep", "sweep.wav", "-o", "o.wav"}, 1, ".*rate.*");
    fails({"ir", "solve", "silence.wav", "--sweep", "sweep.wav", "-o", "o.wav"}, 1,
          ".*came back.*");
    fails({"ir", "solve", "noise.wav", "--sweep", "sweep.wav", "-o", "noise.wav"}, 2, ".*noise.*");
    fails({"ir", "solve", "noise.wav", "--sweep", "sweep.wav", "--reference", "2", "-o", "o.wav"},
          2, ".*reference.*");
    fails({"ir", "solve", "noise.wav", "--sweep", "sweep.wav"}, 2, ".*-o IR.*");
    fails({"ir", "solve", "noise.wav", "--sweep", "sweep.wav", "--align", "3", "-o", "o.wav"}, 2,
          ".*To Onset.*");
    fails({"ir", "show", "sweep.wav", "--rate", "8000"}, 2, ".*no use for --rate.*");
    fails({"ir", "make", "x.wav"}, 2, ".*does not know.*");
    fails({"ir", "of", "--fx", "mixtool", "-o", "o.xyz"}, 2, ".*");
    EXPECT_EQ(files(), (Words{"noise.wav", "other.wav", "silence.wav", "sweep.wav"}));
}

}  // namespace
}  // namespace quillhost_test
