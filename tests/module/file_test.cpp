// SPDX-License-Identifier: ISC
// Files that are written whole or not at all, with what they ask of the system in its order.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <thread>
#include <unistd.h>
#include <vector>

#include "vnk/export.h"
#include "vnk/file.h"

namespace {

std::string* gCalls = nullptr;  // where calls are noted while a test looks

}  // namespace

// The framework's own calls come by here.
extern "C" VNK_API int fsync(int file)
{
    if (gCalls) *gCalls += "sync ";
    return reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"))(file);
}
extern "C" VNK_API int rename(const char* from, const char* to) noexcept
{
    if (gCalls) *gCalls += "rename ";
    using Rename = int (*)(const char*, const char*);
    return reinterpret_cast<Rename>(dlsym(RTLD_NEXT, "rename"))(from, to);
}

namespace quillworks::test {
namespace {

namespace fs = std::filesystem;

class WrittenFile : public ::testing::Test {
protected:
    WrittenFile() { fs::create_directory(folder); }
    ~WrittenFile() override { fs::remove_all(folder); }
    std::ptrdiff_t count() const
    {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    }
    const fs::path folder =
        fs::temp_directory_path() / ("written-file-" + std::to_string(::getpid()));
    const std::string file = folder / "file";
    std::string reason, content;
};

TEST_F(WrittenFile, IsOnTheDiskBeforeItTakesItsName)
{
    std::string calls;
    gCalls = &calls;
    EXPECT_TRUE(VNK::writeFile(file.c_str(), "abc", 3, reason)) << reason;
    gCalls = nullptr;
    EXPECT_EQ(calls, "sync rename ");
    EXPECT_TRUE(VNK::readFile(file.c_str(), 9, content, reason)) << reason;
    EXPECT_EQ(content, "abc");
}

TEST_F(WrittenFile, HasOneWritersBytesWhenManyThreadsWriteIt)
{
    std::vector<std::thread> writers;
    std::atomic<int> failures{0};
    for (char name = 'a'; name < 'e'; ++name)
        writers.emplace_back([&, name] {
            const std::string text(100000, name);
            std::string why;
            for (int i = 0; i < 50; ++i)
                failures += !VNK::writeFile(file.c_str(), text.data(), text.size(), why);
        });
    for (auto& writer : writers) writer.join();
    EXPECT_EQ(failures, 0);
    ASSERT_TRUE(VNK::readFile(file.c_str(), 100000, content, reason)) << reason;
    EXPECT_EQ(content, std::string(100000, content[0]));
    EXPECT_EQ(count(), 1) << "nothing is left beside it";
}

TEST_F(WrittenFile, LeavesNothingWhereItCannotBe)
{
    fs::create_directories(file);  // a folder has the name
    EXPECT_FALSE(VNK::writeFile(file.c_str(), "abc", 3, reason));
    EXPECT_NE(reason, "");
    EXPECT_EQ(count(), 1);
}

}  // namespace
}  // namespace quillworks::test
