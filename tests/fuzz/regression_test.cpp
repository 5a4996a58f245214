// SPDX-License-Identifier: ISC
// A fuzz target without its fuzzer: seeds, past findings, and a few hundred mutations of each.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <random>

#include "tests/fuzz/fuzz_target.h"
#include "tests/support/build_paths.h"
#include "vnk/file.h"

namespace quillworks::fuzz {
namespace {

namespace fs = std::filesystem;

/// TARGET of the program fuzz_TARGET_tests.
std::string target()
{
    const std::string_view program = program_invocation_short_name;
    const auto first = program.find('_') + 1;
    return std::string(program.substr(first, program.rfind('_') - first));
}

/// tests/fuzz/seeds/TARGET, tests/fuzz/findings/TARGET, and resources/TARGET where there is such.
std::map<std::string, std::string> inputs()
{
    std::map<std::string, std::string> files;
    for (const char* parent : {"/tests/fuzz/seeds/", "/tests/fuzz/findings/", "/resources/"}) {
        const fs::path folder = paths::source + std::string(parent) + target();
        if (!fs::exists(folder)) continue;
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file()) continue;
            std::string reason;
            const auto name = entry.path().string();
            EXPECT_TRUE(VNK::readFile(name.c_str(), 1 << 20, files[name], reason)) << name;
        }
    }
    return files;
}

/// Exactly as long as the input, so that a byte read beyond it is seen.
void run(const std::string& input, const std::string& name)
{
    const std::vector<std::uint8_t> bytes(input.begin(), input.end());
    EXPECT_NO_THROW(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()))
        << name << ": " << ::testing::PrintToString(input);
}

std::string mutated(std::string s, std::mt19937& random)
{
    const auto below = [&](std::size_t n) { return n ? random() % n : 0; };
    for (auto n = 1 + below(3); n > 0; --n) {
        const auto at = below(s.size()), length = below(std::min<std::size_t>(s.size() - at, 64));
        switch (random() % 5) {
        case 0:
            if (!s.empty()) s[at] = static_cast<char>(s[at] ^ 1 << below(8));
            break;
        case 1:
            if (!s.empty()) s[at] = static_cast<char>(random());
            break;
        case 2:
            s.resize(at);
            break;
        case 3:
            s.insert(below(s.size()), s.substr(at, length));
            break;
        default:
            s.erase(at, length);
        }
    }
    return s;
}

TEST(FuzzTarget, HoldsOnSeedsAndFindings)
{
    const auto all = inputs();
    EXPECT_FALSE(all.empty());
    for (const auto& [name, input] : all) run(input, name);
    run("", "nothing");
}

TEST(FuzzTarget, HoldsOnMutationsOfThem)
{
    // The same ones in the same order every time; where a sanitizer makes a target slow, fewer.
    constexpr int kEach = 300;
    constexpr auto kLongest = std::chrono::seconds(3);
    const auto start = std::chrono::steady_clock::now();
    const auto all = inputs();
    std::mt19937 random(1);
    for (int i = 0; i < kEach; ++i)
        for (const auto& [name, input] : all) {
            if (HasFailure() || std::chrono::steady_clock::now() - start > kLongest) return;
            run(mutated(input, random), name + ", mutation " + std::to_string(i));
        }
}

}  // namespace
}  // namespace quillworks::fuzz
