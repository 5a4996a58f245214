// SPDX-License-Identifier: ISC
// A sound file at the sampling rate that it is asked for.
#pragma once

#include <memory>

#include "sound_file.h"

namespace quillhost {

class RateConverter;

/// Reads as SoundReader does. Another rate is converted to by the SoX resampler at its highest
/// quality (linear phase, flat to 0.91 of half the lower rate, errors below -100 dB), without
/// latency.
class SoundSource {
public:
    /// `sampleRate` 0: that of the file.
    SoundSource(const std::string& path, int sampleRate);
    ~SoundSource();

    const SoundReader& file() const noexcept { return reader_; }
    int sampleRate() const noexcept { return sampleRate_; }
    /// As those of the file, in frames of this rate.
    std::int64_t frames() const noexcept { return converted(reader_.frames()); }
    std::int64_t estimatedFrames() const noexcept { return converted(reader_.estimatedFrames()); }
    /// Fewer than `frames` only at the end.
    template <typename T> int read(Planes<T>& planes, int frames);

private:
    std::int64_t converted(std::int64_t frames) const noexcept;

    SoundReader reader_;
    int sampleRate_;
    std::unique_ptr<RateConverter> converter_;
};

}  // namespace quillhost
