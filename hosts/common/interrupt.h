// SPDX-License-Identifier: ISC
// Ends the program on a signal without leaving half a file behind.
#pragma once

#include <string>

namespace quillhost {

/// Interrupt, termination, hang-up, quit and the limits of time and file size remove the unfinished
/// files and end the program at once, with 128 and the signal's number (an interrupt: 130). A
/// reader that has closed its pipe gives a write error instead of a signal.
void installSignalHandlers();

/// A file that a signal must remove. [any thread]
class UnfinishedFile {
public:
    explicit UnfinishedFile(std::string path);
    ~UnfinishedFile();
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    const std::string& path() const noexcept { return path_; }

private:
    std::string path_;
    int slot_ = -1;
};

}  // namespace quillhost
