// SPDX-License-Identifier: ISC
#include "vnk/sound_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>

#include <sndfile.h>

#include "one_line.h"

namespace VNK {
namespace {

using Handle = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

constexpr sf_count_t kFramesAtOnce = 4096;

/// A file in memory, as libsndfile reads and writes it.
struct Memory {
    const char* data = nullptr;  // when it is read
    std::string* out = nullptr;  // when it is written
    sf_count_t size = 0, at = 0;

    static Memory& of(void* self) { return *static_cast<Memory*>(self); }
    static sf_count_t length(void* self) { return of(self).size; }
    static sf_count_t tell(void* self) { return of(self).at; }
    static sf_count_t seek(sf_count_t offset, int whence, void* self)
    {
        auto& m = of(self);
        const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? m.at : m.size;
        if (offset < -from) return -1;
        return m.at = from + offset;
    }
    static sf_count_t read(void* target, sf_count_t count, void* self)
    {
        auto& m = of(self);
        count = std::clamp<sf_count_t>(m.size - m.at, 0, count);
        std::memcpy(target, m.data + m.at, static_cast<std::size_t>(count));
        m.at += count;
        return count;
    }
    static sf_count_t write(const void* source, sf_count_t count, void* self)
    {
        auto& m = of(self);
        try {
            m.size = std::max(m.size, m.at + count);
            m.out->resize(static_cast<std::size_t>(m.size));
            std::memcpy(m.out->data() + m.at, source, static_cast<std::size_t>(count));
        } catch (...) {
            return 0;
        }
        m.at += count;
        return count;
    }
};

SF_VIRTUAL_IO memoryAccess()
{
    return {Memory::length, Memory::seek, Memory::read, Memory::write, Memory::tell};
}

/// What the library says of a file, or of the last one that it did not open.
std::string complaint(SNDFILE* file)
{
    return "it cannot be decoded: " + oneLine(sf_strerror(file));
}

sf_count_t readFrames(SNDFILE* file, float* to, sf_count_t n)
{
    return sf_readf_float(file, to, n);
}
sf_count_t readFrames(SNDFILE* file, double* to, sf_count_t n)
{
    return sf_readf_double(file, to, n);
}

template <typename T>
bool decode(SNDFILE* file, const SF_INFO& info, const SoundLimits& limits, Sound<T>& sound,
            std::string& reason, const IsCancelled& isCancelled)
{
    if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG)
        return reason = "it is MPEG audio, which is not read", false;
    if (info.channels < 1 || info.channels > limits.channels)
        return reason = "it has " + std::to_string(info.channels) + " channels (1 to " +
                        std::to_string(limits.channels) + " are read)",
               false;
    if (info.samplerate < limits.lowestRate || info.samplerate > limits.highestRate)
        return reason = "its sampling rate is " + std::to_string(info.samplerate) + " Hz", false;
    if (info.frames <= 0) return reason = "it holds no sound", false;
    const auto channels = static_cast<std::size_t>(info.channels);
    const auto most = std::min(std::floor(limits.seconds * info.samplerate),
                               static_cast<double>(limits.bytes / (channels * sizeof(float))));
    const auto wanted = std::min(info.frames, static_cast<sf_count_t>(most));

    Sound<T> read;
    read.sampleRate = info.samplerate;
    read.framesInFile = info.frames;
    read.channels.resize(channels);
    std::vector<T> frames(channels * static_cast<std::size_t>(kFramesAtOnce));
    for (sf_count_t done = 0; done < wanted;) {
        if (isCancelled && isCancelled()) return reason = "it was given up", false;
        const auto n = readFrames(file, frames.data(), std::min(wanted - done, kFramesAtOnce));
        if (sf_error(file) != SF_ERR_NO_ERROR) return reason = complaint(file), false;
        if (n <= 0)
            return reason = "it breaks off after " + std::to_string(done) + " of " +
                            std::to_string(info.frames) + " frames",
                   false;
        done += n;
        for (std::size_t c = 0; c < channels; ++c)
            for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
                const T x = frames[i * channels + c];
                if (!std::isfinite(x))
                    return reason = "it holds samples that are no numbers", false;
                read.channels[c].push_back(x);
            }
    }
    sound = std::move(read);
    return true;
}

template <class Open> bool safely(std::string& reason, Open&& open)
{
    try {
        return open();
    } catch (const std::bad_alloc&) {
        return reason = "there is not enough memory for it", false;
    }
}

int formatOf(SoundKind kind)
{
    switch (kind) {
    case SoundKind::Wav24:
        return SF_FORMAT_WAVEX | SF_FORMAT_PCM_24;
    case SoundKind::WavFloat:
        return SF_FORMAT_WAVEX | SF_FORMAT_FLOAT;
    case SoundKind::Flac24:
        break;
    }
    return SF_FORMAT_FLAC | SF_FORMAT_PCM_24;
}

