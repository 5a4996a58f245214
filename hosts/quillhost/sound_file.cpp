// SPDX-License-Identifier: ISC
#include "sound_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"

namespace quillhost {
namespace {

/// Reads until `bytes` are there or the stream ends.
std::size_t readAll(int fd, void* data, std::size_t bytes)
{
    std::size_t got = 0;
    while (got < bytes) {
        const auto n = ::read(fd, static_cast<char*>(data) + got, bytes - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    return got;
}

SampleFormat formatOf(int sndfileFormat)
{
    switch (sndfileFormat & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return SampleFormat::Pcm8;
    case SF_FORMAT_PCM_24:
        return SampleFormat::Pcm24;
    case SF_FORMAT_PCM_32:
        return SampleFormat::Pcm32;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III:
        return SampleFormat::Float32;
    case SF_FORMAT_DOUBLE:
        return SampleFormat::Float64;
    default:  // telephone and other companded formats span 16 bits at most
        return SampleFormat::Pcm16;
    }
}

/// Mask bits in the order of libsndfile's channel map values, for files that name places without a
/// WAVE mask.
std::uint32_t maskOf(SNDFILE* file, int channels)
{
    struct Place {
        int map;
        int bit;
    };
    constexpr Place kPlaces[] = {
        {SF_CHANNEL_MAP_LEFT, 0},
        {SF_CHANNEL_MAP_FRONT_LEFT, 0},
        {SF_CHANNEL_MAP_RIGHT, 1},
        {SF_CHANNEL_MAP_FRONT_RIGHT, 1},
        {SF_CHANNEL_MAP_CENTER, 2},
        {SF_CHANNEL_MAP_FRONT_CENTER, 2},
        {SF_CHANNEL_MAP_LFE, 3},
        {SF_CHANNEL_MAP_REAR_LEFT, 4},
        {SF_CHANNEL_MAP_REAR_RIGHT, 5},
        {SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER, 6},
        {SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER, 7},
        {SF_CHANNEL_MAP_REAR_CENTER, 8},
        {SF_CHANNEL_MAP_SIDE_LEFT, 9},
        {SF_CHANNEL_MAP_SIDE_RIGHT, 10},
        {SF_CHANNEL_MAP_TOP_CENTER, 11},
        {SF_CHANNEL_MAP_TOP_FRONT_LEFT, 12},
        {SF_CHANNEL_MAP_TOP_FRONT_CENTER, 13},
        {SF_CHANNEL_MAP_TOP_FRONT_RIGHT, 14},
        {SF_CHANNEL_MAP_TOP_REAR_LEFT, 15},
        {SF_CHANNEL_MAP_TOP_REAR_CENTER, 16},
        {SF_CHANNEL_MAP_TOP_REAR_RIGHT, 17},
    };
    std::vector<int> map(static_cast<std::size_t>(channels));
    if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(),
                   static_cast<int>(map.size() * sizeof(int))) != SF_TRUE)
        return 0;
    std::uint32_t mask = 0;
    for (const int value : map) {
        const auto place = std::find_if(std::begin(kPlaces), std::end(kPlaces),
                                        [&](const Place& p) { return p.map == value; });
        // Out of order it is no mask: the channels then have no places that we could name.
        if (place == std::end(kPlaces) || mask >> place->bit) return 0;
        mask |= 1u << place->bit;
    }
    return mask;
}

/// Whether all samples are finite: x - x is 0 exactly then, else a NaN, which stays in the sum.
template <typename T> bool allFinite(const T* samples, std::size_t n)
{
    T sums[8] = {};
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8)
        for (std::size_t k = 0; k < 8; ++k) sums[k] += samples[i + k] - samples[i + k];
    for (; i < n; ++i) sums[0] += samples[i] - samples[i];
    return std::all_of(std::begin(sums), std::end(sums), [](T s) { return s == 0; });
}

template <typename T> void deinterleave(const T* in, Planes<T>& out, int channels, int frames)
{
    if (channels == 1) {
        std::copy_n(in, frames, out[0]);
    } else if (channels == 2) {
        T *left = out[0], *right = out[1];
        for (int i = 0; i < frames; ++i) {
            left[i] = in[2 * i];
            right[i] = in[2 * i + 1];
        }
    } else {
        for (int c = 0; c < channels; ++c) {
            T* plane = out[c];
            for (int i = 0; i < frames; ++i) plane[i] = in[std::ptrdiff_t{i} * channels + c];
        }
    }
}

}  // namespace

