// SPDX-License-Identifier: ISC
// The user's own presets as files.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "framework/user_presets.h"
#include "tests/framework/frame_fixture.h"
#include "vnk/file.h"

namespace quillworks::test {
namespace {

namespace fs = std::filesystem;

class Presets : public Frame {
protected:
    Presets()
    {
        std::string name = (fs::temp_directory_path() / "presets-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("no folder");
        home_ = name;
        useData(home_ / "data");
    }
    ~Presets() override
    {
        unsetenv("XDG_DATA_HOME");
        setenv("HOME", userHome_.c_str(), 1);
        fs::remove_all(home_);
    }
    static void useData(const fs::path& folder) { setenv("XDG_DATA_HOME", folder.c_str(), 1); }
    fs::path file(const std::string& name) const
    {
        return home_ / "data/quillworks/presets/Probe" / (name + ".fxpreset");
    }
    bool save(const std::string& name, bool replace = false)
    {
        return component->saveUserPreset(name.c_str(), replace);
    }
    std::string names()
    {
        std::string all;
        for (int i = 0; const char* name = component->userPresetName(i); ++i)
            all += std::string(name) + "; ";
        return all;
    }
    int indexOf(const std::string& name)
    {
        for (int i = 0; const char* at = component->userPresetName(i); ++i)
            if (at == name) return i;
        return -1;
    }
    float gain() { return component->getValue(component->findParameter("gain")); }
    std::string reason() { return component->refusalReason(); }

    const std::string userHome_ = std::getenv("HOME") ? std::getenv("HOME") : "/";
    fs::path home_;
};

TEST_F(Presets, AreSavedListedLoadedRenamedAndRemoved)
{
    EXPECT_EQ(component->countUserPresets(), 0);
    set("gain", -6);
    ASSERT_TRUE(save("Vocals/Lead")) << reason();
    EXPECT_STREQ(component->programName(), "Vocals/Lead");
    EXPECT_FALSE(component->isModified());
    set("gain", -9);
    EXPECT_TRUE(component->isModified());
    ASSERT_TRUE(save("\xC3\x9C"
                     "ber alles"));  // one letter of two bytes
    ASSERT_TRUE(save("a"));
    ASSERT_TRUE(save("B"));
    EXPECT_EQ(names(), "a; B; Vocals/Lead; \xC3\x9C"
                       "ber alles; ");

    EXPECT_FALSE(save("a"));
    EXPECT_NE(reason().find("of that name"), std::string::npos);
    EXPECT_TRUE(save("a", true));

    set("bypass", 1);
    ASSERT_TRUE(component->loadUserPreset(indexOf("Vocals/Lead"))) << reason();
    EXPECT_EQ(gain(), -6);
    EXPECT_EQ(component->getValue(component->findParameter("bypass")), 1) << "a person's switch";

    EXPECT_FALSE(component->renameUserPreset(indexOf("Vocals/Lead"), "a")) << "another's name";
    ASSERT_TRUE(component->renameUserPreset(indexOf("Vocals/Lead"), "Choir/High")) << reason();
    EXPECT_STREQ(component->programName(), "Choir/High");
    EXPECT_FALSE(fs::exists(file("Vocals/Lead").parent_path())) << "nothing is left in it";
    std::string document, ignored;
    StoredState state;
    ASSERT_TRUE(VNK::readFile(file("Choir/High").c_str(), 1 << 20, document, ignored));
    ASSERT_TRUE(readPreset(document.data(), document.size(), state, ignored));
    EXPECT_EQ(state.name, "High") << "who is handed the file reads its name";

    ASSERT_TRUE(component->removeUserPreset(indexOf("Choir/High")));
    EXPECT_EQ(names(), "a; B; \xC3\x9C"
                       "ber alles; ");
    for (int i : {-1, 3}) {
        EXPECT_FALSE(component->loadUserPreset(i));
        EXPECT_FALSE(component->renameUserPreset(i, "x"));
        EXPECT_FALSE(component->removeUserPreset(i));
    }
}

TEST_F(Presets, NamesThatAreNoneAreRefusedAndNothingIsWritten)
{
    const std::string deep = "a/a/a/a/a/a/a/a/a";
    const std::string bad[] = {"",          "/",
                               "/etc/x",    "..",
                               "../x",      "a/../../x",
                               "a//b",      "a/",
                               ".hidden",   "a/.b",
                               "a\nb",      "a\x7F",
                               "a\xC2\x85", "\xFF",
                               "\xC0\xAF",  "\xED\xA0\x80",
                               "a\xE2\x82", " a",
                               "a ",        "a/ b",
                               deep,        std::string(201, 'x')};
    ASSERT_TRUE(save("old"));
    for (const auto& name : bad) {
        EXPECT_FALSE(save(name, true)) << name;
        EXPECT_NE(reason(), "") << name;
        EXPECT_FALSE(component->renameUserPreset(0, name.c_str())) << name;
    }
    EXPECT_FALSE(component->saveUserPreset(nullptr, true));
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(home_))
        files += entry.is_regular_file();
    EXPECT_EQ(files, 1);
    EXPECT_STREQ(component->programName(), "old");
}

TEST_F(Presets, WhatCannotBeWrittenOrReadHasAReasonAndChangesNothing)
{
    set("gain", -6);
    ASSERT_TRUE(save("good"));
    std::ofstream(file("damaged")) << "<AudioEffectPreset version='1'";
    std::ofstream(file("no text\x01")) << "";
    fs::create_directory(file("folder"));
    fs::create_directory_symlink(home_, file("x").parent_path() / "circle");
    component->findPresets();
    EXPECT_EQ(names(), "damaged; good; ");
    EXPECT_FALSE(component->loadUserPreset(0));
    EXPECT_NE(reason().find("XML"), std::string::npos) << reason();
    EXPECT_FALSE(save("folder", true)) << "a folder stands there";
    EXPECT_FALSE(save("good.fxpreset/x")) << "a file stands there";
    fs::remove(file("good"));
    EXPECT_FALSE(component->loadUserPreset(1)) << "gone meanwhile";
    EXPECT_EQ(gain(), -6);

    const std::string longPart(200, 'x');
    std::string longName = longPart;
    for (int i = 1; i < 8; ++i) longName += "/" + longPart;
    std::string far = "/proc";  // where nobody makes folders
    for (const auto& data : {fs::path(far), home_ / std::string(4000, 'y'), fs::path("relative")}) {
        useData(data);
        setenv("HOME", data.c_str(), 1);
        auto other = VNK::Ref<ProbeAlgorithm>::adopt(new ProbeAlgorithm);
        auto fresh = VNK::Ref<ProbeComponent>::adopt(new ProbeComponent(*other));
        EXPECT_EQ(fresh->countUserPresets(), 0);
        EXPECT_FALSE(fresh->saveUserPreset(longName.c_str(), true)) << data;
        EXPECT_NE(std::string(fresh->refusalReason()), "") << data;
    }
}

}  // namespace
}  // namespace quillworks::test
