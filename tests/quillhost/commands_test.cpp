// SPDX-License-Identifier: ISC
// What list, info, preset, plot and bench give.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <sndfile.h>
#include <sstream>

#include "program.h"
#include "tests/support/build_paths.h"

namespace quillhost_test {
namespace {

class Commands : public InFolder {};

TEST_F(Commands, ListAndInfoDescribeEveryClass)
{
    const auto list = Json::parse(run({"list", "--json"}).out);
    ASSERT_GE(list.size(), 31u);
    for (std::size_t i = 0; i < list.size(); ++i) {
        const auto& row = list[i];
        const std::string name = row["name"];
        SCOPED_TRACE(name);
        EXPECT_EQ(row["index"], i + 1);
        // The manual's pages hold the tables of all classes, and are written in one process.
        if (kIsSanitised && i % 4 != 0) continue;
        const auto info = Json::parse(run({"info", name, "--json"}).out);
        EXPECT_EQ(info["name"], name);
        EXPECT_EQ(info["classId"], row["classId"]);
        EXPECT_TRUE(info["latency"].is_number_integer());
        EXPECT_TRUE(info["tail"].is_number() || info["tail"].is_null());
        std::set<std::string> keys;
        for (const auto& p : info["parameters"]) {
            EXPECT_TRUE(keys.insert(p["key"]).second);
            EXPECT_LE(p["min"], p["default"]);
            EXPECT_LE(p["default"], p["max"]);
            const std::string kind = p["kind"];
            EXPECT_EQ(p["readOnly"], kind == "meter");
            if (kind == "list" || (kind == "meter" && p.contains("choices")))
                EXPECT_EQ(p["choices"].size(), int(p["max"]) - int(p["min"]) + 1) << p["key"];
            else
                EXPECT_FALSE(p.contains("choices")) << p["key"];
        }
        EXPECT_TRUE(keys.count("bypass"));
        EXPECT_GE(info["views"].size(), 1u);
        std::istringstream page(run({"info", name}).out);
        for (std::string line; std::getline(page, line);) {
            const auto characters =
                std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xC0) != 0x80; });
            EXPECT_LE(characters, 100) << line;
        }
    }
    EXPECT_EQ(Json::parse(run({"info", "mixtool", "--json"}).out)["passThrough"], false);
}

TEST_F(Commands, EffectsAreFoundByAnyFormOfTheirName)
{
    const auto wanted = run({"info", "Analog Delay"}).out;
    EXPECT_NE(wanted.find("Analog Delay  {51F3ADC5-"), std::string::npos);
    for (const char* name :
         {"analog-delay", "ANALOGDELAY", "{51f3adc5-911d-4885-8ce5-a7cd1709754d}",
          "51F3ADC5-911D-4885-8CE5-A7CD1709754D"})
        EXPECT_EQ(run({"info", name}).out, wanted) << name;
}

