// SPDX-License-Identifier: ISC
// What render does to the samples.
#include <cmath>
#include <sndfile.h>
#include <sstream>
#include <unistd.h>

#include "program.h"

namespace quillhost_test {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
constexpr int kWavDouble = SF_FORMAT_WAV | SF_FORMAT_DOUBLE;

Words render(const std::string& in, const std::string& out, const Words& more)
{
    Words words = {"render", in, out};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

class Render : public InFolder {
protected:
    static int latencyOf(const std::string& effect)
    {
        return Json::parse(run({"info", effect, "--json"}).out)["latency"];
    }
};

TEST_F(Render, GeneratesWhatItMakesOfASilentFile)
{
    // A delay that is taken out, a table that is waited for, and one that automation asks for.
    for (const std::string spec : {"limiter", "tonegenerator:wave=periodic pink"}) {
        writeSound("in.wav",
                   {.channels = 6, .rate = 44100, .samples = std::vector<double>(6 * 22050)},
                   SF_FORMAT_WAVEX | SF_FORMAT_FLOAT);
        expectSilence(run(render("in.wav", "out.wav", {"--fx", spec, "--layout", "5.1"})));
        expectSilence(run({"generate", spec, "made.wav", "--seconds", "0.5", "--rate", "44100",
                           "--layout", "5.1"}));
        EXPECT_EQ(readSound("made.wav").samples, readSound("out.wav").samples) << spec;
        EXPECT_EQ(maskOf("made.wav"), 0x3Fu) << "L R C LFE Ls Rs";
    }
    writeBytes("wave.json", R"([{"frame":11025,"fx":0,"key":"wave","value":6}])");
    expectSilence(run(render("in.wav", "out.wav",
                             {"--fx", "tonegenerator:level=0", "--automation", "wave.json"})));
    const auto out = readSound("out.wav");
    double sum = 0;
    for (std::size_t i = 12000; i < out.frames(); ++i) sum += std::abs(out.at(i));
    EXPECT_GT(sum / double(out.frames()), 0.05);
    expectFailure(run({"generate", "limiter", "x.wav", "--seconds", "0"}), 2, "--seconds 0");
    expectFailure(run({"generate", "limiter", "x.wav", "--seconds", "1", "--layout", "6.9"}), 2,
                  "no layout");
    expectSilence(run({"generate", "limiter", "x.flac", "--seconds", "0.1"}));
}

TEST_F(Render, AnEffectThatDoesNothingGivesBackTheFile)
{
    struct Case {
        int format;
        const char* precision;
    };
    const Case cases[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "32"},
        {kWav16, "32"},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, "32"},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_32, "64"},
        {kWavFloat, "32"},
        {kWavDouble, "64"},
        {SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, "32"},
    };
    for (const auto& c : cases)
        for (const int channels : {1, 2, 6, 16}) {
            if (kIsSanitised && channels != 1 && channels != 16) continue;  // mono and the widest
            SCOPED_TRACE(std::to_string(c.format) + " " + std::to_string(channels));
            auto sound = noise(channels, 20001, 1);
            sound.samples[0] = -1;  // the end of an integer's range
            writeSound("in.wav", sound, c.format);
            expectSilence(
                run(render("in.wav", "out.wav", {"--fx", "mixtool", "--precision", c.precision})));
            const auto in = readSound("in.wav"), out = readSound("out.wav");
            EXPECT_EQ(in.format & SF_FORMAT_SUBMASK, out.format & SF_FORMAT_SUBMASK);
            EXPECT_EQ(in.samples, out.samples);
            EXPECT_EQ(maskOf("in.wav"), maskOf("out.wav"));
            // A pipe on either side changes nothing, whether it tells its length or not.
            auto bytes = readBytes("in.wav");
            for (const bool isLengthKnown : {true, false}) {
                if (!isLengthKnown) bytes.replace(bytes.find("data") + 4, 4, "\xFF\xFF\xFF\xFF");
                const auto piped =
                    run(render("-", "-", {"--fx", "mixtool", "--precision", c.precision}), bytes);
                EXPECT_EQ(piped.code, 0) << piped.err;
                const auto data = bytes.find("data") + 8, outData = piped.out.find("data") + 8;
                EXPECT_TRUE(bytes.substr(data) == piped.out.substr(outData));
            }
        }
}

