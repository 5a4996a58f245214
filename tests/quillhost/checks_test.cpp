// SPDX-License-Identifier: ISC
// Reports for other programs, loudness over time, checks of effects, LV2 plug-ins in a chain, the
// manual and the completions.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sndfile.h>
#include <sstream>

#include "program.h"
#include "tests/support/build_paths.h"

namespace quillhost_test {
namespace {

constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class Checks : public InFolder {
protected:
    static Words lines(const std::string& text)
    {
        Words all;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) all.push_back(line);
        return all;
    }
};

TEST_F(Checks, EveryFormatOfAReportSaysTheSame)
{
    writeSound("one, \"two\".wav", noise(2, 96000, 0.1), kWavFloat);
    const Words words = {"measure", "one, \"two\".wav", "none.wav", "--target", "-20"};
    const auto as = [&](const char* format) {
        Words all = words;
        all.insert(all.end(), {"--format", format});
        const auto result = run(all);
        EXPECT_EQ(result.code, 1);
        return result.out;
    };
    const auto array = Json::parse(as("json"));
    const auto jsonl = lines(as("jsonl"));
    ASSERT_EQ(jsonl.size(), 2u);
    for (const std::size_t i : {0u, 1u}) EXPECT_EQ(Json::parse(jsonl[i]), array[i]);
    const auto csv = lines(as("csv"));
    ASSERT_EQ(csv.size(), 3u);
    EXPECT_TRUE(csv[0].starts_with("file,integrated,"));
    const auto begin = "\"one, \"\"two\"\".wav\"," + array[0]["integrated"].dump() + ",";
    EXPECT_TRUE(csv[1].starts_with(begin)) << csv[1];
    EXPECT_NE(csv[1].find(",96000,48000,2,target,"), std::string::npos) << csv[1];
    EXPECT_TRUE(csv[2].starts_with("none.wav,,")) << csv[2];
}

TEST_F(Checks, LoudnessOverTimeEndsAsTheWholeIsMeasured)
{
    auto sound = noise(2, 480000, 0.2);  // after five seconds it is 20 dB quieter
    for (std::size_t i = 480000; i < sound.samples.size(); ++i) sound.samples[i] *= 0.1;
    writeSound("in.wav", sound, kWavFloat);
    const auto course = [](Words words) {
        words.insert(words.end(), {"--what", "loudness", "--in", "in.wav", "-o", "l.json"});
        EXPECT_EQ(run(words).code, 0);
        return Json::parse(readBytes("l.json"));
    };
    const auto plain = course({"plot"});
    const auto whole = Json::parse(run({"measure", "in.wav", "--json"}).out)[0];
    EXPECT_EQ(plain["whole"]["integrated"], whole["integrated"]);
    EXPECT_EQ(plain["time"].size(), 100u);
    EXPECT_TRUE(plain["momentary"][2].is_null()) << "shorter than the window";
    const auto at = [&](const char* what, int i) { return double(plain[what][std::size_t(i)]); };
    EXPECT_NEAR(at("momentary", 45) - at("momentary", 70), 20, 0.3);
    EXPECT_GT(at("shortTerm", 60), at("shortTerm", 95) + 10) << "three seconds long";
    const auto quieter = course({"plot", "mixtool:gain=-6"});
    EXPECT_NEAR(double(quieter["momentary"][45]), at("momentary", 45) - 6, 0.01);
    EXPECT_EQ(quieter["before"]["momentary"], plain["momentary"]);
    for (const char* picture : {"l.svg", "l.png"}) {
        const Words words = {"plot", "--what", "loudness", "--in", "in.wav", "-o", picture};
        expectSilence(run(words));
        EXPECT_GT(readBytes(picture).size(), 5000u);
    }
}

TEST_F(Checks, TellWhatAnEffectKeepsAndWhatNot)
{
    const auto good = run({"check", "mixtool", "limiter", "--json"});
    EXPECT_EQ(good.code, 0) << good.err;
    std::set<std::string> kept;
    const auto report = Json::parse(good.out);
    for (const auto& check : report[0]["checks"])
        if (check["state"] == "kept") kept.insert(check["check"]);
    EXPECT_EQ(kept, (std::set<std::string>{"copy", "blocks", "precision", "bypass", "state",
                                           "rates", "recovery"}));
    const auto bad = run({"check", "mixtool:gain=-6", "--copy"});
    EXPECT_EQ(bad.code, 1);
    // What is taken from a sample of 0.5.
    EXPECT_NE(
        bad.err.find("mixtool:gain=-6: copy: with these settings: -12.1 dB (limit: same bits)"),
        std::string::npos)
        << bad.err;
    EXPECT_EQ(run({"check", "mixtool:gain=-6", "--copy", "--within", "-10"}).code, 0);
}

/// With our own bundle, which is there in every build that has lilv: the same effect beside itself.
TEST_F(Checks, APlugInOfTheSystemStandsInAChainBesideOurOwn)
{
#ifndef QUILLHOST_LV2
    GTEST_SKIP() << "built without lilv";
#else
    writeSound("in.wav", noise(2, 30000, 0.5), kWavFloat);
    const Words lv2 = {"LV2_PATH=" + quillworks::paths::lv2Folder};
    const auto render = [&](const char* out, Words more) {
        Words words = {"render", "in.wav", out};
        words.insert(words.end(), more.begin(), more.end());
        return run(words, "", lv2);
    };
    const std::string limiter = "lv2:urn:quillworks:limiter";
    const auto mixed = render("mixed.wav", {"--fx", "mixtool:gain=6", "--fx",
                                            limiter + ":ceiling=-3,attack=Fast", "--json"});
    ASSERT_EQ(mixed.code, 0) << mixed.err;
    const auto own = render(
        "own.wav", {"--fx", "mixtool:gain=6", "--fx", "limiter:ceiling=-3,attack=fast", "--json"});
    EXPECT_EQ(Json::parse(mixed.out)["latency"], Json::parse(own.out)["latency"]);
    EXPECT_GT(Json::parse(own.out)["latency"], 0);
    EXPECT_TRUE(readBytes("mixed.wav") == readBytes("own.wav"));

    // A mono one takes each channel by itself.
    EXPECT_EQ(render("m.wav", {"--fx", "lv2:urn:quillworks:mixtool-mono:gain=-6"}).code, 0);
    EXPECT_EQ(render("n.wav", {"--fx", "mixtool:gain=-6"}).code, 0);
    EXPECT_TRUE(readBytes("m.wav") == readBytes("n.wav"));

    expectFailure(render("x.wav", {"--fx", "lv2:urn:quillworks:limitter"}), 2,
                  "urn:quillworks:limiter");
    expectFailure(render("x.wav", {"--fx", limiter + ":ceilin=1"}), 2, "nearest: ceiling");
    expectFailure(render("x.wav", {"--fx", limiter + ":ceiling=1"}), 2, "out of range \\(-12 to 0");
    writeSound("in.wav", noise(3, 100), kWavFloat);
    expectFailure(render("x.wav", {"--fx", limiter}), 1, "3 channels; it has 2 audio inputs and 2");
    EXPECT_EQ(run({"bench", limiter}, "", lv2).code, 0);
    EXPECT_EQ(run({"plot", limiter, "--what", "curve", "-o", "c.svg"}, "", lv2).code, 0);
#endif
}

TEST_F(Checks, ManualAndCompletionsKnowEveryOptionOfEveryCommand)
{
    const auto man = run({"manual", "man"}).out, bash = run({"manual", "bash"}).out,
               zsh = run({"manual", "zsh"}).out;
    std::size_t options = 0;
    for (const auto& line : lines(run({"--help"}).out)) {
        const auto name = line.substr(0, line.find("  ", 2));
        if (!line.starts_with("  ") || name.size() < 4 || name[2] == '-' || name[2] == ' ')
            continue;
        const auto command = name.substr(2);
        EXPECT_NE(man.find("\n.SS " + command + "\n"), std::string::npos) << command;
        for (const auto& word : lines(run({command, "--help"}).out)) {
            const auto at = word.find("--");
            if (!word.starts_with("  ") || at == std::string::npos || at > 8) continue;
            const auto option = word.substr(at, word.find_first_of(" ,=", at) - at);
            std::string dashed;
            for (const char c : option) dashed += c == '-' ? "\\-" : std::string(1, c);
            EXPECT_NE(man.find(dashed), std::string::npos) << option;
            EXPECT_NE(bash.find(option), std::string::npos) << option;
            EXPECT_NE(zsh.find(option), std::string::npos) << option;
            ++options;
        }
    }
    EXPECT_GT(options, 80u);

    writeBytes("c.bash", bash);
    writeBytes("try.bash", R"(source ./c.bash
compopt() { :; }
complete_line() {
    COMP_LINE=$1 COMP_POINT=${#1} COMP_WORDS=("$PROGRAM") COMPREPLY=()
    _quillhost
    echo "${COMPREPLY[*]}"
}
complete_line "quillhost mea"
complete_line "quillhost render a.wav b.wav --dither "
complete_line "quillhost render --target p"
complete_line "quillhost render --fx lim"
complete_line "quillhost render --fx limiter:ceiling=-1,thresholdr"
)");
    setenv("PROGRAM", quillworks::paths::quillhost.c_str(), 1);
    setenv("QUILLWORKS_MODULE", quillworks::paths::module.c_str(), 1);
    FILE* const shell = popen("bash ./try.bash", "r");
    char buffer[4096];
    const std::string out(buffer, fread(buffer, 1, sizeof buffer, shell));
    EXPECT_EQ(pclose(shell), 0);
    EXPECT_EQ(lines(out),
              (Words{"measure", "tpdf shaped none", "podcast", "limiter", "-1,thresholdrel="}));
}

}  // namespace
}  // namespace quillhost_test
