// SPDX-License-Identifier: ISC
#include "wave_header.h"

#include <algorithm>
#include <cstring>

#include "chunk_sizes.h"

namespace quillhost {
namespace {

// Above it the size of the whole file does not fit.
constexpr std::uint64_t kLargestSize = 0xFFFFF000;
constexpr std::uint16_t kExtensible = 0xFFFE;
// Behind the first two bytes, which hold the format tag (KSDATAFORMAT_SUBTYPE_...).
constexpr unsigned char kSubFormat[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                          0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

std::uint64_t little(const unsigned char* p, int bytes)
{
    std::uint64_t n = 0;
    for (int i = 0; i < bytes; ++i) n |= std::uint64_t{p[i]} << (8 * i);
    return n;
}

class Reader {
public:
    Reader(const ReadBytes& read) : read_(read) {}
    bool take(void* data, std::size_t bytes)
    {
        const bool whole = read_(data, bytes) == bytes;
        at_ += static_cast<std::int64_t>(bytes);
        return whole;
    }
    bool skip(std::uint64_t bytes)
    {
        unsigned char waste[4096];
        for (; bytes > 0; bytes -= std::min<std::uint64_t>(bytes, sizeof waste))
            if (!take(waste, std::min<std::uint64_t>(bytes, sizeof waste))) return false;
        return true;
    }
    std::int64_t at() const { return at_; }

private:
    const ReadBytes& read_;
    std::int64_t at_ = 0;
};

}  // namespace

bool isWave(const unsigned char (&start)[12]) noexcept
{
    return (std::memcmp(start, "RIFF", 4) == 0 || std::memcmp(start, "RF64", 4) == 0) &&
           std::memcmp(start + 8, "WAVE", 4) == 0;
}

bool readWaveHeader(const ReadBytes& read, std::int64_t knownBytes, WaveHeader& header,
                    std::string& reason)
{
    header = {};
    Reader in(read);
    unsigned char start[12];
    if (!in.take(start, sizeof start) || !isWave(start))
        return reason = "it is not a WAV file", false;
    const bool isRf64 = start[1] == 'F';
    std::uint64_t longData = 0;
    for (bool hasFormat = false;;) {
        unsigned char chunk[8];
        if (!in.take(chunk, sizeof chunk)) return reason = "its header is cut short", false;
        const std::uint32_t size = static_cast<std::uint32_t>(little(chunk + 4, 4));
        if (std::memcmp(chunk, "data", 4) == 0) {
            if (!hasFormat) return reason = "its header names no format", false;
            header.dataOffset = in.at();
            header.dataBytes = isRf64 && size == 0xFFFFFFFF ? static_cast<std::int64_t>(longData)
                                                            : static_cast<std::int64_t>(size);
            const bool unknown = (!isRf64 && isUnknownSize(size)) || header.dataBytes < 0 ||
                                 (size == 0 && knownBytes < 0);
            if (unknown) header.dataBytes = -1;
            break;
        }
        unsigned char body[64] = {};
        const std::size_t kept = std::min<std::size_t>(size, sizeof body);
        const auto bodyAt = in.at();
        if (!in.take(body, kept) || !in.skip(std::uint64_t{size} + (size & 1) - kept))
            return reason = "its header is cut short", false;
        if (std::memcmp(chunk, "ds64", 4) == 0 && size >= 16) longData = little(body + 8, 8);
        if (std::memcmp(chunk, "PEAK", 4) == 0 && size >= 8) header.peakOffset = bodyAt;
        if (std::memcmp(chunk, "fmt ", 4) != 0) continue;
        if (size < 16) return reason = "its format chunk is cut short", false;
        header.format = static_cast<std::uint16_t>(little(body, 2));
        header.channels = static_cast<std::uint16_t>(little(body + 2, 2));
        header.sampleRate = static_cast<std::uint32_t>(little(body + 4, 4));
        header.bytesPerFrame = static_cast<std::uint16_t>(little(body + 12, 2));
        header.bits = static_cast<std::uint16_t>(little(body + 14, 2));
        if (header.format == kExtensible && size >= 40) {
            header.mask = static_cast<std::uint32_t>(little(body + 20, 4));
            header.maskOffset = bodyAt + 20;
            header.format = static_cast<std::uint16_t>(little(body + 24, 2));
        }
        if (header.channels == 0) return reason = "it has 0 channels", false;
        if (header.bytesPerFrame == 0) return reason = "its frames have no bytes", false;
        const bool isPlain =
            header.format == WaveHeader::kPcm || header.format == WaveHeader::kFloat;
        if (isPlain && header.bytesPerFrame != (header.bits + 7) / 8 * header.channels)
            return reason = "its frames of " + std::to_string(header.bytesPerFrame) +
                            " bytes are not " + std::to_string(header.channels) + " channels of " +
                            std::to_string(header.bits) + " bits",
                   false;
        hasFormat = true;
    }
    if (knownBytes >= 0 && header.dataBytes >= 0 &&
        header.dataBytes > knownBytes - header.dataOffset)
        return reason = "it is cut short: " + std::to_string(header.frames()) +
                        " frames announced, " +
                        std::to_string(std::max<std::int64_t>(0, knownBytes - header.dataOffset) /
                                       header.bytesPerFrame) +
                        " there",
               false;
    return true;
}

std::vector<unsigned char> writeWaveHeader(const WaveHeader& header, std::int64_t frames)
{
    std::vector<unsigned char> out;
    const auto text = [&](const char* s) {
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(s[i]));
    };
    const auto put = [&](std::uint64_t n, int bytes) {
        for (int i = 0; i < bytes; ++i) out.push_back(static_cast<unsigned char>(n >> (8 * i)));
    };
    const bool extensible = header.mask != 0;
    const std::uint32_t formatBytes = extensible ? 40 : 16;
    const std::uint64_t dataBytes =
        static_cast<std::uint64_t>(std::max<std::int64_t>(frames, 0)) * header.bytesPerFrame;
    const bool known = frames >= 0 && dataBytes < kLargestSize &&
                       !isUnknownSize(static_cast<std::uint32_t>(dataBytes));
    text("RIFF");
    put(known ? 20 + formatBytes + dataBytes + (dataBytes & 1) : 0xFFFFFFFF, 4);
    text("WAVE");
    text("fmt ");
    put(formatBytes, 4);
    put(extensible ? kExtensible : header.format, 2);
    put(header.channels, 2);
    put(header.sampleRate, 4);
    put(std::uint64_t{header.sampleRate} * header.bytesPerFrame, 4);
    put(header.bytesPerFrame, 2);
    put(header.bits, 2);
    if (extensible) {
        put(22, 2);
        put(header.bits, 2);
        put(header.mask, 4);
        put(header.format, 2);
        for (const unsigned char byte : kSubFormat) out.push_back(byte);
    }
    text("data");
    put(known ? dataBytes : 0xFFFFFFFF, 4);
    return out;
}

}  // namespace quillhost
