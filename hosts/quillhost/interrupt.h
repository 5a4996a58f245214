// SPDX-License-Identifier: ISC
// Ends the program on a signal without leaving half a file behind.
#pragma once

#include <string>

namespace quillhost {

/// Interrupt, termination and hang-up remove the unfinished files and end the program at once, an
/// interrupt with 130. A reader that has closed its pipe gives a write error instead of a signal.
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
