// SPDX-License-Identifier: ISC
#include "output_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "error.h"
#include "sound_file.h"

namespace quillhost {
namespace {

/// Rights that a new file gets. The mask can only be read by setting it, which other threads that
/// create files must not see: once.
mode_t newFileMode()
{
    static const mode_t mode = [] {
        const mode_t mask = umask(0);
        umask(mask);
        return 0666 & ~mask;
    }();
    return mode;
}

/// Where a file that is open has a name even if it has none in any folder.
std::string nameOfDescriptor(int fd)
{
    return "/proc/self/fd/" + std::to_string(fd);
}

/// Opens a file without a name in the folder of `path`; -1 where that cannot be had.
int openUnnamed(const std::string& path)
{
    const auto folder = std::filesystem::path(path).parent_path();
    const int fd =
        open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0 || access(nameOfDescriptor(fd).c_str(), F_OK) == 0) return fd;
    close(fd);  // it could not be named later
    return -1;
}

bool linkTo(int fd, const std::string& path)
{
    return linkat(AT_FDCWD, nameOfDescriptor(fd).c_str(), AT_FDCWD, path.c_str(),
                  AT_SYMLINK_FOLLOW) == 0;
}

}  // namespace

OutputFile::OutputFile(const std::string& path)
    : shown_(path == "-" ? "standard output" : path), target_(path)
{
    struct stat s = {};
    exists_ = path != "-" && stat(path.c_str(), &s) == 0;
    if (path == "-" || (exists_ && !S_ISREG(s.st_mode) && !S_ISDIR(s.st_mode))) {
        isStream_ = true;
        fd_ = path == "-" ? dup(STDOUT_FILENO) : open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd_ < 0) fail(errno);
        return;
    }
    if (exists_ && S_ISDIR(s.st_mode)) fail(EISDIR);
    if (exists_ && access(path.c_str(), W_OK) != 0) fail(errno);
    // Through a link the file behind it is replaced, not the link.
    std::error_code error;
    if (exists_) target_ = std::filesystem::canonical(path, error).string();
    fd_ = openUnnamed(target_);
    if (fd_ < 0) openBeside();
    fchmod(fd_, exists_ ? s.st_mode & 07777 : newFileMode());
}

void OutputFile::openBeside()
{
    std::string name = target_ + ".XXXXXX";
    fd_ = mkostemp(name.data(), O_CLOEXEC);
    if (fd_ < 0) fail(errno);
    unfinished_ = std::make_unique<UnfinishedFile>(name);
}

/// Gives the unnamed file the name of a temporary one: a name that is taken cannot be had
/// otherwise.
void OutputFile::linkBeside()
{
    std::random_device random;
    for (int attempt = 0; attempt < 100 && !unfinished_; ++attempt) {
        const std::string path = target_ + "." + std::to_string(random());
        if (access(path.c_str(), F_OK) == 0) continue;
        // The signal handler must know it from its first moment on.
        auto name = std::make_unique<UnfinishedFile>(path);
        if (linkTo(fd_, name->path()))
            unfinished_ = std::move(name);
        else if (errno != EEXIST)
            fail(errno);
    }
    if (!unfinished_) fail(EEXIST);
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
    // What the disc does not have, a loss of power would leave as an empty file of the right name.
    // Some file systems do not know the call.
    if (!isStream_ && fsync(fd_) != 0 && errno != EINVAL && errno != ENOSYS) fail(errno);
    if (!isStream_ && !unfinished_) {
        if (!exists_ && linkTo(fd_, target_)) return closeNow();
        linkBeside();
    }
    closeNow();
    if (!unfinished_) return;
    if (rename(unfinished_->path().c_str(), target_.c_str()) != 0) fail(errno);
    unfinished_.reset();
}

void OutputFile::closeNow()
{
    if (close(std::exchange(fd_, -1)) != 0) fail(errno);
}

void refuseSameFile(const std::string& output, const std::string& input)
{
    if (output == "-" || input.empty()) return;
    if (FileIdentity::of(output).sameAs(FileIdentity::of(input)))
        throw UsageError("the output " + output + " is the input " + shownPath(input) +
                         " (name another file)");
}

}  // namespace quillhost
