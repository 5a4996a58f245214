// SPDX-License-Identifier: ISC
// quillhost view: hands from a file, and the form as texts.
#include <algorithm>
#include <array>
#include <cairo.h>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "program.h"

namespace quillhost_test {
namespace {

class ViewCommand : public InFolder {
protected:
    /// What the lines set, as "begin ratio", "ratio=4", "end ratio"; values that follow one another
    /// are the last of them.
    Words hands(const std::string& effect, const std::string& lines, const Words& more = {})
    {
        writeBytes("hands.jsonl", lines);
        Words words = {"view", effect, "--events", "hands.jsonl"};
        words.insert(words.end(), more.begin(), more.end());
        const auto result = run(words);
        EXPECT_EQ(result.code, 0) << result.err;
        Words steps;
        std::istringstream out(result.out);
        for (std::string line; std::getline(out, line) && line.starts_with("{");) {
            const auto event = Json::parse(line);
            const std::string what = event["do"], key = event.value("key", "");
            if (what != "value") {
                steps.push_back(what + (key.empty() ? "" : " " + key));
                continue;
            }
            std::ostringstream text;
            text << key << "=" << event["value"].get<double>();
            if (steps.back().starts_with(key + "=")) steps.pop_back();
            steps.push_back(text.str());
        }
        return steps;
    }
};

TEST_F(ViewCommand, PlaysEveryKindOfHand)
{
    struct Case {
        const char *effect, *lines;
        Words steps;
    };
    const Case cases[] = {
        {"compressor:knee=3",
         R"({"do":"drag","key":"knee","dy":-1000})",
         {"begin knee", "knee=20", "end knee"}},
        {"compressor:mix=0",
         R"({"do":"drag","key":"mix","dx":20,"shift":true})",
         {"begin mix", "mix=0.01", "end mix"}},
        {"compressor:ratio=7",
         R"({"do":"click","key":"ratio","y":-10,"count":2})",
         {"begin ratio", "end ratio", "begin ratio", "ratio=1", "end ratio"}},
        {"compressor:linked=0",
         R"({"do":"press","key":"linked"}
            {"do":"move","key":"linked","x":4}
            {"do":"release","key":"linked"})",
         {"begin linked", "linked=1", "end linked"}},
        {"compressor:mix=1",
         R"({"do":"wheel","key":"mix","notches":-2}
            {"do":"wait","seconds":0.5})",
         {"begin mix", "mix=0.96", "end mix"}},
        {"compressor",
         R"({"do":"click","key":"threshold","y":40}
            {"do":"text","text":"-20 dB"}
            {"do":"key","name":"Tab"}
            {"do":"key","name":"Delete"})",
         {"begin threshold", "threshold=-20", "end threshold", "begin ratio", "ratio=1",
          "end ratio"}},
        {"bandpress:freqlow=200",
         R"({"do":"press","display":"BandCurve","key":"freqlow"}
            {"do":"release","display":"BandCurve","key":"freqlow"}
            {"do":"key","name":"Tab"}
            {"do":"key","name":"Enter"}
            {"do":"text","text":"150 Hz"}
            {"do":"key","name":"Enter"})",
         {"begin freqlow", "end freqlow", "begin freqlow", "freqlow=150", "end freqlow"}},
    };
    for (const auto& c : cases)
        for (const char* scale : {"1", "2"})
            EXPECT_EQ(hands(c.effect, c.lines, {"--scale", scale}), c.steps) << c.lines;
}

TEST_F(ViewCommand, SaysWhichLineOfAFileIsWrong)
{
    for (const auto& [line, reason] :
         {std::pair("drag", "not a JSON object"), std::pair(R"({"do":"fly"})", "nothing called"),
          std::pair(R"({"do":"click","key":"nose"})", "shows no \"nose\""),
          std::pair(R"({"do":"key","name":"Any"})", "no key \"Any\""),
          std::pair(R"({"key":"ratio"})", "missing"),
          std::pair(R"({"do":"text","text":5})", "another kind")}) {
        writeBytes("hands.jsonl", std::string("{\"do\":\"wait\"}\n") + line + "\n");
        expectFailure(run({"view", "compressor", "--events", "hands.jsonl"}), 2,
                      std::string("line 2.*") + reason);
    }
    expectFailure(run({"view", "compressor", "--events", "nowhere"}), 1, "cannot be read");
}

