// SPDX-License-Identifier: ISC
// Sound files out: the format by the name's extension, or WAV to a stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dither.h"
#include "output_file.h"
#include "sound_file.h"

namespace quillhost {

struct SoundShape {
    int channels = 0;
    int sampleRate = 0;
    std::uint32_t mask = 0;    // of a WAVE file, 0: none
    std::int64_t frames = -1;  // as far as known beforehand
};

/// Whether files of this name hold what a codec makes of the samples (Vorbis, Opus, MP3) and not
/// the samples. UsageError for an extension that is not known, with those that are.
bool isCoded(const std::string& path);
/// Whether files of this name can hold the format.
bool canHold(const std::string& path, const SoundShape& shape, SampleFormat format);

class SoundWriter {
public:
    /// Texts and chunks that describe `source` are taken over where the format has a place.
    SoundWriter(const std::string& path, const SoundShape& shape, SampleFormat format,
                Dither dither, const SoundReader* source = nullptr);
    ~SoundWriter();
    SoundWriter(const SoundWriter&) = delete;
    SoundWriter& operator=(const SoundWriter&) = delete;

    /// Frames from .. to of the planes. Integers are dithered, up to 24 bits, rounded and limited;
    /// a NaN becomes 0 there.
    template <typename T> void write(const Planes<T>& planes, int from, int to);
    /// Completes the file; WorkError when that fails.
    void finish();

    /// Samples that were beyond full scale of an integer format, and the largest magnitude among
    /// them.
    std::int64_t clipped() const noexcept { return clipped_; }
    double peak() const noexcept { return peak_; }

private:
    enum class Unit { Float, Double, Integer };  // of what lies in the buffer for libsndfile

    template <typename S, typename T> void writeFloats(const Planes<T>& planes, int from, int to);
    template <typename T> void writeIntegers(const Planes<T>& planes, int from, int to);
    template <typename T> void writeAs(const Planes<T>& planes, int from, int to);
    template <typename T> void countClipped(const T* samples, std::size_t n, double limit);
    void flush(std::int64_t frames, Unit unit);
    void openFile(int containerFormat, const SoundReader* source);
    void settleHeader();

    std::string path_;
    SoundShape shape_;
    SampleFormat format_;
    OutputFile output_;
    SNDFILE* file_ = nullptr;
    const VorbisOrder* order_ = nullptr;  // of the channels in the file, null: as they come
    bool isWave_ = false;
    std::int64_t clipped_ = 0, framesWritten_ = 0;
    double peak_ = 0;
    Ditherer ditherer_;
    std::vector<double> steps_;
    std::vector<std::int32_t> integers_;
    std::vector<unsigned char> buffer_;
};

}  // namespace quillhost
