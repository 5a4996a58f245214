// SPDX-License-Identifier: ISC
// What the program says and returns, right and wrong.
#include <csignal>
#include <fstream>
#include <sndfile.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "program.h"

namespace quillhost_test {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class Usage : public InFolder {};

TEST_F(Usage, WrongWordsAreNamedWithTheNearestRightOnes)
{
    writeSound("in.wav", noise(2, 100), kWav16);
    writeBytes("old.wav", "old");
    struct Case {
        Words arguments;
        const char* pattern;
    };
    const Case cases[] = {
        {{}, "no command.*list.*render"},
        {{"rendr", "a", "b"}, "no command \"rendr\" \\(nearest: render"},
        {{"--quite", "list"}, "no option \"--quite\" \\(nearest: --quiet"},
        {{"list", "--jsn"}, "--jsn.*nearest: --json"},
        {{"list", "more"}, "does not take the argument \"more\""},
        {{"info"}, "needs EFFECT"},
        {{"info", "compresor"}, "\"compresor\" \\(nearest: Compressor"},
        {{"info", "{00000000-0000-0000-0000-000000000000}"}, "no effect"},
        {{"render", "in.wav"}, "needs OUT"},
        {{"render", "in.wav", "old.wav"}, "at least one --fx"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool:gian=1"}, "\"gian\" \\(nearest: gain"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool:gain"}, "\"gain\" .*not key=value"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool:gain=loud"}, "not a value.*-24 to 24 dB"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool:gain=1,5"}, "gain=1,5 is not"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool:gain=24.1"}, "out of range.*24 dB"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool:gain=nan"}, "not a value"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool:bypass=2"}, "0, 1, on, off"},
        {{"render", "in.wav", "old.wav", "--fx", "compressor:reduction=-3"}, "cannot be set"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--block", "0"}, "\"0\".*1 to"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--block", "1e3"}, "--block"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--precision", "16"}, "32\\|64"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--format", "pcm12"}, "pcm16\\|"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--tempo", "0"}, "10 to 400"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--tail", "-1"}, "--tail"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--layout", "6.2"}, "7.1.4"},
        {{"render", "in.wav", "old.wav", "--fx", "mixtool", "--layout", "5.1"}, "no effect of"},
        {{"render", "in.wav", "old.wav", "--preset", "p", "--fx", "mixtool"}, "before every --fx"},
        {{"render", "in.wav", "out.flac", "--fx", "mixtool", "--format", "float32"}, "do not hold"},
        {{"render", "in.wav", "in.wav", "--fx", "mixtool"}, "is the input"},
        {{"plot", "mixtool", "-o", "p.png"}, "curve\\|response\\|step\\|gain"},
        {{"plot", "mixtool", "--what", "curve", "-o", "p.gif"}, "\\.png or \\.svg"},
        {{"plot", "mixtool", "--what", "gain", "-o", "p.png"}, "--in FILE"},
        {{"preset", "load", "x"}, "save SPEC FILE"},
        {{"bench", "mixtool", "--rate", "fast"}, "8000 to 384000"},
        {{"render", "in.wav", "out.xyz", "--fx", "mixtool"}, "\"xyz\" are not known \\(wav, .*mp3"},
        {{"render", "in.wav", "o.ogg", "--fx", "mixtool", "--format", "pcm16"}, "no sample format"},
        {{"render", "in.wav", "o.wav", "--fx", "analogdelay:beatsnu=9"}, "1/64 T to 4/1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        expectFailure(run(c.arguments), 2, c.pattern);
    }
    EXPECT_EQ(files(), (Words{"in.wav", "old.wav"}));
    EXPECT_EQ(readBytes("old.wav"), "old");
}