TEST_F(Render, OutputLinesUpWithInputUnlessTheLatencyIsKept)
{
    const int latency = latencyOf("compressor");
    ASSERT_GT(latency, 0);
    const auto in = noise(2, 30000);
    writeSound("in.wav", in, kWavDouble);
    const Words chain = {"--fx", "compressor", "--fx", "compressor", "--precision", "64"};
    expectSilence(run(render("in.wav", "out.wav", chain)));
    EXPECT_EQ(readSound("out.wav").samples, in.samples);

    Words kept = chain;
    kept.insert(kept.end(), {"--keep-latency", "--tail", "0.01"});
    expectSilence(run(render("in.wav", "kept.wav", kept)));
    const auto out = readSound("kept.wav");
    ASSERT_EQ(out.frames(), in.frames() + 480);
    const auto shift = std::size_t(2 * latency);
    for (std::size_t i = 0; i < out.frames(); ++i)
        ASSERT_EQ(out.at(i), i < shift || i - shift >= in.frames() ? 0 : in.at(i - shift)) << i;
}

TEST_F(Render, TailIsAsLongAsAskedOrAsTheChainNeeds)
{
    writeSound("in.wav", noise(1, 1000), kWav16);
    const auto framesWith = [](const Words& more) {
        expectSilence(run(render("in.wav", "out.wav", more)));
        return readSound("out.wav").frames();
    };
    EXPECT_EQ(framesWith({"--fx", "mixtool", "--tail", "0.5"}), 25000u);
    EXPECT_EQ(framesWith({"--fx", "mixtool", "--tail", "auto"}), 1000u);
    // What lasts as long as the delay is over when that is taken out.
    const int latency = latencyOf("compressor");
    EXPECT_EQ(framesWith({"--fx", "compressor", "--tail", "auto"}), 1000u);
    EXPECT_EQ(framesWith({"--fx", "compressor", "--tail", "auto", "--keep-latency"}),
              std::size_t(1000 + latency));
}

TEST_F(Render, AutomationActsFromExactlyItsFrame)
{
    auto in = noise(2, 3000);
    // The sign changes with every frame, since the effect may wait for that to switch.
    for (std::size_t i = 0; i < in.samples.size(); ++i)
        in.samples[i] = std::copysign(in.samples[i] + 1, i / 2 % 2 ? -1.0 : 1.0);
    writeSound("in.wav", in, kWavDouble);
    writeBytes("a.json", R"([{"frame":1501,"fx":1,"key":"phaseflipleft","value":false},
                             {"frame":0,"fx":0,"key":"phaseflipright","value":"on"},
                             {"frame":777,"fx":1,"key":"phaseflipleft","value":1},
                             {"frame":999999,"fx":0,"key":"gain","value":-20}])");
    for (const char* block : {"1", "64", "512", "5000"}) {
        SCOPED_TRACE(block);
        const auto result =
            run(render("in.wav", "out.wav",
                       {"--fx", "mixtool", "--fx", "mixtool", "--precision", "64", "--automation",
                        "a.json", "--block", block, "--meters", "m.jsonl"}));
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "quillhost: a.json: 1 entry lies behind the end of the sound and had "
                              "no effect\n");
        const auto out = readSound("out.wav");
        for (std::size_t i = 0; i < in.frames(); ++i) {
            const double sign = i >= 777 && i < 1501 ? -1 : 1;
            ASSERT_EQ(out.at(i, 0), sign * in.at(i, 0)) << i;
            ASSERT_EQ(out.at(i, 1), -in.at(i, 1)) << i;
        }

        // Blocks cover the signal without a gap, both effects in turn, cut at the changes.
        std::istringstream lines(readBytes("m.jsonl"));
        long next[2] = {0, 0};
        bool cutsSeen[2] = {};
        for (std::string line; std::getline(lines, line);) {
            const auto entry = Json::parse(line);
            const int fx = entry["fx"];
            ASSERT_EQ(entry["frame"], next[fx]);
            cutsSeen[0] |= next[fx] == 777;
            cutsSeen[1] |= next[fx] == 1501;
            next[fx] += long(entry["frames"]);
            const bool isFlipped = next[fx] > 777 && next[fx] <= 1501;
            EXPECT_EQ(entry["parameters"]["phaseflipleft"], fx == 1 && isFlipped ? 1 : 0);
        }
        EXPECT_TRUE(cutsSeen[0] && cutsSeen[1]);
        EXPECT_EQ(next[0], 3000);
        EXPECT_EQ(next[1], 3000);
    }
}

