// SPDX-License-Identifier: ISC
#include "output_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "error.h"
#include "sound_file.h"

namespace quillhost {
namespace {

/// Rights that a new file gets.
mode_t newFileMode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

OutputFile::OutputFile(const std::string& path)
    : shown_(path == "-" ? "standard output" : path), target_(path)
{
    struct stat s = {};
    const bool exists = path != "-" && stat(path.c_str(), &s) == 0;
    if (path == "-" || (exists && !S_ISREG(s.st_mode) && !S_ISDIR(s.st_mode))) {
        isStream_ = true;
        fd_ = path == "-" ? dup(STDOUT_FILENO) : open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd_ < 0) fail(errno);
        return;
    }
    if (exists && S_ISDIR(s.st_mode)) fail(EISDIR);
    if (exists && access(path.c_str(), W_OK) != 0) fail(errno);
    // Through a link the file behind it is replaced, not the link.
    std::error_code error;
    if (exists) target_ = std::filesystem::canonical(path, error).string();
    std::string name = target_ + ".XXXXXX";
    fd_ = mkostemp(name.data(), O_CLOEXEC);
    if (fd_ < 0) fail(errno);
    unfinished_ = std::make_unique<UnfinishedFile>(name);
    fchmod(fd_, exists ? s.st_mode & 07777 : newFileMode());
}

OutputFile::~OutputFile()
{
    if (fd_ >= 0) close(fd_);
    if (unfinished_) unlink(unfinished_->path().c_str());
}

void OutputFile::fail(int error) const
{
    throw WorkError(shown_ + ": cannot be written: " + std::strerror(error));
}

void OutputFile::write(const void* data, std::size_t bytes)
{
    for (auto p = static_cast<const char*>(data); bytes > 0;) {
        const auto n = ::write(fd_, p, bytes);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(errno);
        p += n;
        bytes -= static_cast<std::size_t>(n);
    }
}

void OutputFile::finish()
{
    const int fd = std::exchange(fd_, -1);
    if (close(fd) != 0) fail(errno);
    if (!unfinished_) return;
    if (rename(unfinished_->path().c_str(), target_.c_str()) != 0) fail(errno);
    unfinished_.reset();
}

void refuseSameFile(const std::string& output, const std::string& input)
{
    if (output == "-" || input.empty()) return;
    if (FileIdentity::of(output).sameAs(FileIdentity::of(input)))
        throw UsageError("the output " + output + " is the input " + shownPath(input) +
                         " (name another file)");
}

}  // namespace quillhost