TEST_F(Usage, HelpHasExamplesAndGoesToStandardOutput)
{
    for (const char* command : {"list", "info", "render", "plot", "preset", "bench"})
        for (const auto& words : {Words{command, "--help"}, Words{"help", command}}) {
            const auto result = run(words);
            EXPECT_EQ(result.code, 0) << command;
            EXPECT_EQ(result.err, "") << command;
            EXPECT_NE(result.out.find(std::string("  quillhost ") + command), std::string::npos);
        }
    EXPECT_EQ(run({"--help"}).code, 0);
    EXPECT_EQ(run({"--version"}).out.substr(0, 10), "quillhost ");
}

TEST_F(Usage, FilesThatAreNoSoundAreRefusedAndLeaveNothing)
{
    const auto good = [](int channels, std::size_t frames, int format) {
        writeSound("x.wav", noise(channels, frames), format);
        auto bytes = readBytes("x.wav");
        std::filesystem::remove("x.wav");
        return bytes;
    };
    const auto patched = [&](std::size_t at, const std::string& with) {
        auto bytes = good(2, 1000, kWavFloat);
        return bytes.replace(at, with.size(), with);
    };
    const auto whole = good(2, 1000, kWav16);
    const std::string nan("\0\0\xC0\x7F", 4), infinity("\0\0\x80\x7F", 4);
    struct Case {
        std::string bytes;
        const char* pattern;
    };
    const Case cases[] = {
        {"", "empty|not a WAV"},
        {"A letter to somebody, in plain text.\n", "not a sound file|not a WAV"},
        {whole.substr(0, 30), "cut short"},
        {whole.substr(0, whole.size() - 999), "cut short: 1000 frames announced, 750"},
        {good(2, 0, kWav16), "no audio"},
        {patched(22, std::string("\0\0", 2)), "0 channels"},
        {good(17, 100, kWav16), "17 channels"},
        {patched(24, std::string("\xA0\x0F\0\0", 4)), "4000 Hz"},
        {patched(1000, nan), "no finite number \\(frame "},
        {patched(4000, infinity), "no finite number \\(frame "},
        {[&] {
             auto bytes = good(1, 10, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
             const double huge = 1.7e308;
             return bytes.replace(bytes.size() - 80, 8, reinterpret_cast<const char*>(&huge), 8);
         }(),
         "too large for 32 bits \\(frame 0; --precision 64"},
        {std::string("RIFF\xFF\xFF\xFF\xFFWAVE") + "fmt " + std::string("\xFF\xFF\xFF\x7F", 4),
         "cut"},
    };
    writeBytes("old.wav", "old");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pattern);
        writeBytes("bad.wav", c.bytes);
        for (const char* out : {"new.wav", "old.wav"})
            expectFailure(run({"render", "bad.wav", out, "--fx", "mixtool"}), 1, c.pattern);
        // From a pipe an empty or a cut file is known only when the pipe ends.
        const bool lengthIsOpen = c.bytes == good(2, 0, kWav16);
        expectFailure(run({"render", "-", "new.wav", "--fx", "mixtool"}, c.bytes), 1,
                      lengthIsOpen ? "no audio" : c.pattern);
        EXPECT_EQ(files(), (Words{"bad.wav", "old.wav"}));
        EXPECT_EQ(readBytes("old.wav"), "old");
    }
}

