// SPDX-License-Identifier: ISC
#include "sound_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "chunk_sizes.h"
#include "error.h"
#include "text.h"

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

/// Whether libsndfile knows the length: else it gives the largest number there is, or or less than
/// 0.
bool isLength(sf_count_t frames)
{
    return frames >= 0 && frames < SF_COUNT_MAX / 2;
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

template <typename T>
void deinterleave(const T* in, Planes<T>& out, const VorbisOrder* order, int channels, int frames)
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
            T* plane = out[order ? order->channel[static_cast<std::size_t>(c)] : c];
            for (int i = 0; i < frames; ++i) plane[i] = in[std::ptrdiff_t{i} * channels + c];
        }
    }
}

}  // namespace

std::string shownPath(const std::string& path)
{
    return path == "-" ? "standard input" : path;
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
    try {
        struct stat s = {};
        fd_ = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0 || fstat(fd_, &s) != 0)
            refuse(std::string("cannot be read: ") + std::strerror(errno));
        if (S_ISDIR(s.st_mode)) refuse("is a folder");
        if (path == "-" || S_ISFIFO(s.st_mode))
            openStream();
        else if (S_ISREG(s.st_mode))
            openFile();
        else
            refuse("is neither a regular file nor a pipe");
        checkShape();
    } catch (...) {
        closeAll();
        throw;
    }
}

SoundReader::~SoundReader()
{
    closeAll();
}

void SoundReader::closeAll() noexcept
{
    if (file_) sf_close(file_);
    if (fd_ >= 0) close(fd_);
}

void SoundReader::refuse(const std::string& reason) const
{
    throw WorkError(shownPath(path_) + ": " + reason);
}

void SoundReader::openStream()
{
    struct stat s = {};
    const bool regular = fstat(fd_, &s) == 0 && S_ISREG(s.st_mode);
    std::int64_t known = -1;
    if (regular) known = s.st_size - std::max<off_t>(0, lseek(fd_, 0, SEEK_CUR));
    std::string reason;
    const auto read = [this](void* data, std::size_t n) { return readAll(fd_, data, n); };
    if (!readWaveHeader(read, known, header_, reason)) refuse(reason);
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
        refuse("samples of this kind cannot be read (PCM of 8 to 32 bits or floats)");
    channels_ = header_.channels;
    sampleRate_ = static_cast<int>(std::min<std::uint32_t>(header_.sampleRate, 1u << 30));
    frames_ = header_.frames();
    mask_ = header_.mask;
}

