// SPDX-License-Identifier: ISC
// What a person has set of all views, as a file.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "editors/settings.h"

namespace quillworks::editors {
namespace {

namespace fs = std::filesystem;

TEST(Settings, ComeBackAndLeaveWhatAnotherVersionKnows)
{
    std::string home = (fs::temp_directory_path() / "settings-XXXXXX").string();
    ASSERT_TRUE(mkdtemp(home.data()));
    setenv("XDG_CONFIG_HOME", home.c_str(), 1);
    const auto file = fs::path(home) / "quillworks/settings.json";
    std::string reason;
    const auto expect = [](double scale, const char* variant, bool tips, const std::string& what) {
        const auto read = readSettings();
        EXPECT_EQ(read.scale, scale) << what;
        EXPECT_EQ(read.variant, variant) << what;
        EXPECT_EQ(read.tips, tips) << what;
    };
    expect(0, "dark", true, "no file");
    ASSERT_TRUE(writeSettings({1.5, "contrast", false}, reason)) << reason;
    expect(1.5, "contrast", false, "as written");

    std::ofstream(file) << R"({"future": [1, 2], "scale": 2})";
    expect(2, "dark", true, "what is missing");
    ASSERT_TRUE(writeSettings({0, "dark", true}, reason));
    std::stringstream text;
    text << std::ifstream(file).rdbuf();
    EXPECT_NE(text.str().find("future"), std::string::npos) << text.str();

    for (const char* odd : {"", "{", "[]", "7", R"({"scale": 1e9, "variant": 3, "tips": "no"})",
                            R"({"scale": -1, "variant": "mauve", "tips": null})", "\xFF\xFE"}) {
        std::ofstream(file) << odd;
        expect(0, "dark", true, odd);
    }
    setenv("XDG_CONFIG_HOME", "/proc", 1);  // where nobody makes folders
    EXPECT_FALSE(writeSettings({}, reason));
    EXPECT_NE(reason, "");
    unsetenv("XDG_CONFIG_HOME");
    fs::remove_all(home);
}

}  // namespace
}  // namespace quillworks::editors