TEST_F(ViewCommand, ListsEveryParameterOfAFormWithItsValueAsText)
{
    // Values that stand nowhere else.
    const std::pair<const char*, Words> cases[] = {
        {"compressor:threshold=-33,ratio=7,attack=23,sidechainfreqlow=321",
         {"Thresh: -33 dB", "Ratio: 7 : 1", "Attack: 23 ms", "Low cut: 321", "Curve, Thresh -33"}},
        {"multiband-dynamics:split1=333,attack2=77,lowratio3=3,mute1=1",
         {"from 333 Hz", "Attack 77 ms", "Low ratio 3 : 1", "Mute On", "Bands: "}},
        {"groove-delay:tapon3=1,tapstep3=13,tappan3=-37", {"4 at 13", "-37"}},
        {"scope:time=13", {"Time: 13 ms", "Trace of 13 ms"}},
        {"vaulter", {"Response: Wood Room"}},
    };
    for (const auto& [effect, expected] : cases) {
        const auto list = run({"view", effect, "--text"});
        EXPECT_EQ(list.code, 0) << list.err;
        for (const auto& text : expected)
            EXPECT_NE(list.out.find(text), std::string::npos) << text << " in\n" << list.out;
    }
    const auto has = [](const Result& result, const std::string& line) {
        return ("\n" + result.out).find("\n" + line + "\n") != std::string::npos;
    };
    writeBytes("hands.jsonl", R"({"do":"drag","key":"linked","dx":0})");
    const auto after =
        run({"view", "compressor:threshold=-33,linked=0", "--events", "hands.jsonl", "--text"});
    EXPECT_TRUE(has(after, "Curve / Thresh: -33 dB")) << after.out;
    EXPECT_TRUE(has(after, "Curve / Link: On")) << after.out;
}

struct Pixels {
    int width = 0, height = 0;
    std::vector<std::array<int, 3>> colours;
};
Pixels pixelsOf(const char* path)
{
    auto* const surface = cairo_image_surface_create_from_png(path);
    Pixels pixels{
        cairo_image_surface_get_width(surface), cairo_image_surface_get_height(surface), {}};
    for (int y = 0; y < pixels.height; ++y)
        for (int x = 0; x < pixels.width; ++x) {
            const auto* const p = cairo_image_surface_get_data(surface) +
                                  y * cairo_image_surface_get_stride(surface) + 4 * x;
            pixels.colours.push_back({p[2], p[1], p[0]});
        }
    cairo_surface_destroy(surface);
    return pixels;
}

TEST_F(ViewCommand, SmallPicturesHaveAPaletteThatNoPixelIsFarFrom)
{
    for (const char* effect : {"compressor:threshold=-30", "room reverb"}) {
        ASSERT_EQ(run({"view", effect, "-o", "whole.png"}).code, 0);
        ASSERT_EQ(run({"view", effect, "--small", "-o", "small.png"}).code, 0);
        const auto whole = pixelsOf("whole.png"), small = pixelsOf("small.png");
        ASSERT_EQ(small.width, whole.width);
        ASSERT_EQ(small.height, whole.height);
        std::map<std::array<int, 3>, int> counts;
        for (const auto& c : whole.colours) ++counts[c];
        const auto commonest = std::max_element(
            counts.begin(), counts.end(), [](auto& a, auto& b) { return a.second < b.second; });
        EXPECT_GT(counts.size(), 256u) << "nothing is asked of the palette";
        std::set<std::array<int, 3>> used;
        int most = 0;
        for (std::size_t i = 0; i < whole.colours.size(); ++i) {
            const auto &a = whole.colours[i], &b = small.colours[i];
            for (std::size_t k = 0; k < 3; ++k) most = std::max(most, std::abs(a[k] - b[k]));
            if (a == commonest->first) {
                ASSERT_EQ(a, b) << "the ground is as it was";
            }
            used.insert(b);
        }
        EXPECT_LE(most, 3);
        EXPECT_LE(used.size(), 256u);
        EXPECT_LT(readBytes("small.png").size(), 0.7 * double(readBytes("whole.png").size()));
    }
}

}  // namespace
}  // namespace quillhost_test