TEST_F(Render, AnAutomatedBypassKeepsTheSoundInLine)
{
    // With a ratio of 1 this effect is nothing but its delay.
    ASSERT_GT(latencyOf("compressor"), 0);
    const auto in = noise(2, 30000);
    writeSound("in.wav", in, kWavDouble);
    writeBytes("a.json", R"([{"frame":700,"fx":0,"key":"bypass","value":0},
                             {"frame":9001,"fx":0,"key":"bypass","value":1},
                             {"frame":20000,"fx":0,"key":"BYPASS","value":0}])");
    for (const char* fx : {"compressor", "compressor:bypass=1"}) {
        expectSilence(run(render("in.wav", "out.wav",
                                 {"--fx", fx, "--precision", "64", "--automation", "a.json",
                                  "--block", "333", "--meters", "m.jsonl"})));
        EXPECT_EQ(readSound("out.wav").samples, in.samples) << fx;
        std::istringstream lines(readBytes("m.jsonl"));
        for (std::string line; std::getline(lines, line);) {
            const auto entry = Json::parse(line);
            const int frame = entry["frame"];
            const bool isOn = frame < 700 ? fx[10] != 0 : frame >= 9001 && frame < 20000;
            ASSERT_EQ(entry["parameters"]["bypass"], isOn ? 1 : 0) << frame;
        }
    }
    // Bypassed from the first frame to the last it is the input as well.
    writeBytes("a.json", R"([{"frame":0,"fx":0,"key":"bypass","value":1}])");
    expectSilence(run(render("in.wav", "out.wav",
                             {"--fx", "compressor:threshold=-40,ratio=10", "--precision", "64",
                              "--automation", "a.json"})));
    EXPECT_EQ(readSound("out.wav").samples, in.samples);
}

TEST_F(Render, WhatIsGivenTwiceIsRemarkedOn)
{
    writeSound("in.wav", noise(1, 100), kWav16);
    writeBytes("a.json", R"([{"frame":5,"frame":6,"fx":0,"key":"gain","value":1},
                             {"frame":6,"fx":0,"key":"GAIN","value":2}])");
    const auto result = run(
        render("in.wav", "out.wav", {"--fx", "mixtool:gain=1,Gain=2", "--automation", "a.json"}));
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err,
              "quillhost: Mixtool: Gain is given twice (the last one holds)\n"
              "quillhost: a.json: entry 0: \"frame\" is given twice (the last one holds)\n"
              "quillhost: a.json: 1 entry is replaced by a later one for the same frame, fx and "
              "key\n");
}

