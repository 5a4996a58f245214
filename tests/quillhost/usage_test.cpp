// SPDX-License-Identifier: ISC
// What the program says and returns, right and wrong.
#include <csignal>
#include <sndfile.h>
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
    expectFailure(to("o.wav", {"--sidechain", "none.wav"}), 1, "none.wav: cannot be read");
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

TEST_F(Usage, AnInterruptedRunEndsWith130AndLeavesNoFile)
{
    writeSound("in.wav", noise(2, 48000), kWav16);
    const auto bytes = readBytes("in.wav");
    Program program({"render", "-", "out.wav", "--fx", "mixtool", "--meters", "m.jsonl"});
    program.send(bytes.substr(0, bytes.size() / 2));
    for (int i = 0; i < 500 && files().size() < 3; ++i) usleep(10000);
    EXPECT_EQ(files().size(), 3u);  // both unfinished files are there
    program.signal(SIGINT);
    usleep(50000);
    expectFailure(program.wait(), 130, "interrupted");
    EXPECT_EQ(files(), Words{"in.wav"});
}

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
