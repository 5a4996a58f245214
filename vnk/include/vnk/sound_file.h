// SPDX-License-Identifier: ISC
// Whole sound files in memory, read and written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "vnk/export.h"

namespace VNK {

/// A decoded sound, one vector of samples per channel, full scale at 1.
template <typename T> struct Sound {
    double sampleRate = 0;  // Hz
    std::vector<std::vector<T>> channels;
    /// As the file tells; more than frames() where it was longer than the limits.
    std::int64_t framesInFile = 0;

    std::int64_t frames() const noexcept
    {
        return channels.empty() ? 0 : static_cast<std::int64_t>(channels.front().size());
    }
    bool isCut() const noexcept { return framesInFile > frames(); }
};

/// What is read at most; the rest of a longer file is left out. Memory is taken for what has been
/// decoded, never for what a header promises.
struct SoundLimits {
    double seconds = 60;
    std::size_t bytes = 256u << 20;  // decoded, in single precision
    int channels = 16;
    double lowestRate = 1000, highestRate = 768000;  // Hz
};

/// Asked now and then while a file is read, which is given up once it says true.
using IsCancelled = std::function<bool()>;

/// A regular file of any kind that libsndfile decodes, save for MPEG audio, whose encoders' delay
/// nobody takes out. False with one line of reason where it cannot be had whole up to the limits:
/// it is missing, of another kind, empty, damaged, breaks off, has samples that are no numbers, or
/// too many channels. `sound` then stays as it was. [any thread but audio]
template <typename T>
VNK_API bool readSoundFile(const char* path, const SoundLimits& limits, Sound<T>& sound,
                           std::string& reason, const IsCancelled& isCancelled = {});
/// The same for a file's content.
template <typename T>
VNK_API bool readSoundData(const void* data, std::size_t bytes, const SoundLimits& limits,
                           Sound<T>& sound, std::string& reason,
                           const IsCancelled& isCancelled = {});

enum class SoundKind { Wav24, WavFloat, Flac24 };

/// The content of a file of this kind, for VNK::writeFile. 24-bit kinds hold multiples of 2^-23
/// from -1 up to below 1, which come back as they were; other samples are rounded and limited.
/// False with a reason where the kind cannot hold the channels (FLAC: 8) or the rate.
template <typename T>
VNK_API bool encodeSound(const Sound<T>& sound, SoundKind kind, std::string& content,
                         std::string& reason);

}  // namespace VNK
