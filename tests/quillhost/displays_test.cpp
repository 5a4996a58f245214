// SPDX-License-Identifier: ISC
// Displays of effects without a window: plot --what display, measure --fx, meters that come from an
// engine.
#include <cmath>
#include <numbers>
#include <sndfile.h>

#include "program.h"

namespace quillhost_test {
namespace {

class Displays : public InFolder {
protected:
    void SetUp() override
    {
        Sound tone;
        for (int i = 0; i < 48000; ++i)
            tone.samples.push_back(0.5 * std::sin(2 * std::numbers::pi * i / 48));
        writeSound("tone.wav", tone, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    }
};

TEST_F(Displays, PlotAndMeasureShowTheSameAtAnyBlockLength)
{
    const Words plot = {"plot", "scope:time=10", "--what", "display", "--in", "tone.wav", "-o"};
    auto words = plot;
    words.push_back("t.json");
    expectSilence(run(words));
    const auto trace = Json::parse(readBytes("t.json"));
    EXPECT_EQ(trace["display"], "trace");
    EXPECT_EQ(trace["frame"], 48000);
    EXPECT_EQ(trace["lost"], 0);
    ASSERT_EQ(trace["channels"][0]["samples"].size(), 480u);
    // The rising edge of the 1 kHz tone.
    const double instant = double(trace["start"]) + double(trace["offset"]);
    EXPECT_NEAR(std::remainder(instant, 48), 0, 0.005);

    const auto measured = Json::parse(
        run({"measure", "tone.wav", "--fx", "scope:time=10", "--json", "--block", "77"}).out)[0];
    EXPECT_EQ(measured["displays"]["trace"]["channels"], trace["channels"]);
    EXPECT_NEAR(measured["values"]["frequency"], 1000, 0.1);
    EXPECT_NEAR(measured["values"]["peaktopeak"], 1, 1e-3);

    words = plot;
    words.insert(words.end(), {"t.svg", "--at", "0.5"});
    expectSilence(run(words));
    EXPECT_NE(readBytes("t.svg").find("</svg>"), std::string::npos);

    expectSilence(run({"render", "tone.wav", "o.wav", "--fx", "scope", "--meters", "m.jsonl"}));
    const auto lines = readBytes("m.jsonl");
    const auto last = lines.rfind("{\"frame\"");
    EXPECT_NEAR(Json::parse(lines.substr(last))["values"]["frequency"], 1000, 0.1);
}

TEST_F(Displays, SpectraAreDrawnAndAreTheSameFiguresInEveryProcess)
{
    const std::string effect = "spectrum-meter:resolution=fast,mode=";
    for (const auto& [mode, display] :
         {std::pair("spectrum", "spectrum"), std::pair("bands", "bands"),
          std::pair("sonogram", "sonogram")}) {
        Words plot = {"plot",  effect + mode, "--what",   "display", "--display",
                      display, "--in",        "tone.wav", "-o"};
        std::string first;
        for (const char* block : {"512", "64", "511"}) {
            auto words = plot;
            words.insert(words.end(), {"s.json", "--block", block});
            expectSilence(run(words));
            if (first.empty()) first = readBytes("s.json");
            EXPECT_EQ(readBytes("s.json"), first) << display << " " << block;
        }
        plot.push_back("s.svg");
        expectSilence(run(plot));
        EXPECT_NE(readBytes("s.svg").find("</svg>"), std::string::npos);
    }
    const auto measured =
        Json::parse(run({"measure", "tone.wav", "--fx", "spectrum-meter", "--json"}).out)[0];
    EXPECT_FALSE(measured["displays"].contains("sonogram"));
    EXPECT_TRUE(measured["displays"]["bands"]["channels"][0]["level"].is_null());
    const auto& spectrum = measured["displays"]["spectrum"];
    EXPECT_EQ(spectrum["frequency"].size(), std::size_t(spectrum["length"]) / 2 + 1);
    EXPECT_NEAR(spectrum["channels"][0]["peaks"][0]["frequency"], 1000, 0.01);
    EXPECT_NEAR(measured["values"]["peaklevel"], -6.02, 0.01);
    expectFailure(run({"plot", "spectrum-meter", "--what", "display", "--display", "bands", "--in",
                       "tone.wav", "-o", "s.png"}),
                  1, "nothing to show");
}

TEST_F(Displays, StereoFieldAndCorrelationsAreDrawn)
{
    Sound both;
    both.channels = 2;
    for (int i = 0; i < 48000; ++i)
        for (const int sign : {1, -1})
            both.samples.push_back(sign * 0.25 * std::sin(2 * std::numbers::pi * i / 48));
    writeSound("both.wav", both, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    for (const char* display : {"goniometer", "bandcorrelation", "matrix"}) {
        Words plot = {"plot",      "phase-meter:view=polar",
                      "--what",    "display",
                      "--display", display,
                      "--in",      "both.wav",
                      "-o"};
        plot.push_back("p.json");
        expectSilence(run(plot));
        const auto shown = Json::parse(readBytes("p.json"));
        EXPECT_EQ(shown["display"], display);
        if (display == std::string("matrix")) {
            EXPECT_NEAR(shown["value"][0][1], -1, 1e-6);
        }
        if (shown.contains("points")) {
            EXPECT_NEAR(shown["points"][9][1], 0, 1e-6);
        }
        plot.back() = "p.svg";
        expectSilence(run(plot));
        EXPECT_NE(readBytes("p.svg").find("</svg>"), std::string::npos);
    }
    const auto measured =
        Json::parse(run({"measure", "both.wav", "--fx", "phase-meter", "--json"}).out)[0];
    EXPECT_NEAR(measured["values"]["correlation"], -1, 1e-6);
    EXPECT_EQ(measured["values"]["mono"], -144);
    EXPECT_EQ(measured["displays"]["bandcorrelation"]["valid"][5], true);
}

TEST_F(Displays, HistoryOfAGateFollowsItsGain)
{
    // Loud for half of the file.
    Sound halves;
    for (int i = 0; i < 48000; ++i) halves.samples.push_back(i < 24000 ? 0.5 : 0.0001);
    writeSound("halves.wav", halves, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    expectSilence(run({"plot", "gate:threshold=-30,range=-40,release=50,hold=1", "--what",
                       "display", "--in", "halves.wav", "-o", "h.json"}));
    const auto history = Json::parse(readBytes("h.json"));
    EXPECT_EQ(history["rate"], 1500);
    const auto& key = history["bands"][0];
    ASSERT_EQ(key["gain"].size(), 1500u);
    EXPECT_NEAR(key["level"][700], -6.02, 0.01);
    EXPECT_NEAR(key["gain"][700], 0, 0.01);
    EXPECT_NEAR(key["gain"][1499], -40, 0.1);
}

TEST_F(Displays, HistoryOfBandsRisesAndFalls)
{
    // A tone in the second band; upward there below -10 dB, downward above.
    Sound tone;
    for (int i = 0; i < 48000; ++i)
        tone.samples.push_back((i < 24000 ? 0.5 : 0.05) * std::sin(i * 0.13));
    writeSound("steps.wav", tone, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    expectSilence(run({"plot",
                       "multiband dynamics:bands=2,threshold1=-16,ratio1=2,lowthreshold1=-20,"
                       "lowratio1=0.5",
                       "--what", "display", "--in", "steps.wav", "-o", "m.json"}));
    const auto bands = Json::parse(readBytes("m.json"))["bands"];
    EXPECT_NEAR(bands[1]["gain"][700], -5, 1);
    EXPECT_NEAR(bands[1]["gain"][1490], 3, 1);
    EXPECT_EQ(bands[4]["level"][1490], nullptr);
}

TEST_F(Displays, WhatIsNotThereIsSaid)
{
    expectFailure(run({"plot", "scope", "--what", "display", "--display", "spectrum", "--in",
                       "tone.wav", "-o", "t.json"}),
                  2, "no display \"spectrum\".*trace");
    expectFailure(run({"plot", "mixtool", "--what", "display", "--in", "tone.wav", "-o", "t.json"}),
                  2, "has no displays");
    expectFailure(run({"measure", "tone.wav", "--display", "trace"}), 2, "needs --fx");
    expectFailure(run({"plot", "scope", "--what", "curve", "--at", "1", "-o", "t.png"}), 2,
                  "--at needs --what display");
    expectFailure(run({"measure", "none.wav", "--fx", "scope"}), 1, "none.wav");
    EXPECT_FALSE(std::filesystem::exists("t.json"));
    const auto info = Json::parse(run({"info", "scope", "--json"}).out);
    EXPECT_EQ(info["displays"], Json({"trace"}));
    EXPECT_EQ(info["hasDisplays"], true);
}

}  // namespace
}  // namespace quillhost_test