TEST_F(Commands, PresetsKeepWhatIsSetAndAreLoadedBeforeTheValues)
{
    expectSilence(run({"preset", "save", "mixtool:gain=-6,phaseflipleft=on", "flip.fxpreset"}));
    const auto shown = Json::parse(run({"preset", "show", "flip.fxpreset", "--json"}).out);
    EXPECT_EQ(shown["effect"], "Mixtool");
    EXPECT_EQ(shown["name"], "flip");
    EXPECT_EQ(shown["parameters"]["gain"], -6);
    EXPECT_EQ(shown["parameters"]["phaseflipleft"], 1);

    const auto in = noise(2, 4800);
    writeSound("in.wav", in, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    // The preset belongs to the --fx before it, wherever the others stand.
    expectSilence(run({"render", "in.wav", "out.wav", "--fx", "mixtool", "--fx", "mixtool:gain=0",
                       "--preset", "flip.fxpreset", "--precision", "64"}));
    const auto out = readSound("out.wav");
    for (std::size_t i = 0; i < in.frames(); ++i) {
        ASSERT_NEAR(out.at(i, 0), -in.at(i, 0), 1e-12) << i;
        ASSERT_NEAR(out.at(i, 1), in.at(i, 1), 1e-12) << i;
    }
    expectFailure(
        run({"render", "in.wav", "o.wav", "--fx", "limiter", "--preset", "flip.fxpreset"}), 1,
        "flip.fxpreset: .*another effect");
    auto odd = readBytes("flip.fxpreset");
    writeBytes("odd.fxpreset", odd.replace(odd.find("name=\"flip"), 7, "name=\"\xFF"));
    EXPECT_EQ(run({"preset", "show", "odd.fxpreset", "--json"}).code, 0);
    writeBytes("cut.fxpreset", readBytes("flip.fxpreset").substr(0, 300));
    expectFailure(run({"preset", "show", "cut.fxpreset"}), 1, "cut.fxpreset: is not a preset");
    expectFailure(run({"preset", "show", "none.fxpreset"}), 1, "none.fxpreset");
}

TEST_F(Commands, PicturesAreCompleteFilesOfTheKindTheirNameSays)
{
    writeSound("in.wav", noise(2, 24000), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    for (const std::string what : {"curve", "response", "step", "gain"}) {
        Words words = {"plot", "compressor:threshold=-20,ratio=4", "--what", what, "-o", "p.png"};
        if (what == "gain") words.insert(words.end(), {"--in", "in.wav"});
        expectSilence(run(words));
        const auto png = readBytes("p.png");
        EXPECT_EQ(png.substr(1, 3), "PNG");
        EXPECT_NE(png.find("IEND"), std::string::npos);
        words[5] = "p.svg";
        expectSilence(run(words));
        EXPECT_NE(readBytes("p.svg").find("</svg>"), std::string::npos);
    }
}

TEST_F(Commands, BenchNamesEachSpecWithItsTime)
{
    const auto all =
        Json::parse(run({"bench", "mixtool", "compressor:ratio=4", "--block", "64", "--json"}).out);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1]["name"], "compressor:ratio=4");
    EXPECT_GT(all[1]["nsPerFrame"], 0);
    EXPECT_NEAR(double(all[0]["timesRealTime"]) * double(all[0]["nsPerFrame"]), 1e9 / 48000, 0.01);
}

TEST_F(Commands, WhatPassesThroughSaysSoWhereItIsNotSeen)
{
    const auto list = Json::parse(run({"list", "--json"}).out);
    writeSound("in.wav", noise(2, 100), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    for (const bool passes : {false, true}) {
        const auto row = std::find_if(list.begin(), list.end(),
                                      [&](const Json& r) { return r["passThrough"] == passes; });
        if (row == list.end()) continue;  // there is none any more
        const std::string name = (*row)["name"];
        const Words commands[] = {{"render", "in.wav", "o.wav", "--fx", name, "--fx", name},
                                  {"plot", name, "--what", "gain", "--in", "in.wav", "-o", "p.png"},
                                  {"preset", "save", name, "p.fxpreset"},
                                  {"bench", name, name}};
        for (const auto& words : commands)
            EXPECT_EQ(run(words).err,
                      passes ? "quillhost: " + name + " passes audio through for now\n" : "")
                << words[0];
    }
}

TEST_F(Commands, ExamplesOfTheHelpWork)
{
    // What they speak of; the mix is as loud as its example asks for.
    Sound mix{2, 48000, 0, {}};
    for (int i = 0; i < 48000; ++i)
        mix.samples.insert(mix.samples.end(), 2, 0.0708 * std::sin(i * 2 * 3.14159265 / 48));
    const int kWav = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    for (const char* name : {"in.wav", "speech.wav", "mix.wav"}) writeSound(name, mix, kWav);
    for (const char* folder : {"album", "archive"}) std::filesystem::create_directories(folder);
    writeSound("album/one.flac", mix, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    writeSound("archive/one.wav", mix, kWav);
    expectSilence(run({"preset", "save", "limiter", "loud.fxpreset"}));
    std::filesystem::create_directories("build/release/module");
    std::filesystem::create_symlink(quillworks::paths::module,
                                    "build/release/module/quillworks.so");
    std::filesystem::create_symlink(quillworks::paths::quillhost, "quillhost");
    const std::string path =
        "export PATH=.:$PATH QUILLWORKS_MODULE=" + quillworks::paths::module + "; ";
    for (const std::string command :
         {"list", "info", "render", "measure", "plot", "preset", "bench", "ir"}) {
        std::istringstream help(run({command, "--help"}).out);
        int examples = 0;
        bool isExample = false;
        for (std::string line; std::getline(help, line); isExample |= line == "Examples:") {
            if (!isExample || line.find("quillhost") == std::string::npos) continue;
            ++examples;
            EXPECT_EQ(std::system((path + "(" + line + ") >said 2>&1").c_str()), 0)
                << line << "\n"
                << readBytes("said");
        }
        EXPECT_GE(examples, 1) << command;
    }
}

}  // namespace
}  // namespace quillhost_test
