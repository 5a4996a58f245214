// SPDX-License-Identifier: ISC
// What a batch leaves when something goes wrong: whole files and nothing else.
#include <csignal>
#include <cstdio>
#include <map>
#include <sndfile.h>
#include <unistd.h>

#include "program.h"
#include "tests/support/build_paths.h"

namespace quillhost_test {
namespace {

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kWavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class BatchFaults : public InFolder {
protected:
    static constexpr int kFiles = 12;

    /// A call that renders all of them; what it gives undisturbed is in "whole".
    Words batch(const std::string& folder, Words more = {})
    {
        Words words = {"render"};
        for (int i = 0; i < kFiles; ++i) words.push_back(name(i));
        words.insert(words.end(), {"--out-dir", folder, "--jobs", "3", "--fx", "limiter"});
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    void writeInputs()
    {
        for (int i = 0; i < kFiles; ++i)
            writeSound(name(i), noise(2, 48000 + 9600 * std::size_t(i), 0.9), kWav16);
        EXPECT_EQ(run(batch("whole")).code, 0);
    }
    static std::string name(int i) { return "in" + std::to_string(i) + ".wav"; }
    /// How many files a folder holds, each of which must be what it ought to be.
    static int wholeFiles(const std::string& folder)
    {
        int count = 0;
        std::error_code none;
        for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
            const auto file = entry.path().filename().string();
            EXPECT_TRUE(std::filesystem::exists("whole/" + file)) << file;
            EXPECT_TRUE(readBytes(entry.path()) == readBytes("whole/" + file)) << file;
            ++count;
        }
        return count;
    }
    /// Standard output of a shell; empty where it fails.
    static std::string shell(const std::string& command)
    {
        std::string out;
        FILE* const pipe = popen(command.c_str(), "r");
        char buffer[4096];
        for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
        return pclose(pipe) == 0 ? out : "";
    }
};

TEST_F(BatchFaults, ASignalAtAnyTimeLeavesWholeFilesOnlyAndTheRestIsDoneLater)
{
    writeInputs();
    int least = kFiles, most = 0;
    for (int i = 0; i < 12; ++i) {
        const int signal = std::map<int, int>{{0, SIGINT}, {1, SIGTERM}, {2, SIGKILL}}.at(i % 3);
        SCOPED_TRACE(i);
        std::filesystem::remove_all("o");
        Program program(batch("o"));
        usleep(useconds_t(20000 + 15000 * i));
        program.signal(signal);
        const auto result = program.wait();
        const int there = wholeFiles("o");
        if (there < kFiles) {
            // A signal that comes before the program listens ends it as it ends any.
            const bool isTooEarly = there == 0 && result.code == -1;
            EXPECT_TRUE(isTooEarly || result.code == (signal == SIGKILL ? -1 : 128 + signal))
                << result.code;
        }
        least = std::min(least, there);
        most = std::max(most, there);
    }
    EXPECT_LT(least, kFiles) << "no run was ended on its way";
    EXPECT_EQ(run(batch("o", {"--skip-existing"})).code, 0);
    EXPECT_EQ(wholeFiles("o"), kFiles);
}

TEST_F(BatchFaults, TwoRunsIntoOneFolderBothEndWell)
{
    writeInputs();
    for (const Words& more : {Words{}, Words{"--skip-existing"}}) {
        std::filesystem::remove_all("o");
        Program first(batch("o", more)), second(batch("o", more));
        EXPECT_EQ(first.wait().code, 0);
        EXPECT_EQ(second.wait().code, 0);
        EXPECT_EQ(wholeFiles("o"), kFiles);
    }
}

TEST_F(BatchFaults, AFullDiscKeepsWhatFits)
{
    writeInputs();
    // 1.5 MB hold some of the files, the last one of 605 kB surely not behind the others.
    std::string words;
    for (const auto& word : batch("disc/o")) words += " " + word;
    const auto out = shell("mkdir disc; unshare --user --map-root-user --mount sh -c '"
                           "mount -t tmpfs -o size=1500k none disc || exit 1; QUILLWORKS_MODULE=" +
                           quillworks::paths::module + " " + quillworks::paths::quillhost + words +
                           " 2>errors; echo exit $?; cp -r disc/o kept' 2>/dev/null");
    if (out.empty()) GTEST_SKIP() << "no file system can be mounted here";
    EXPECT_NE(out.find("exit 1"), std::string::npos) << out;
    EXPECT_NE(out.find(" failed:"), std::string::npos) << out;
    EXPECT_NE(readBytes("errors").find("No space left on device"), std::string::npos);
    const int kept = wholeFiles("kept");
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, kFiles);
    EXPECT_NE(out.find(std::to_string(kept) + " rendered, "), std::string::npos) << out;
}

TEST_F(BatchFaults, AnAlbumDoesWithoutTheFileThatCannotBeRead)
{
    writeSound("a.wav", noise(2, 96000, 0.05), kWavFloat);
    writeSound("c.wav", noise(2, 96000, 0.2), kWavFloat);
    // Ends too early, which shows when a part of it has been measured.
    writeSound("b.flac", noise(2, 96000, 0.9), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const auto bytes = readBytes("b.flac");
    writeBytes("b.flac", bytes.substr(0, bytes.size() / 2));
    const auto rendered = [](Words files, const char* folder) {
        Words words = {"render"};
        words.insert(words.end(), files.begin(), files.end());
        words.insert(words.end(), {"--album", "--normalize", "-30", "--out-dir", folder});
        return run(words);
    };
    const auto result = rendered({"a.wav", "b.flac", "c.wav"}, "o");
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.out.find("2 rendered, 1 failed:\n  b.flac\n"), std::string::npos)
        << result.out << result.err;
    EXPECT_EQ(rendered({"a.wav", "c.wav"}, "p").code, 0);
    for (const std::string name : {"a.wav", "c.wav"})
        EXPECT_TRUE(readBytes("o/" + name) == readBytes("p/" + name)) << name;
}

TEST_F(BatchFaults, WhatTheAbsoluteGateHidReachesTheTargetToo)
{
    // Half of it lies below -70 LUFS, and above when it has been made loud.
    auto sound = noise(1, 960000, 0.0005);
    for (std::size_t i = 480000; i < sound.samples.size(); ++i) sound.samples[i] *= 0.55;
    writeSound("in.wav", sound, kWavFloat);
    const auto result =
        run({"render", "in.wav", "out.wav", "--normalize", "-23", "--strict", "--json"});
    EXPECT_EQ(result.code, 0) << result.out;
    const auto report = Json::parse(result.out);
    EXPECT_NEAR(report["after"]["integrated"], -23, 0.1);
    // Else nothing would have to be put right.
    EXPECT_GT(std::abs(double(report["gain"]) + double(report["before"]["integrated"]) + 23), 0.5);
}

}  // namespace
}  // namespace quillhost_test
