// SPDX-License-Identifier: ISC
// A file that appears under its name only when it is complete.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "interrupt.h"

namespace quillhost {

/// Writes a file that has no name yet, where the file system has such, else one beside the final
/// name; finish() gives it the final one. So not even a killed program leaves anything. Pipes,
/// devices and "-" (standard output) are written at once, since there is nothing to replace.
class OutputFile {
public:
    /// WorkError when the place cannot be written to.
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool isStream() const noexcept { return isStream_; }
    /// Where to write: open for reading and writing unless it is a stream.
    int descriptor() const noexcept { return fd_; }
    /// Writes everything; WorkError when that fails.
    void write(const void* data, std::size_t bytes);
    void write(std::string_view text) { write(text.data(), text.size()); }
    /// Brings the file to the disc and gives it its name; WorkError when the disc is full.
    void finish();
    [[noreturn]] void fail(int error) const;

private:
    void openBeside();
    void linkBeside();
    void closeNow();

    std::string shown_, target_;
    std::unique_ptr<UnfinishedFile> unfinished_;
    int fd_ = -1;
    bool isStream_ = false, exists_ = false;
};

/// UsageError when `output` is the same file as `input`. Neither needs to exist.
void refuseSameFile(const std::string& output, const std::string& input);

}  // namespace quillhost
