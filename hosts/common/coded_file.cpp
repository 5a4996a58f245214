// SPDX-License-Identifier: ISC
#include "coded_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <unistd.h>

namespace quillhost {
namespace {

template <std::size_t N> bool readAt(int fd, std::int64_t at, unsigned char (&data)[N])
{
    return at >= 0 && pread(fd, data, N, at) == static_cast<ssize_t>(N);
}

std::uint32_t big(const unsigned char* p)
{
    return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

/// Bytes of a Layer III frame and where within it a Xing header stands (ISO 11172-3, 2.4.2.3;
/// 13818-3 for the half rates), nothing where it is no such frame.
struct Frame {
    std::int64_t bytes, xing;
};
std::optional<Frame> frameOf(const unsigned char* p)
{
    constexpr int kBitRates[2][16] = {
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0}};
    constexpr int kRates[] = {44100, 48000, 32000, 0};
    const int version = p[1] >> 3 & 3;  // 3: MPEG 1, 2: MPEG 2, 0: MPEG 2.5
    const bool isFull = version == 3;
    const int rate = kRates[p[2] >> 2 & 3] >> (isFull ? 0 : version == 2 ? 1 : 2);
    const int bitRate = kBitRates[isFull][p[2] >> 4];
    const bool isLayer3 = p[0] == 0xFF && (p[1] & 0xE6) == 0xE2 && version != 1;
    if (!isLayer3 || rate == 0 || bitRate == 0) return {};
    const bool isMono = p[3] >> 6 == 3;
    const int sideInformation = isFull ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    return Frame{(isFull ? 144 : 72) * 1000 * bitRate / rate + (p[2] >> 1 & 1),
                 4 + sideInformation};
}

}  // namespace

CodedFile::CodedFile(int fd, std::int64_t bytes, bool isOgg) : fd_(fd), isOgg_(isOgg), end_(bytes)
{
    isOgg ? readPages() : readTags();
}

/// From page to page by their headers (RFC 3533, section 6).
void CodedFile::readPages()
{
    constexpr int kStart = 2, kEnd = 4;  // flags of a logical stream's first and last page
    bool isOver = false;
    unsigned char head[27], table[255];
    std::int64_t at = 0;
    while (readAt(fd_, at, head) && std::memcmp(head, "OggS", 4) == 0) {
        const std::size_t segments = head[26];
        if (pread(fd_, table, segments, at + 27) != static_cast<ssize_t>(segments)) break;
        std::int64_t next = at + 27 + static_cast<std::int64_t>(segments);
        for (std::size_t i = 0; i < segments; ++i) next += table[i];
        if (next > end_) break;
        if (isOver && head[5] & kStart) {
            remarks_.push_back("holds several recordings in a row, of which the first is read");
            return;
        }
        isOver = (head[5] & kEnd) != 0;
        at = next;
    }
    char rest[4] = {};
    const auto left = pread(fd_, rest, sizeof rest, at);
    if (left > 0 && std::memcmp(rest, "OggS", static_cast<std::size_t>(left)) == 0)
        fault_ = "it breaks off inside a page";
    else if (!isOver)
        remarks_.push_back("has no last page: what followed may be missing");
}

/// Leaves out what is no audio at the end, where a decoder would look for it in vain, and a Xing
/// header that speaks of a shorter file, such as the first of several that were put together.
void CodedFile::readTags()
{
    unsigned char id3v1[128], ape[32], id3v2[10], head[4], xing[16];
    if (readAt(fd_, end_ - 128, id3v1) && std::memcmp(id3v1, "TAG", 3) == 0) end_ -= 128;
    if (readAt(fd_, end_ - 32, ape) && std::memcmp(ape, "APETAGEX", 8) == 0) {
        const auto size = std::int64_t{ape[15]} << 24 | ape[14] << 16 | ape[13] << 8 | ape[12];
        const std::int64_t headerBytes = ape[23] & 0x80 ? 32 : 0;
        if (size >= 32 && size + headerBytes < end_) end_ -= size + headerBytes;
    }
    std::int64_t first = 0;
    if (readAt(fd_, 0, id3v2) && std::memcmp(id3v2, "ID3", 3) == 0)
        first = 10 + ((id3v2[6] & 0x7F) << 21 | (id3v2[7] & 0x7F) << 14 | (id3v2[8] & 0x7F) << 7 |
                      (id3v2[9] & 0x7F));
    if (!readAt(fd_, first, head)) return;
    const auto frame = frameOf(head);
    if (!frame || !readAt(fd_, first + frame->xing, xing)) return;
    const bool hasXing = std::memcmp(xing, "Xing", 4) == 0 || std::memcmp(xing, "Info", 4) == 0;
    constexpr std::uint32_t kHasFrames = 1, kHasBytes = 2;
    if (!hasXing || (big(xing + 4) & (kHasFrames | kHasBytes)) != (kHasFrames | kHasBytes)) return;
    const std::int64_t said = big(xing + 12), slack = said / 100 + 4096;
    if (end_ - first > said + slack) begin_ = first + frame->bytes;
}

SNDFILE* CodedFile::open(SF_INFO& info)
{
    SF_VIRTUAL_IO io = {};
    io.get_filelen = length;
    io.seek = seek;
    io.read = read;
    io.tell = tell;
    return sf_open_virtual(&io, SFM_READ, &info, this);
}

sf_count_t CodedFile::length(void* self)
{
    const auto& file = *static_cast<const CodedFile*>(self);
    return file.isOgg_ ? SF_COUNT_MAX : file.end_ - file.begin_;
}

sf_count_t CodedFile::seek(sf_count_t offset, int whence, void* self)
{
    auto& file = *static_cast<CodedFile*>(self);
    if (whence == SEEK_END) {
        if (!file.isOgg_) return -1;
        offset += file.end_ - file.begin_;
    } else if (whence == SEEK_CUR) {
        offset += file.at_;
    }
    return file.at_ = std::max<sf_count_t>(offset, 0);
}

sf_count_t CodedFile::read(void* data, sf_count_t bytes, void* self)
{
    auto& file = *static_cast<CodedFile*>(self);
    const auto left = std::min<sf_count_t>(bytes, file.end_ - file.begin_ - file.at_);
    if (left <= 0) return 0;
    const auto n = pread(file.fd_, data, static_cast<std::size_t>(left), file.begin_ + file.at_);
    if (n > 0) file.at_ += n;
    return n;
}

sf_count_t CodedFile::tell(void* self)
{
    return static_cast<const CodedFile*>(self)->at_;
}

}  // namespace quillhost