/// The value as 24 bits at the top of 32. The library would scale by one step less than reading
/// does.
template <typename T> int as24Bits(T x)
{
    constexpr double kSteps = 1 << 23;
    if (!std::isfinite(x)) return 0;
    return static_cast<int>(std::clamp(std::nearbyint(double(x) * kSteps), -kSteps, kSteps - 1)) *
           256;
}

}  // namespace

template <typename T>
bool readSoundFile(const char* path, const SoundLimits& limits, Sound<T>& sound,
                   std::string& reason, const IsCancelled& isCancelled)
{
    return safely(reason, [&] {
        std::error_code error;
        const auto status = std::filesystem::status(path ? path : "", error);
        if (!std::filesystem::exists(status)) return reason = "there is no such file", false;
        if (!std::filesystem::is_regular_file(status)) return reason = "it is not a file", false;
        SF_INFO info{};
        const Handle file(sf_open(path, SFM_READ, &info), sf_close);
        if (!file) return reason = complaint(nullptr), false;
        return decode(file.get(), info, limits, sound, reason, isCancelled);
    });
}
template bool readSoundFile(const char*, const SoundLimits&, Sound<float>&, std::string&,
                            const IsCancelled&);
template bool readSoundFile(const char*, const SoundLimits&, Sound<double>&, std::string&,
                            const IsCancelled&);

template <typename T>
bool readSoundData(const void* data, std::size_t bytes, const SoundLimits& limits, Sound<T>& sound,
                   std::string& reason, const IsCancelled& isCancelled)
{
    return safely(reason, [&] {
        if (!data || bytes == 0) return reason = "it is empty", false;
        auto access = memoryAccess();
        Memory memory;
        memory.data = static_cast<const char*>(data);
        memory.size = static_cast<sf_count_t>(bytes);
        SF_INFO info{};
        const Handle file(sf_open_virtual(&access, SFM_READ, &info, &memory), sf_close);
        if (!file) return reason = complaint(nullptr), false;
        return decode(file.get(), info, limits, sound, reason, isCancelled);
    });
}
template bool readSoundData(const void*, std::size_t, const SoundLimits&, Sound<float>&,
                            std::string&, const IsCancelled&);
template bool readSoundData(const void*, std::size_t, const SoundLimits&, Sound<double>&,
                            std::string&, const IsCancelled&);

template <typename T>
bool encodeSound(const Sound<T>& sound, SoundKind kind, std::string& content, std::string& reason)
{
    return safely(reason, [&] {
        SF_INFO info{};
        info.channels = static_cast<int>(sound.channels.size());
        info.samplerate = static_cast<int>(std::lround(sound.sampleRate));
        info.format = formatOf(kind);
        constexpr int kMostInFlac = 8;
        if (info.channels < 1 || (kind == SoundKind::Flac24 && info.channels > kMostInFlac) ||
            sf_format_check(&info) == 0)
            return reason = "a file of this kind does not hold " + std::to_string(info.channels) +
                            " channels at " + std::to_string(info.samplerate) + " Hz",
                   false;
        std::string written;
        auto access = memoryAccess();
        Memory memory;
        memory.out = &written;
        Handle file(sf_open_virtual(&access, SFM_WRITE, &info, &memory), sf_close);
        if (!file) return reason = oneLine(sf_strerror(nullptr)), false;
        // It holds the time of day, and equal sounds shall make equal files.
        sf_command(file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
        const auto channels = sound.channels.size();
        const auto frames = static_cast<std::size_t>(sound.frames());
        std::vector<int> whole(channels * static_cast<std::size_t>(kFramesAtOnce));
        std::vector<float> plain(whole.size());
        for (std::size_t at = 0; at < frames; at += static_cast<std::size_t>(kFramesAtOnce)) {
            const auto n = std::min(frames - at, static_cast<std::size_t>(kFramesAtOnce));
            for (std::size_t c = 0; c < channels; ++c)
                for (std::size_t i = 0; i < n; ++i) {
                    const T x = sound.channels[c][at + i];
                    whole[i * channels + c] = kind == SoundKind::WavFloat ? 0 : as24Bits(x);
                    plain[i * channels + c] = static_cast<float>(x);
                }
            const auto count = static_cast<sf_count_t>(n);
            const auto done = kind == SoundKind::WavFloat
                                  ? sf_writef_float(file.get(), plain.data(), count)
                                  : sf_writef_int(file.get(), whole.data(), count);
            if (done != count) return reason = oneLine(sf_strerror(file.get())), false;
        }
        if (sf_close(file.release()) != 0) return reason = "it cannot be completed", false;
        content = std::move(written);
        return true;
    });
}
template bool encodeSound(const Sound<float>&, SoundKind, std::string&, std::string&);
template bool encodeSound(const Sound<double>&, SoundKind, std::string&, std::string&);

}  // namespace VNK