TEST_F(Usage, PlacesThatCannotBeWrittenAndInputsThatAreOutputsAreRefused)
{
    writeSound("in.wav", noise(1, 100), kWav16);
    std::filesystem::create_hard_link("in.wav", "hard.wav");
    std::filesystem::create_symlink("in.wav", "soft.wav");
    const auto before = readBytes("in.wav");
    const auto to = [](const char* out, Words more = {}) {
        Words words = {"render", "in.wav", out, "--fx", "mixtool"};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    };
    expectFailure(to("none/out.wav"), 1, "none/out.wav: cannot be written: No such");
    expectFailure(to("."), 1, "Is a directory");
    expectFailure(to("/dev/full"), 1, "No space left");
    expectFailure(to("hard.wav"), 2, "is the input");
    expectFailure(to("soft.wav"), 2, "is the input");
    writeSound("side.wav", noise(1, 100), kWav16);
    expectFailure(to("side.wav", {"--sidechain", "side.wav"}), 2, "is the input side.wav");
    expectFailure(to("o.wav", {"--meters", "in.wav"}), 2, "is the input");
    expectFailure(to("o.wav", {"--sidechain", "none.wav", "--fx", "mixtool:gain=1,gain=2"}), 1,
                  "none.wav: cannot be read");  // and not a word of the rest
    writeBytes("a.json", "[{\"frame\": 5");
    expectFailure(to("o.wav", {"--automation", "a.json"}), 1, "a.json: is not a JSON array");
    const std::pair<const char*, const char*> entries[] = {
        {R"([{"frame":-1,"fx":0,"key":"gain","value":0}])", "\"frame\" must be"},
        {R"([{"frame":1.5,"fx":0,"key":"gain","value":0}])", "\"frame\" must be"},
        {R"([{"frame":0,"fx":1,"key":"gain","value":0}])", "no fx 1 \\(0 to 0\\)"},
        {R"([{"frame":0,"fx":0,"key":"gani","value":0}])", "nearest: gain"},
        {R"([{"frame":0,"fx":0,"key":"gain","value":99}])", "out of range"},
        {R"([{"frame":0,"fx":0,"key":"gain","value":null}])", "\"value\" must be"},
        {R"([7])", "no object"},
    };
    for (const auto& [json, pattern] : entries) {
        writeBytes("a.json", json);
        expectFailure(to("o.wav", {"--automation", "a.json"}), 2, pattern);
    }
    writeBytes("a.json", R"([{"frame":0,"fx":0,"key":"beats","value":1}])");
    expectFailure(
        run({"render", "in.wav", "o.wav", "--fx", "analog-delay", "--automation", "a.json"}), 2,
        "\"beats\" cannot be automated");
    EXPECT_EQ(readBytes("in.wav"), before);
    EXPECT_FALSE(std::filesystem::exists("o.wav"));
}

TEST_F(Usage, ModuleThatDoesNotLoadEndsEveryCommand)
{
    writeBytes("text.so", "no library");
    std::filesystem::create_directories("data/skins/quillworks");
    writeBytes("data/skins/quillworks/skin.xml", "<Skin");
    for (const Words& command : {Words{"list"}, Words{"info", "nothing"}, Words{"bench"}}) {
        for (const char* module : {"./text.so", "none.so", "libm.so.6"}) {
            Words words = command;
            words.insert(words.begin(), {"--module", module});
            expectFailure(run(words), 1, "module .* does not load");
        }
        expectFailure(run(command, "", {"QUILLWORKS_RESOURCES=data"}), 1, "skin\\.xml");
    }
}

TEST_F(Usage, ARunThatASignalEndsLeavesNoFile)
{
    writeSound("in.wav", noise(2, 48000), kWav16);
    writeBytes("old.wav", "old");
    const auto bytes = readBytes("in.wav");
    for (const int signal : {SIGINT, SIGTERM, SIGQUIT, SIGXCPU, SIGXFSZ, SIGKILL}) {
        SCOPED_TRACE(signal);
        Program program({"render", "-", "old.wav", "--fx", "mixtool", "--meters", "m.jsonl"});
        program.send(bytes.substr(0, bytes.size() / 2));
        const auto open = [&] { return program.unnamedFiles() + int(files().size()) - 2; };
        for (int i = 0; i < 500 && open() < 2; ++i) usleep(10000);
        EXPECT_EQ(open(), 2);
        program.signal(signal);
        usleep(50000);
        const auto result = program.wait();
        EXPECT_EQ(result.code, signal == SIGKILL ? -1 : 128 + signal);
        if (signal != SIGKILL) expectFailure(result, 128 + signal, "interrupted");
        EXPECT_EQ(files(), (Words{"in.wav", "old.wav"}));
        EXPECT_EQ(readBytes("old.wav"), "old");
    }
}

