// SPDX-License-Identifier: ISC
// Effects whose settings are texts, and files that are not there.
#include "tests/quillhost/program.h"
#include "tests/support/build_paths.h"

#include <sndfile.h>

namespace quillhost_test {
namespace {

class Texts : public InFolder {
protected:
    static Result probe(Words words)
    {
        words.insert(words.begin(), {"--module", quillworks::paths::probeModule});
        return run(words);
    }
    static Json shown(const std::string& preset)
    {
        return Json::parse(probe({"preset", "show", preset, "--json"}).out);
    }
};

TEST_F(Texts, AreListed)
{
    const auto info = Json::parse(probe({"info", "probe", "--json"}).out);
    ASSERT_EQ(info["texts"].size(), 2u);
    const Json expected = {{"key", "source"},
                           {"title", "Source"},
                           {"kind", "file"},
                           {"default", "factory:Probe"},
                           {"help", "What is played."},
                           {"fileTypes", {"wav", "flac"}}};
    EXPECT_EQ(info["texts"][0], expected);
    EXPECT_EQ(info["texts"][1]["kind"], "text");
    EXPECT_NE(probe({"info", "probe"}).out.find("file wav flac"), std::string::npos);
}

TEST_F(Texts, AreSetBySpecAndKeptInPresets)
{
    const auto here = std::filesystem::current_path().string();
    expectSilence(probe(
        {"preset", "save", "probe:Note=a, b: c,source=x/../my hall.wav,gain=-6", "p.fxpreset"}));
    const auto preset = shown("p.fxpreset");
    EXPECT_EQ(preset["texts"]["note"], "a, b: c");
    EXPECT_EQ(preset["texts"]["source"], here + "/my hall.wav") << "of the working directory";
    EXPECT_EQ(preset["parameters"]["gain"], -6);
    expectSilence(probe({"preset", "save", "probe:source=factory:Hall", "f.fxpreset"}));
    EXPECT_EQ(shown("f.fxpreset")["texts"]["source"], "factory:Hall");

    expectFailure(probe({"preset", "save", "probe:note=refused", "r.fxpreset"}), 1,
                  "Probe: note=refused: it is refused");
    expectFailure(probe({"preset", "save", "probe:nota=x", "r.fxpreset"}), 2,
                  "no parameter \"nota\" .nearest: note");
    const auto twice = probe({"preset", "save", "probe:note=1,NOTE=2", "t.fxpreset"});
    EXPECT_NE(twice.err.find("NOTE is given twice"), std::string::npos);
    EXPECT_EQ(shown("t.fxpreset")["texts"]["note"], "2");
}

TEST_F(Texts, ThatNameMissingFilesEndTheWorkUnlessThatIsAllowed)
{
    writeSound("in.wav", noise(1, 4800), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const std::string spec = "probe:source=/missing";
    expectSilence(probe({"preset", "save", "probe", "good.fxpreset"}));
    auto document = readBytes("good.fxpreset");
    const std::string name = "factory:Probe";
    document.replace(document.find(name), name.size(), "/missing");
    writeBytes("bad.fxpreset", document);
    const Words commands[] = {
        {"render", "in.wav", "o.wav", "--fx", spec},
        {"render", "in.wav", "o.wav", "--fx", "probe", "--preset", "bad.fxpreset"},
        {"generate", spec, "o.wav", "--seconds", "0.1"},
        {"measure", "in.wav", "--fx", spec},
        {"plot", spec, "--what", "response", "-o", "o.svg"},
        {"preset", "save", spec, "o.fxpreset"},
    };
    const auto before = files();
    for (auto words : commands) {
        const auto refused = probe(words);
        EXPECT_EQ(refused.code, 1) << words[0];
        EXPECT_EQ(refused.out, "") << words[0];
        EXPECT_EQ(refused.err, "quillhost: Probe: there is no such file (--allow-missing does "
                               "without it)\n");
        EXPECT_EQ(files(), before) << words[0];
        words.push_back("--allow-missing");
        const auto allowed = probe(words);
        EXPECT_EQ(allowed.code, 0) << words[0] << ": " << allowed.err;
        EXPECT_EQ(allowed.err, "quillhost: Probe: there is no such file\n");
        for (const char* made : {"o.wav", "o.svg", "o.fxpreset"}) std::filesystem::remove(made);
    }
    EXPECT_EQ(probe({"info", "probe"}).code, 0);
}

}  // namespace
}  // namespace quillhost_test