TEST_F(Render, CodedFilesAreWrittenForRealAndKeepLengthAndPlaces)
{
    Sound in{2, 48000, 0, {}};
    for (int i = 0; i < 96000; ++i)
        for (const double f : {440, 1000}) in.samples.push_back(0.3 * std::sin(f * i * 2e-4 / 1.5));
    writeSound("in.wav", in, kWavFloat);
    const std::pair<const char*, int> kinds[] = {{"o.ogg", SF_FORMAT_VORBIS},
                                                 {"o.opus", SF_FORMAT_OPUS},
                                                 {"o.mp3", SF_FORMAT_MPEG_LAYER_III}};
    for (const auto& [out, encoding] : kinds) {
        expectSilence(run(render("in.wav", out, {"--fx", "mixtool"})));
        EXPECT_EQ(readSound(out).format & SF_FORMAT_SUBMASK, encoding);
        expectSilence(run(render(out, "back.wav", {"--fx", "mixtool"})));
        const auto back = readSound("back.wav");
        ASSERT_EQ(back.frames(), in.frames()) << out;
        double error = 0, power = 0;
        for (std::size_t i = 9600; i < in.samples.size(); ++i) {
            error += std::pow(back.samples[i] - in.samples[i], 2);
            power += in.samples[i] * in.samples[i];
        }
        EXPECT_LT(10 * std::log10(error / power), -20) << out;
    }
    in.rate = 96000;
    writeSound("in.wav", in, kWavFloat);
    expectFailure(run(render("in.wav", "o.mp3", {"--fx", "mixtool"})), 2, "2 channels at 96000 Hz");

    // Vorbis has an order of its own: what lies where stays where it was.
    Sound surround{6, 48000, 0, {}};
    for (int i = 0; i < 48000; ++i)
        for (int c = 0; c < 6; ++c)
            surround.samples.push_back((c + 1) * 0.1 * std::sin((c == 3 ? 50 : 700) * i * 1.3e-4));
    writeSound("5.1.wav", surround, SF_FORMAT_WAVEX | SF_FORMAT_FLOAT);
    expectSilence(run(render("5.1.wav", "o.ogg", {"--fx", "mixtool"})));
    const auto figures = Json::parse(run({"measure", "--json", "5.1.wav", "o.ogg"}).out);
    EXPECT_NEAR(figures[1]["integrated"], figures[0]["integrated"], 0.2);
    for (std::size_t c = 0; c < 6; ++c)  // the codec itself makes the low effects louder
        EXPECT_NEAR(figures[1]["rms"][c], figures[0]["rms"][c], c == 3 ? 1.7 : 0.5) << c;
    expectSilence(run(render("o.ogg", "back.wav", {"--fx", "mixtool"})));
    EXPECT_EQ(maskOf("back.wav"), 0x3Fu);
}

TEST_F(Render, MetersAreThoseThatTheEffectNames)
{
    writeSound("in.wav", noise(2, 2000), kWav16);
    expectSilence(run(render("in.wav", "out.wav",
                             {"--fx", "compressor:threshold=-30,ratio=8", "--meters", "m.jsonl"})));
    const auto info = Json::parse(run({"info", "compressor", "--json"}).out);
    std::istringstream lines(readBytes("m.jsonl"));
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line);
    const auto entry = Json::parse(line);
    EXPECT_EQ(entry["frame"], 512);
    EXPECT_EQ(entry["frames"], 512);
    EXPECT_EQ(entry["values"].size(), info["meters"].size());
    EXPECT_EQ(entry["parameters"].size(), info["parameters"].size());
    EXPECT_LT(entry["values"]["reduction"], -1);
    EXPECT_EQ(entry["parameters"]["ratio"], 8);
}

