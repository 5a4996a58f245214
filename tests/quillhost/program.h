// SPDX-License-Identifier: ISC
// Runs the program as a shell would, in a folder of its own, and reads and writes sound files.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/support/sanitised.h"

namespace quillhost_test {

using Json = nlohmann::json;
using Words = std::vector<std::string>;
using quillworks::test::kIsSanitised;

struct Result {
    int code = -1;  // -1: ended by a signal
    std::string out, err;
};

/// A running program; standard input is a pipe that stays open until wait().
class Program {
public:
    /// `environment` entries are NAME=value, beside those of the test.
    explicit Program(const Words& arguments, const Words& environment = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    void send(const std::string& data);
    void signal(int number);
    pid_t id() const { return pid_; }
    /// How many files it has open that no folder holds.
    int unnamedFiles() const;
    Result wait();

private:
    pid_t pid_ = -1;
    int in_ = -1;
    std::string outFile_, errFile_;
};

Result run(const Words& arguments, const std::string& input = "", const Words& environment = {});

/// Every frame of every channel, interleaved.
struct Sound {
    int channels = 1, rate = 48000, format = 0;  // of libsndfile
    std::vector<double> samples;
    std::size_t frames() const { return samples.size() / std::size_t(channels); }
    double at(std::size_t frame, int channel = 0) const
    {
        return samples[frame * std::size_t(channels) + std::size_t(channel)];
    }
};
Sound noise(int channels, std::size_t frames, double amplitude = 0.25);
void writeSound(const std::string& path, const Sound& sound, int format);
Sound readSound(const std::string& path);
std::string readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::string& bytes);
/// Bytes 20 to 23 of an extensible format chunk; 0 in a plain one.
std::uint32_t maskOf(const std::string& path);

/// A fresh folder per test, the current one while the test runs.
class InFolder : public ::testing::Test {
protected:
    InFolder();
    ~InFolder() override;
    /// Names of the files in it, sorted.
    Words files() const;

private:
    std::filesystem::path folder_, before_;
};

/// A failure: its code, nothing on standard output, one line on standard error that matches.
void expectFailure(const Result& result, int code, const std::string& pattern);
/// Success with nothing said.
void expectSilence(const Result& result);

}  // namespace quillhost_test