std::string shownPath(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

std::uint32_t waveMask(const VNK::SpeakerArrangement& layout)
{
    using VNK::Speaker;
    struct Place {
        Speaker speaker;
        int bit;
    };
    constexpr Place kPlaces[] = {
        {Speaker::L, 0},    {Speaker::R, 1},    {Speaker::C, 2},    {Speaker::LFE, 3},
        {Speaker::Lrs, 4},  {Speaker::Rrs, 5},  {Speaker::Lc, 6},   {Speaker::Rc, 7},
        {Speaker::Cs, 8},   {Speaker::Ls, 9},   {Speaker::Rs, 10},  {Speaker::Ltf, 12},
        {Speaker::Rtf, 14}, {Speaker::Ltr, 15}, {Speaker::Rtr, 17},
    };
    if (layout == VNK::SpeakerArrangement::withChannels(layout.channels)) return 0;
    std::uint32_t mask = 0;
    for (const auto& place : kPlaces)
        if (layout.find(place.speaker) >= 0) mask |= 1u << place.bit;
    // One pair of surrounds goes by the name of back speakers in most files.
    constexpr std::uint32_t backs = 3u << 4, sides = 3u << 9;
    if (!(mask & backs) && (mask & sides) == sides) mask ^= backs | sides;
    return VNK::SpeakerArrangement::fromWaveMask(mask, layout.channels) == layout ? mask : 0;
}

FileIdentity FileIdentity::of(const std::string& path)
{
    struct stat s = {};
    const int failed = path == "-" ? fstat(STDIN_FILENO, &s) : stat(path.c_str(), &s);
    if (failed || !S_ISREG(s.st_mode)) return {};
    return {static_cast<std::uint64_t>(s.st_dev), static_cast<std::uint64_t>(s.st_ino), true};
}

SoundReader::SoundReader(const std::string& path) : path_(path)
{
    path == "-" ? openStream() : openFile();
    try {
        checkShape();
    } catch (...) {
        if (file_) sf_close(file_);
        throw;
    }
}

SoundReader::~SoundReader()
{
    if (file_) sf_close(file_);
}

void SoundReader::openStream()
{
    struct stat s = {};
    const bool regular = fstat(STDIN_FILENO, &s) == 0 && S_ISREG(s.st_mode);
    std::int64_t known = -1;
    if (regular) known = s.st_size - std::max<off_t>(0, lseek(STDIN_FILENO, 0, SEEK_CUR));
    std::string reason;
    const auto read = [](void* data, std::size_t n) { return readAll(STDIN_FILENO, data, n); };
    if (!readWaveHeader(read, known, header_, reason)) throw WorkError("standard input: " + reason);
    const bool isPcm = header_.format == WaveHeader::kPcm;
    const bool isFloat = header_.format == WaveHeader::kFloat;
    const int bits = 8 * header_.bytesPerFrame / header_.channels;
    if (isPcm && bits == 8)
        format_ = SampleFormat::Pcm8;
    else if (isPcm && bits == 16)
        format_ = SampleFormat::Pcm16;
    else if (isPcm && bits == 24)
        format_ = SampleFormat::Pcm24;
    else if (isPcm && bits == 32)
        format_ = SampleFormat::Pcm32;
    else if (isFloat && bits == 32)
        format_ = SampleFormat::Float32;
    else if (isFloat && bits == 64)
        format_ = SampleFormat::Float64;
    else
        throw WorkError("standard input: samples of this kind cannot be read (PCM of 8 to 32 bits "
                        "or floats)");
    channels_ = header_.channels;
    sampleRate_ = static_cast<int>(std::min<std::uint32_t>(header_.sampleRate, 1u << 30));
    frames_ = header_.frames();
    mask_ = header_.mask;
}

void SoundReader::openFile()
{
    const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw WorkError(path_ + ": cannot be read: " + std::strerror(errno));
    struct stat s = {};
    fstat(fd, &s);
    if (S_ISDIR(s.st_mode) || !S_ISREG(s.st_mode)) {
        close(fd);
        throw WorkError(path_ + (S_ISDIR(s.st_mode) ? ": is a folder" : ": is not a regular file"));
    }
    unsigned char start[12] = {};
    std::string reason = s.st_size == 0 ? "the file is empty" : "";
    const bool hasWaveStart = readAll(fd, start, sizeof start) == sizeof start && isWave(start);
    if (hasWaveStart) {
        lseek(fd, 0, SEEK_SET);
        const auto read = [fd](void* data, std::size_t n) { return readAll(fd, data, n); };
        readWaveHeader(read, s.st_size, header_, reason);
    }
    close(fd);
    if (!reason.empty()) throw WorkError(path_ + ": " + reason);

    SF_INFO info = {};
    file_ = sf_open(path_.c_str(), SFM_READ, &info);
    if (!file_) {
        std::string why = sf_strerror(nullptr);
        while (!why.empty() && (why.back() == '\n' || why.back() == '.')) why.pop_back();
        throw WorkError(path_ + ": is not a sound file that can be read (" + why + ")");
    }
    channels_ = info.channels;
    sampleRate_ = info.samplerate;
    frames_ = info.frames;
    format_ = formatOf(info.format);
    mask_ = hasWaveStart ? header_.mask : maskOf(file_, channels_);
}

void SoundReader::checkShape() const
{
    const auto name = shownPath(path_);
    if (channels_ < 1 || channels_ > kMostChannels)
        throw WorkError(name + ": has " + std::to_string(channels_) +
                        " channels (1 to 16 can be processed)");
    if (sampleRate_ < kLowestRate || sampleRate_ > kHighestRate)
        throw WorkError(name + ": has a sampling rate of " + std::to_string(sampleRate_) +
                        " Hz (8000 to 384000 can be processed)");
    if (frames_ == 0) throw WorkError(name + ": holds no audio");
}

template <typename T> int SoundReader::readStream(T* samples, int frames)
{
    const std::int64_t left =
        frames_ < 0 ? frames : std::min<std::int64_t>(frames, frames_ - done_);
    bytes_.resize(static_cast<std::size_t>(left) * header_.bytesPerFrame);
    const auto got = readAll(STDIN_FILENO, bytes_.data(), bytes_.size()) / header_.bytesPerFrame;
    const std::size_t n = got * static_cast<std::size_t>(channels_);
    const unsigned char* p = bytes_.data();
    const auto take = [&]<typename S>(S) {
        for (std::size_t i = 0; i < n; ++i) {
            S value;
            std::memcpy(&value, p + i * sizeof(S), sizeof(S));
            samples[i] = static_cast<T>(value);
        }
    };
    switch (format_) {
    case SampleFormat::Pcm8:
        for (std::size_t i = 0; i < n; ++i) samples[i] = static_cast<T>(p[i] - 128) / T(128);
        break;
    case SampleFormat::Pcm16:
        take(std::int16_t{});
        for (std::size_t i = 0; i < n; ++i) samples[i] *= T(1) / 32768;
        break;
    case SampleFormat::Pcm24:
        for (std::size_t i = 0; i < n; ++i) {
            const auto word = std::uint32_t{p[3 * i]} << 8 | std::uint32_t{p[3 * i + 1]} << 16 |
                              std::uint32_t{p[3 * i + 2]} << 24;
            samples[i] = static_cast<T>(static_cast<std::int32_t>(word)) * T(0x1p-31);
        }
        break;
    case SampleFormat::Pcm32:
        take(std::int32_t{});
        for (std::size_t i = 0; i < n; ++i) samples[i] *= T(0x1p-31);
        break;
    case SampleFormat::Float32:
        take(float{});
        break;
    case SampleFormat::Float64:
        take(double{});
        break;
    }
    return static_cast<int>(got);
}

int SoundReader::readRaw(float* samples, int frames)
{
    return file_ ? static_cast<int>(sf_readf_float(file_, samples, frames))
                 : readStream(samples, frames);
}
int SoundReader::readRaw(double* samples, int frames)
{
    return file_ ? static_cast<int>(sf_readf_double(file_, samples, frames))
                 : readStream(samples, frames);
}

template <typename T> int SoundReader::read(Planes<T>& planes, int frames)
{
    auto& buffer = [this]() -> std::vector<T>& {
        if constexpr (std::is_same_v<T, float>)
            return floats_;
        else
            return doubles_;
    }();
    const auto wanted = static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels_);
    if (buffer.size() < wanted) buffer.resize(wanted);
    const int n = readRaw(buffer.data(), frames);
    const auto samples = static_cast<std::size_t>(n) * static_cast<std::size_t>(channels_);
    if (!allFinite(buffer.data(), samples)) {
        const auto bad = std::find_if(buffer.data(), buffer.data() + samples,
                                      [](T x) { return !std::isfinite(x); });
        throw WorkError(shownPath(path_) + ": holds a sample that is no finite number (frame " +
                        std::to_string(done_ + (bad - buffer.data()) / channels_) + ")");
    }
    deinterleave(buffer.data(), planes, channels_, n);
    done_ += n;
    if (n < frames && frames_ >= 0 && done_ < frames_)
        throw WorkError(shownPath(path_) + ": is cut short: " + std::to_string(frames_) +
                        " frames announced, " + std::to_string(done_) + " there");
    if (n < frames && done_ == 0) throw WorkError(shownPath(path_) + ": holds no audio");
    return n;
}

template int SoundReader::read(Planes<float>&, int);
template int SoundReader::read(Planes<double>&, int);

}  // namespace quillhost
