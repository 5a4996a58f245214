// SPDX-License-Identifier: ISC
#include "chunk_sizes.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace quillhost {
namespace {

/// Where the audio lies in the file by its headers.
struct Extent {
    std::int64_t offset = 0;
    std::uint64_t bytes = 0;
};

class File {
public:
    File(int fd, std::int64_t bytes) : fd_(fd), bytes_(bytes) {}
    /// Reads the 32 bytes from `at` on; false where not even `least` are there.
    bool read(std::int64_t at, std::size_t least)
    {
        std::memset(data_, 0, sizeof data_);
        return at >= 0 && at < bytes_ &&
               pread(fd_, data_, sizeof data_, at) >= static_cast<ssize_t>(least);
    }
    bool has(std::size_t at, std::string_view text) const
    {
        return std::memcmp(data_ + at, text.data(), text.size()) == 0;
    }
    std::uint64_t big(std::size_t at, std::size_t bytes) const
    {
        std::uint64_t n = 0;
        for (std::size_t i = 0; i < bytes; ++i) n = n << 8 | data_[at + i];
        return n;
    }
    std::uint64_t little(std::size_t at, std::size_t bytes) const
    {
        std::uint64_t n = 0;
        for (std::size_t i = bytes; i-- > 0;) n = n << 8 | data_[at + i];
        return n;
    }
    std::int64_t bytes() const { return bytes_; }

private:
    int fd_;
    std::int64_t bytes_;
    unsigned char data_[32] = {};
};

/// Whether `size` bytes behind `at` can be passed over without leaving all sense.
bool isPlausible(std::int64_t at, std::uint64_t size)
{
    return size < std::uint64_t{1} << 60 && at < std::int64_t{1} << 60;
}

std::optional<Extent> aiff(File& file)
{
    for (std::int64_t at = 12; file.read(at, 8);) {
        const auto size = file.big(4, 4);
        if (file.has(0, "SSND")) {
            if (isUnknownSize(static_cast<std::uint32_t>(size)) || size < 8) return {};
            return Extent{at + 16, size - 8};
        }
        at += static_cast<std::int64_t>(8 + size + (size & 1));
    }
    return {};
}

std::optional<Extent> wave64(File& file)
{
    constexpr std::uint64_t kHeader = 24;  // a GUID and the size, which counts them too
    for (std::int64_t at = 40; file.read(at, kHeader);) {
        const auto size = file.little(16, 8);
        if (size < kHeader || !isPlausible(at, size)) return {};
        if (file.has(0, "data\xF3\xAC\xD3\x11")) return Extent{at + 24, size - kHeader};
        at += static_cast<std::int64_t>((size + 7) / 8 * 8);
    }
    return {};
}

std::optional<Extent> au(File& file, bool isLittle)
{
    const auto offset = isLittle ? file.little(4, 4) : file.big(4, 4);
    const auto size = isLittle ? file.little(8, 4) : file.big(8, 4);
    if (isUnknownSize(static_cast<std::uint32_t>(size))) return {};
    return Extent{static_cast<std::int64_t>(offset), size};
}

std::optional<Extent> coreAudio(File& file)
{
    for (std::int64_t at = 8; file.read(at, 12);) {
        const auto size = file.big(4, 8);
        const bool isAudio = file.has(0, "data");
        // -1: the audio goes on to the end of the file.
        if (!isPlausible(at, size)) return {};
        if (isAudio) return size < 4 ? std::nullopt : std::optional(Extent{at + 16, size - 4});
        at += static_cast<std::int64_t>(12 + size);
    }
    return {};
}

std::optional<Extent> announced(File& file)
{
    if (!file.read(0, 12)) return {};
    if (file.has(0, "FORM") && (file.has(8, "AIFF") || file.has(8, "AIFC"))) return aiff(file);
    if (file.has(0, "riff\x2E\x91\xCF\x11")) return wave64(file);
    if (file.has(0, ".snd")) return au(file, false);
    if (file.has(0, "dns.")) return au(file, true);
    if (file.has(0, "caff")) return coreAudio(file);
    return {};
}

}  // namespace

std::string cutShort(int fd, std::int64_t bytes)
{
    File file(fd, bytes);
    const auto audio = announced(file);
    if (!audio) return "";
    const auto there = static_cast<std::uint64_t>(std::max<std::int64_t>(0, bytes - audio->offset));
    if (audio->bytes <= there) return "";
    return "it is cut short: " + std::to_string(audio->bytes) + " bytes of audio announced, " +
           std::to_string(there) + " there";
}

}  // namespace quillhost