TEST_F(Usage, HalfAFileDoesNotPassForAWholeOne)
{
    const std::pair<const char*, int> kinds[] = {
        {"x.wav", kWav16},
        {"x.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_24},
        {"x.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {"x.aifc", SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
        {"x.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_24},
        {"x.au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
        {"little.au", SF_FORMAT_AU | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE},
        {"x.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
        {"x.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"x.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"x.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {"x.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
    };
    for (const auto& [name, format] : kinds) {
        SCOPED_TRACE(name);
        writeSound(name, noise(2, 48000), format);
        EXPECT_EQ(run({"measure", name}).err, "");
        const auto bytes = readBytes(name);
        writeBytes(name, bytes.substr(0, bytes.size() / 2 + 3));
        expectFailure(run({"render", name, "o.wav", "--fx", "mixtool"}), 1, "cut short|breaks off");
        std::filesystem::remove(name);
    }

    // A copy of 3 GB that broke off is not one of unknown length; a mark for that is.
    writeSound("x.wav", noise(2, 1000), kWav16);
    auto bytes = readBytes("x.wav");
    for (const auto& [size, isKnown] : {std::pair("\0\0\0\xB0", true), {"\0\xF0\xFF\x7F", false}}) {
        writeBytes("x.wav", bytes.replace(40, 4, std::string(size, 4)));
        const auto result = run({"measure", "x.wav"});
        EXPECT_EQ(result.err.find("cut short") != std::string::npos, isKnown) << result.err;
    }
    writeBytes("x.wav", bytes.replace(32, 1, 1, 6));
    expectFailure(run({"measure", "x.wav"}), 1, "6 bytes are not 2 channels of 16 bits");
}

TEST_F(Usage, WhatMpegAndOggAnnounceIsAnEstimate)
{
    writeSound("x.mp3", noise(2, 144000, 0.01), SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);
    const auto frames = [](const char* file, const char* remark) {
        const auto result = run({"measure", "--json", file});
        EXPECT_NE(result.err.find(remark), std::string::npos) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), *remark ? 1 : 0);
        return double(Json::parse(result.out)[0]["frames"]);
    };
    EXPECT_EQ(frames("x.mp3", ""), 144000);
    auto bytes = readBytes("x.mp3");
    // Two in one, and one whose first frame tells nothing but a bit rate, with a tag at its end.
    writeBytes("two.mp3", bytes + bytes);
    EXPECT_NEAR(frames("two.mp3", "announces 3.00 s and holds 6."), 288000, 4 * 1152);
    bytes.replace(bytes.find(bytes.find("Xing") < 400 ? "Xing" : "Info"), 4, 4, 0);
    const std::string size("\x20\x20\0\0", 4);
    writeBytes("plain.mp3",
               bytes + std::string(0x2000, 'x') + "APETAGEX" + size + size + std::string(16, 0));
    EXPECT_NEAR(frames("plain.mp3", "announces "), 144000, 3 * 1152);

    writeSound("x.ogg", noise(2, 144000), SF_FORMAT_OGG | SF_FORMAT_VORBIS);
    bytes = readBytes("x.ogg");
    writeBytes("two.ogg", bytes + bytes);
    EXPECT_EQ(frames("two.ogg", "several recordings"), 144000);
    writeBytes("open.ogg", bytes.substr(0, bytes.rfind("OggS")));
    EXPECT_LT(frames("open.ogg", "no last page"), 144000);
}

TEST_F(Usage, NamedPipesAreReadLikePipes)
{
    writeSound("a.wav", noise(1, 48000, 0.1), kWavFloat);
    ASSERT_EQ(mkfifo("a.fifo", 0600) + mkfifo("b.fifo", 0600), 0);
    const auto bytes = readBytes("a.wav");
    const auto fed = [&](const Words& pipes, const Words& words) {
        std::vector<std::jthread> writers;
        for (const auto& pipe : pipes) writers.emplace_back([&] { writeBytes(pipe, bytes); });
        return run(words);
    };
    const Words both = {"a.fifo", "b.fifo"};
    const auto figures = Json::parse(fed(both, {"measure", "--json", "a.fifo", "b.fifo"}).out);
    EXPECT_EQ(figures[0]["integrated"], figures[1]["integrated"]);
    expectSilence(fed(both, {"render", "a.fifo", "o.wav", "--fx", "mixtool", "--fx", "compressor",
                             "--sidechain", "b.fifo"}));
    EXPECT_EQ(readSound("o.wav").samples, readSound("a.wav").samples);
    expectSilence(
        fed({"a.fifo"}, {"plot", "limiter", "--what", "gain", "--in", "a.fifo", "-o", "p.svg"}));
    EXPECT_NE(readBytes("p.svg").find("</svg>"), std::string::npos);
}

TEST_F(Usage, NamesAndLibrariesSayNothingToTheTerminal)
{
    const std::string name = "a\x1b[31m\n\x7f\xc2\x9b.wav", shown = R"(a\x1b[31m\n\x7f\x9b.wav)";
    const auto missing = run({"measure", name, "--json"});
    EXPECT_EQ(missing.err, "quillhost: " + shown + ": cannot be read: No such file or directory\n");
    EXPECT_EQ(Json::parse(missing.out)[0]["file"], name);
    EXPECT_TRUE(Json::parse(missing.out)[0]["error"].is_string());
    writeSound(name, noise(1, 100), kWav16);
    EXPECT_NE(run({"measure", name}).out.find(shown), std::string::npos);
    // The decoder has much to say of what lies in the middle here.
    writeSound("x.mp3", noise(2, 48000), SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);
    const auto bytes = readBytes("x.mp3");
    writeBytes("x.mp3", bytes.substr(0, 4000) + std::string(9000, 'x') + bytes.substr(4000));
#ifndef __SANITIZE_ADDRESS__  // under which the libraries' messages are let through
    expectFailure(run({"render", "x.mp3", "o.wav", "--fx", "mixtool"}), 1, "x.mp3: breaks off");
#endif
}

#ifndef __SANITIZE_ADDRESS__  // which takes more memory than any limit leaves
TEST_F(Usage, OutOfMemorySaysForWhat)
{
    writeSound("in.wav", noise(16, 100), kWav16);
    Program program({"render", "-", "o.wav", "--fx", "mixtool", "--block", "1048576"});
    usleep(300000);  // it waits for the header now
    std::ifstream status("/proc/" + std::to_string(program.id()) + "/statm");
    rlim_t pages = 0;
    status >> pages;
    const rlimit limit = {(pages << 12) + (24 << 20), (pages << 12) + (24 << 20)};
    ASSERT_EQ(prlimit(program.id(), RLIMIT_AS, &limit, nullptr), 0);
    program.send(readBytes("in.wav"));
    expectFailure(program.wait(), 1, "not enough memory for blocks of 1048576 frames");
}
#endif

TEST_F(Usage, NumbersUseThePointInEveryLocale)
{
    const Words german = {"LC_ALL=de_DE.UTF-8"};
    const auto plain = run({"info", "compressor", "--json"});
    EXPECT_EQ(run({"info", "compressor", "--json"}, "", german).out, plain.out);
    expectSilence(run({"preset", "save", "mixtool:gain=-1.5", "p.fxpreset"}, "", german));
    const auto shown = run({"preset", "show", "p.fxpreset", "--json"}, "", german);
    EXPECT_EQ(Json::parse(shown.out)["parameters"]["gain"], -1.5);
}

}  // namespace
}  // namespace quillhost_test