TEST_F(Render, TempoIsAutomatedForTheWholeSongFromItsFrameOn)
{
    writeSound("in.wav", noise(1, 24000), kWavFloat);
    const auto go = [&](const char* out, Words words, const char* automation) {
        writeBytes("a.json", automation);
        words.insert(words.begin(),
                     {"--fx", "mixtool", "--fx", "analogdelay:sync=1,mix=100,inertia=0.001",
                      "--meters", "m.jsonl", "--automation", "a.json"});
        expectSilence(run(render("in.wav", out, words)));
        return readBytes(out);
    };
    const auto at = [](int frame) {
        return R"([{"frame":)" + std::to_string(frame) + R"(,"fx":1,"key":"tempo","value":240}])";
    };
    const auto slow = go("slow.wav", {}, "[]");
    const auto fast = go("fast.wav", {"--tempo", "240"}, "[]");
    EXPECT_TRUE(go("out.wav", {}, at(0).c_str()) == fast) << "as if it had been so from the start";
    EXPECT_TRUE(go("out.wav", {}, at(1000).c_str()) != slow);
    std::istringstream lines(readBytes("m.jsonl"));
    for (std::string line; std::getline(lines, line);) {
        const auto entry = Json::parse(line);
        if (entry["fx"] != 1) continue;
        EXPECT_EQ(entry["parameters"]["tempo"], entry["frame"] < 1000 ? 120 : 240)
            << entry["frame"];
    }
}

TEST_F(Render, SideChainMovesTheGainAndIsSilentAfterItsEnd)
{
    auto in = noise(1, 96000, 0.01), side = noise(1, 24000, 1);
    writeSound("in.wav", in, kWavFloat);
    writeSound("side.wav", side, kWavFloat);
    const auto level = [&](const Sound& s, std::size_t from, std::size_t to) {
        double sum = 0;
        for (auto i = from; i < to; ++i) sum += s.at(i) * s.at(i);
        return 10 * std::log10(sum / double(to - from));
    };
    expectSilence(run(render(
        "in.wav", "out.wav",
        {"--fx", "compressor:threshold=-20,ratio=10,release=50", "--sidechain", "side.wav"})));
    const auto out = readSound("out.wav");
    EXPECT_LT(level(out, 12000, 24000), level(in, 12000, 24000) - 6);
    EXPECT_NEAR(level(out, 84000, 96000), level(in, 84000, 96000), 0.1);
    side.rate = 44100;
    writeSound("side.wav", side, kWavFloat);
    expectFailure(run(render("in.wav", "o.wav", {"--fx", "compressor", "--sidechain", "side.wav"})),
                  1, "44100 Hz is not that of in.wav, 48000");
}

TEST_F(Render, LayoutsComeFromTheMaskOrFromTheCommandLine)
{
    const auto setMask = [](const std::string& path, std::uint32_t mask) {
        auto bytes = readBytes(path);
        bytes.replace(bytes.find("fmt ") + 28, 4,
                      std::string(reinterpret_cast<const char*>(&mask), 4));
        writeBytes(path, bytes);
    };
    for (const std::uint32_t mask : {0x3Fu, 0x60Fu, 0u, 0x707u}) {
        writeSound("in.wav", noise(6, 1000), SF_FORMAT_WAVEX | SF_FORMAT_PCM_16);
        setMask("in.wav", mask);
        expectSilence(run(render("in.wav", "out.wav", {"--fx", "mixtool"})));
        EXPECT_EQ(maskOf("out.wav"), mask);
    }
    writeSound("in.wav", noise(6, 1000), kWav16);
    expectSilence(run(render("in.wav", "out.wav", {"--fx", "mixtool", "--layout", "5.1"})));
    EXPECT_EQ(maskOf("out.wav"), 0x3Fu);
}

