// SPDX-License-Identifier: ISC
// Sound files in: any format of libsndfile, or WAV from standard input.
#pragma once

#include <cstdint>
#include <memory>
#include <sndfile.h>
#include <string>
#include <vector>

#include "channel_places.h"
#include "coded_file.h"
#include "error.h"
#include "vnk/speaker_arrangement.h"
#include "wave_header.h"

namespace quillhost {

inline constexpr int kMostChannels = 16;
inline constexpr int kLowestRate = 8000, kHighestRate = 384000;

/// How samples are written; the words of --format in this order, then what only IN can ask for, and
/// what a codec makes of them.
enum class SampleFormat { Pcm16, Pcm24, Pcm32, Float32, Float64, Pcm8, Coded };

/// Channels side by side in one memory block, `frames` long each.
template <typename T> class Planes {
public:
    Planes() = default;
    Planes(int channels, int frames)
        : stride_((static_cast<std::size_t>(frames) + 15) / 16 * 16 + 16),
          data_(needingMemory(
              "blocks of " + std::to_string(frames) + " frames in " + std::to_string(channels) +
                  " channels",
              [&] { return std::vector<T>(stride_ * static_cast<std::size_t>(channels)); })),
          channels_(channels),
          frames_(frames)
    {}
    T* operator[](int channel) noexcept { return data_.data() + stride_ * std::size_t(channel); }
    const T* operator[](int channel) const noexcept
    {
        return data_.data() + stride_ * std::size_t(channel);
    }
    int channels() const noexcept { return channels_; }
    int frames() const noexcept { return frames_; }
    void clear(int from, int to) noexcept
    {
        for (int c = 0; c < channels_; ++c) std::fill((*this)[c] + from, (*this)[c] + to, T{});
    }

private:
    std::size_t stride_ = 0;
    std::vector<T> data_;
    int channels_ = 0, frames_ = 0;
};

/// What two paths name the same file by.
struct FileIdentity {
    std::uint64_t device = 0, inode = 0;
    bool exists = false;
    bool sameAs(const FileIdentity& o) const noexcept
    {
        return exists && o.exists && device == o.device && inode == o.inode;
    }
    /// Of a path, or of standard input for "-".
    static FileIdentity of(const std::string& path);
};

class SoundReader {
public:
    /// "-" is a WAV from standard input; a named pipe is read like it. WorkError for what cannot be
    /// read, with 0 or more than 16 channels, at a rate outside 8 to 384 kHz, or that is shorter
    /// than its header says.
    explicit SoundReader(const std::string& path);
    ~SoundReader();
    SoundReader(const SoundReader&) = delete;
    SoundReader& operator=(const SoundReader&) = delete;

    const std::string& path() const noexcept { return path_; }
    int channels() const noexcept { return channels_; }
    int sampleRate() const noexcept { return sampleRate_; }
    /// -1: not known before the end, as in a stream, or in a file that only estimates it.
    std::int64_t frames() const noexcept { return frames_; }
    /// The same with the estimate, -1 without one.
    std::int64_t estimatedFrames() const noexcept { return frames_ < 0 ? estimate_ : frames_; }
    /// What a person should know of the file; complete when all of it has been read.
    const std::vector<std::string>& remarks() const noexcept { return remarks_; }
    bool isStream() const noexcept { return file_ == nullptr; }
    SampleFormat sampleFormat() const noexcept { return format_; }
    /// Channel mask of the file, 0 without one.
    std::uint32_t mask() const noexcept { return mask_; }
    VNK::SpeakerArrangement layout() const
    {
        return VNK::SpeakerArrangement::fromWaveMask(mask_, channels_);
    }
    /// The open file, for its metadata; null for a stream.
    SNDFILE* handle() const noexcept { return file_; }

    /// Reads up to `frames` frames to the start of the planes; fewer only at the end. WorkError for
    /// samples that are not finite and for a file that ends too early.
    template <typename T> int read(Planes<T>& planes, int frames);

private:
    void openStream();
    void openFile();
    void closeAll() noexcept;
    void checkShape() const;
    void checkEnd(bool isOver);
    template <typename T> int readFinite(std::vector<T>& buffer, int frames);
    template <typename T>
    void refuseInfinite(const std::vector<T>& samples, int frames, const char* what,
                        const char* hint = "") const;
    [[noreturn]] void refuse(const std::string& reason) const;
    int readRaw(float* samples, int frames);
    int readRaw(double* samples, int frames);
    template <typename T> int readStream(T* samples, int frames);

    std::string path_;
    int fd_ = -1;
    std::unique_ptr<CodedFile> coded_;
    SNDFILE* file_ = nullptr;
    WaveHeader header_;
    const VorbisOrder* order_ = nullptr;  // of the channels in the file, null: that of the mask
    int channels_ = 0, sampleRate_ = 0;
    std::int64_t frames_ = -1, estimate_ = -1, done_ = 0;
    bool isEnded_ = false;
    SampleFormat format_ = SampleFormat::Float32;
    std::uint32_t mask_ = 0;
    std::vector<std::string> remarks_;
    std::vector<float> floats_;
    std::vector<double> doubles_;
    std::vector<unsigned char> bytes_;
};

/// How a path is called in messages.
std::string shownPath(const std::string& path);

}  // namespace quillhost
