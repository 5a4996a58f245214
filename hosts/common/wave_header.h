// SPDX-License-Identifier: ISC
// The header of a WAVE file: read strictly where a stream or a cut file needs it, written for
// streams.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quillhost {

struct WaveHeader {
    static constexpr std::uint16_t kPcm = 1, kFloat = 3;

    std::uint16_t format = 0;  // kPcm, kFloat or another tag; that inside where extensible
    std::uint16_t channels = 0;
    std::uint32_t sampleRate = 0;
    std::uint16_t bytesPerFrame = 0;
    std::uint16_t bits = 0;
    std::uint32_t mask = 0;        // 0: none
    std::int64_t maskOffset = -1;  // where the mask stands in the file, -1: nowhere
    std::int64_t peakOffset = -1;  // of a PEAK chunk's content, -1: none
    std::int64_t dataBytes = -1;   // -1: not known when the header was written
    std::int64_t dataOffset = 0;   // of the first sample

    std::int64_t frames() const noexcept { return dataBytes < 0 ? -1 : dataBytes / bytesPerFrame; }
};

/// Gives up to `bytes` bytes, fewer only at the end of the file.
using ReadBytes = std::function<std::size_t(void* data, std::size_t bytes)>;

/// Whether 12 bytes begin a RIFF or RF64 file of type WAVE.
bool isWave(const unsigned char (&start)[12]) noexcept;

/// Reads up to the first sample. False with a reason otherwise; no memory depends on what the
/// header says. `knownBytes` is the length of the file, or -1: a data chunk that ends beyond it
/// is refused, save where a program has written a mark for "until the end" (isUnknownSize, or 0 in
/// a pipe).
bool readWaveHeader(const ReadBytes& read, std::int64_t knownBytes, WaveHeader& header,
                    std::string& reason);

/// Header of a stream: extensible where a mask is given or there are more than two channels.
/// `frames` < 0 or too many for the 32-bit sizes gives the mark for "until the end".
std::vector<unsigned char> writeWaveHeader(const WaveHeader& header, std::int64_t frames);

}  // namespace quillhost