void SoundReader::openFile()
{
    struct stat s = {};
    fstat(fd_, &s);
    unsigned char start[12] = {};
    std::string reason = s.st_size == 0 ? "the file is empty" : cutShort(fd_, s.st_size);
    const bool hasWaveStart = readAll(fd_, start, sizeof start) == sizeof start && isWave(start);
    if (hasWaveStart) {
        lseek(fd_, 0, SEEK_SET);
        const auto read = [this](void* data, std::size_t n) { return readAll(fd_, data, n); };
        readWaveHeader(read, s.st_size, header_, reason);
    }
    if (!reason.empty()) refuse(reason);

    SF_INFO info = {};
    file_ = sf_open(path_.c_str(), SFM_READ, &info);
    // An Ogg file that breaks off may look like no sound at all.
    const bool isOgg = file_ ? (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG
                             : std::memcmp(start, "OggS", 4) == 0;
    const bool isMpeg = file_ && (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
    std::string why = file_ ? "" : sf_strerror(nullptr);
    if (file_ && !isLength(info.frames)) info.frames = -1;
    frames_ = info.frames;
    if (isOgg || isMpeg) {
        estimate_ = std::exchange(frames_, -1);
        coded_ = std::make_unique<CodedFile>(fd_, s.st_size, isOgg);
        if (!coded_->fault().empty()) refuse(coded_->fault());
        remarks_ = coded_->remarks();
        if (file_) sf_close(std::exchange(file_, nullptr));
        info = {};
        file_ = coded_->open(info);
        if (!file_) why = sf_strerror(nullptr);
        if (isOgg && info.channels > 2) order_ = vorbisOrder(info.channels);
    }
    if (!file_) {
        while (!why.empty() && (why.back() == '\n' || why.back() == '.')) why.pop_back();
        refuse("is not a sound file that can be read (" + why + ")");
    }
    channels_ = info.channels;
    sampleRate_ = info.samplerate;
    format_ = formatOf(info.format);
    mask_ = hasWaveStart ? header_.mask : order_ ? order_->mask : maskOf(file_, channels_);
}

void SoundReader::checkShape() const
{
    if (channels_ < 1 || channels_ > kMostChannels)
        refuse("has " + std::to_string(channels_) + " channels (1 to 16 can be processed)");
    if (sampleRate_ < kLowestRate || sampleRate_ > kHighestRate)
        refuse("has a sampling rate of " + std::to_string(sampleRate_) +
               " Hz (8000 to 384000 can be processed)");
    if (frames_ == 0) refuse("holds no audio");
}

/// After a read that gave less than was asked for: whether that is the end of the sound.
void SoundReader::checkEnd(bool isOver)
{
    if (!isOver || isEnded_) return;
    isEnded_ = true;
    if (frames_ >= 0 && done_ < frames_)
        refuse("is cut short: " + std::to_string(frames_) + " frames announced, " +
               std::to_string(done_) + " there");
    if (file_ && frames_ < 0 && sf_error(file_) != SF_ERR_NO_ERROR)
        refuse("breaks off or is damaged after frame " + std::to_string(done_));
    if (done_ == 0) refuse("holds no audio");
    constexpr double kRemarkable = 0.1;  // seconds
    if (estimate_ >= 0 &&
        std::abs(static_cast<double>(estimate_ - done_)) > kRemarkable * sampleRate_)
        remarks_.push_back("announces " + fixedText(double(estimate_) / sampleRate_, 2) +
                           " s and holds " + fixedText(double(done_) / sampleRate_, 2) + " s");
}

template <typename T> int SoundReader::readStream(T* samples, int frames)
{
    const std::int64_t left =
        frames_ < 0 ? frames : std::min<std::int64_t>(frames, frames_ - done_);
    bytes_.resize(static_cast<std::size_t>(left) * header_.bytesPerFrame);
    const auto got = readAll(fd_, bytes_.data(), bytes_.size()) / header_.bytesPerFrame;
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
    case SampleFormat::Coded:  // never in a stream
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

template <typename T> int SoundReader::readFinite(std::vector<T>& buffer, int frames)
{
    const auto wanted = static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels_);
    if (buffer.size() < wanted)
        needingMemory(std::to_string(frames) + " frames of " + shownPath(path_),
                      [&] { buffer.resize(wanted); });
    const int n = needingMemory(std::to_string(frames) + " frames of " + shownPath(path_),
                                [&] { return readRaw(buffer.data(), frames); });
    refuseInfinite(buffer, n, "holds a sample that is no finite number");
    return n;
}

template <typename T>
void SoundReader::refuseInfinite(const std::vector<T>& samples, int frames, const char* what,
                                 const char* hint) const
{
    const auto count = static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels_);
    if (allFinite(samples.data(), count)) return;
    const auto bad =
        std::find_if(samples.data(), samples.data() + count, [](T x) { return !std::isfinite(x); });
    refuse(what + (" (frame " + std::to_string(done_ + (bad - samples.data()) / channels_)) + hint +
           ")");
}

template <typename T> int SoundReader::read(Planes<T>& planes, int frames)
{
    int n = 0;
    if constexpr (std::is_same_v<T, double>) {
        n = readFinite(doubles_, frames);
        deinterleave(doubles_.data(), planes, order_, channels_, n);
    } else if (format_ == SampleFormat::Float64) {
        n = readFinite(doubles_, frames);
        const auto count = static_cast<std::size_t>(n) * static_cast<std::size_t>(channels_);
        floats_.resize(count);
        std::transform(doubles_.data(), doubles_.data() + count, floats_.data(),
                       [](double x) { return static_cast<float>(x); });
        refuseInfinite(floats_, n, "holds a sample that is too large for 32 bits",
                       "; --precision 64 takes it");
        deinterleave(floats_.data(), planes, order_, channels_, n);
    } else {
        n = readFinite(floats_, frames);
        deinterleave(floats_.data(), planes, order_, channels_, n);
    }
    done_ += n;
    checkEnd(n < frames);
    return n;
}

template int SoundReader::read(Planes<float>&, int);
template int SoundReader::read(Planes<double>&, int);

}  // namespace quillhost
