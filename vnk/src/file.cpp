// SPDX-License-Identifier: ISC
#include "vnk/file.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unistd.h>

namespace VNK {
namespace {

using FileHandle = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::string systemReason()
{
    return std::strerror(errno);
}

}  // namespace

bool readFile(const char* path, std::size_t limit, std::string& content, std::string& reason)
{
    if (!path) return reason = "there is no such file", false;
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) return reason = "there is no such file", false;
    if (!std::filesystem::is_regular_file(status)) return reason = "it is not a file", false;
    const FileHandle file(std::fopen(path, "rb"), std::fclose);
    if (!file) return reason = systemReason(), false;
    std::string read;
    char buffer[65536];
    while (const auto n = std::fread(buffer, 1, sizeof buffer, file.get())) {
        if (read.size() + n > limit)
            return reason = "it is larger than " + std::to_string(limit) + " bytes", false;
        read.append(buffer, n);
    }
    if (std::ferror(file.get())) return reason = systemReason(), false;
    content = std::move(read);
    return true;
}

bool writeFile(const char* path, const void* data, std::size_t bytes, std::string& reason)
{
    if (!path || (!data && bytes > 0)) return reason = "there is nothing to write", false;
    // No two writers of the system share a name: what is left of a dead one is written over.
    static std::atomic<unsigned> count{0};
    const std::string temporary = std::string(path) + ".part-" + std::to_string(::getpid()) + "-" +
                                  std::to_string(count.fetch_add(1, std::memory_order_relaxed));
    FileHandle file(std::fopen(temporary.c_str(), "wb"), std::fclose);
    if (!file) return reason = systemReason(), false;
    // Without the sync a file system may keep the new name and lose the bytes.
    const bool isWritten = (bytes == 0 || std::fwrite(data, 1, bytes, file.get()) == bytes) &&
                           std::fflush(file.get()) == 0 && ::fsync(::fileno(file.get())) == 0 &&
                           std::fclose(file.release()) == 0;
    if (isWritten && std::rename(temporary.c_str(), path) == 0) return true;
    reason = systemReason();
    file.reset();
    std::remove(temporary.c_str());
    return false;
}

std::vector<std::string> listFiles(const char* folder, const char* suffix)
{
    namespace fs = std::filesystem;
    std::vector<std::string> paths;
    if (!folder || !suffix) return paths;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        const std::string path = at->path().string();
        if (path.ends_with(suffix) && at->is_regular_file(error)) paths.push_back(path);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string userFolder(UserFolder kind)
{
    // The XDG Base Directory Specification: a path that is not absolute is as none.
    const auto variable = [](const char* name) {
        const char* const value = std::getenv(name);
        return std::string(value && *value == '/' ? value : "");
    };
    const bool isData = kind == UserFolder::Data;
    auto folder = variable(isData ? "XDG_DATA_HOME" : "XDG_CONFIG_HOME");
    if (!folder.empty()) return folder;
    folder = variable("HOME");
    return folder.empty() ? folder : folder + (isData ? "/.local/share" : "/.config");
}

}  // namespace VNK