TEST_F(Render, APannerPutsOneOrTwoChannelsIntoEveryLayout)
{
    struct Row {
        const char* layout;
        int channels;
        std::uint32_t mask;  // 0: its channels are in another order than a mask's
    };
    for (const auto& row : {Row{"mono", 1, 0},
                            {"stereo", 2, 0},
                            {"lcr", 3, 0x7},
                            {"quad", 4, 0x33},
                            {"5.0", 5, 0x37},
                            {"5.1", 6, 0x3F},
                            {"7.0", 7, 0},
                            {"7.1", 8, 0},
                            {"5.1.4", 10, 0x2D03F},
                            {"7.1.2", 10, 0},
                            {"7.1.4", 12, 0},
                            {"9.1.6", 16, 0}})
        for (const int inputs : {1, 2}) {
            // The sweep over all classes plays all pairs of layouts.
            if (kIsSanitised && row.channels > 1 && row.channels < 16) break;
            SCOPED_TRACE(std::to_string(inputs) + " to " + row.layout);
            Sound in = noise(inputs, 3000, 0.5);
            for (std::size_t i = 1; inputs == 2 && i < in.samples.size(); i += 2) in.samples[i] = 0;
            writeSound("in.wav", in, kWavFloat);
            for (const char* settings : {"x=70,y=-40,elevation=30,spread=20", "bypass=1"}) {
                expectSilence(run(render(
                    "in.wav", "out.wav",
                    {"--fx", std::string("surround-panner:") + settings, "--layout", row.layout})));
                const auto out = readSound("out.wav");
                ASSERT_EQ(out.channels, row.channels);
                EXPECT_EQ(maskOf("out.wav"), row.mask);
                double before = 0, after = 0;
                for (const double x : in.samples) before += x * x;
                for (const double x : out.samples) after += x * x;
                // Bypass plays the mean of two channels where there is one.
                const bool isHalved = row.channels == 1 && inputs == 2 && settings[0] == 'b';
                EXPECT_NEAR(after / before, isHalved ? 0.25 : 1, 1e-5);
            }
        }
}

TEST_F(Render, IntegersAreLimitedAndTheUserIsTold)
{
    auto sound = noise(1, 1000, 0.9);
    writeSound("in.wav", sound, kWav16);
    const auto result = run(render("in.wav", "out.wav", {"--fx", "mixtool:gain=12"}));
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.err.find("samples were clipped, the peak is +11."), std::string::npos)
        << result.err;
    for (const double x : readSound("out.wav").samples) ASSERT_TRUE(x >= -1 && x < 1);
    expectSilence(run(render("in.wav", "out.wav", {"--fx", "mixtool:gain=12", "--quiet"})));
    expectSilence(
        run(render("in.wav", "out.wav", {"--fx", "mixtool:gain=12", "--format", "float32"})));
    EXPECT_EQ(readSound("out.wav").format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
}

TEST_F(Render, DescriptionsOfTheFileStayAndTheSameRunGivesTheSameBytes)
{
    writeSound("in.wav", noise(2, 1000), kWavFloat);
    SF_INFO info = {};
    SNDFILE* file = sf_open("in.wav", SFM_RDWR, &info);
    sf_set_string(file, SF_STR_TITLE, "A title");
    sf_close(file);
    for (const std::string kind : {".wav", ".rf64", ".aiff"}) {
        for (const std::string out : {"a", "b"}) {
            expectSilence(run(render("in.wav", out + kind, {"--fx", "mixtool:gain=-3"})));
            usleep(out == "a" && kind != ".wav" ? 1100000 : 0);  // the next second of the clock
        }
        EXPECT_TRUE(readBytes("a" + kind) == readBytes("b" + kind)) << kind;
    }
    info = {};
    file = sf_open("a.wav", SFM_READ, &info);
    ASSERT_TRUE(file);
    EXPECT_STREQ(sf_get_string(file, SF_STR_TITLE), "A title");
    sf_close(file);
    // The other kinds of file by their extensions.
    for (const char* out : {"o.flac", "o.aiff", "o.caf", "o.w64", "o.rf64"}) {
        expectSilence(run(render("in.wav", out, {"--fx", "mixtool", "--format", "pcm24"})));
        EXPECT_EQ(readSound(out).frames(), 1000u) << out;
    }
}

}  // namespace
}  // namespace quillhost_test
