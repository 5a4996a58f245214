// SPDX-License-Identifier: ISC
#include "sound_writer.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "error.h"
#include "text.h"

namespace quillhost {
namespace {

static_assert(std::endian::native == std::endian::little, "samples are written as they lie");

// Beyond this a WAVE file's 32-bit sizes do not reach, with room for its other chunks.
constexpr std::int64_t kMostWaveBytes = 0xFFF00000;

int bitsOf(SampleFormat format)
{
    constexpr int kBits[] = {16, 24, 32, 32, 64, 8, 32};
    return kBits[static_cast<int>(format)];
}

bool isFloat(SampleFormat format)
{
    return format == SampleFormat::Float32 || format == SampleFormat::Float64;
}

std::string extensionOf(const std::string& path)
{
    const auto dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] != '.') return "";
    return folded(path.substr(dot + 1));
}

constexpr int kWave = 0;  // in the table: WAV, WAVEX or RF64 by what it has to hold

/// The kinds of file by extension.
struct Kind {
    const char* extension;
    int format;  // of libsndfile, with its encoding where that follows from the kind
};
constexpr Kind kKinds[] = {
    {"wav", kWave},
    {"wave", kWave},
    {"bwf", kWave},
    {"rf64", SF_FORMAT_RF64},
    {"w64", SF_FORMAT_W64},
    {"aiff", SF_FORMAT_AIFF},
    {"aif", SF_FORMAT_AIFF},
    {"aifc", SF_FORMAT_AIFF},
    {"caf", SF_FORMAT_CAF},
    {"au", SF_FORMAT_AU},
    {"snd", SF_FORMAT_AU},
    {"flac", SF_FORMAT_FLAC},
    {"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {"oga", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {"opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
    {"mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
};

/// UsageError for an extension that is not known. Streams and names without one are WAV.
const Kind& kindOf(const std::string& path)
{
    const auto extension = extensionOf(path);
    struct stat s = {};
    const bool isStream = path == "-" || (stat(path.c_str(), &s) == 0 && !S_ISREG(s.st_mode));
    if (extension.empty() || isStream) return kKinds[0];
    for (const auto& kind : kKinds)
        if (extension == kind.extension) return kind;
    std::string known;
    for (const auto& kind : kKinds)
        known += (known.empty() ? "" : ", ") + std::string(kind.extension);
    throw UsageError(path + ": files ending in " + inQuotes(extension) + " are not known (" +
                     known + ")");
}

int containerOf(const std::string& path, const SoundShape& shape, SampleFormat format)
{
    const int container = kindOf(path).format;
    if (container != kWave) return container;
    const std::int64_t frameBytes = shape.channels * bitsOf(format) / 8;
    if (shape.frames < 0 || shape.frames > kMostWaveBytes / frameBytes) return SF_FORMAT_RF64;
    return shape.mask ? SF_FORMAT_WAVEX : SF_FORMAT_WAV;
}

int encodingOf(int container, SampleFormat format)
{
    constexpr int kEncodings[] = {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32,
                                  SF_FORMAT_FLOAT,  SF_FORMAT_DOUBLE, SF_FORMAT_PCM_U8};
    const bool isUnsigned8 = container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX ||
                             container == SF_FORMAT_RF64 || container == SF_FORMAT_W64;
    if (format == SampleFormat::Coded) return 0;
    if (format == SampleFormat::Pcm8 && !isUnsigned8) return SF_FORMAT_PCM_S8;
    return kEncodings[static_cast<int>(format)];
}

SF_INFO infoOf(int container, const SoundShape& shape, SampleFormat format)
{
    SF_INFO info = {};
    info.channels = shape.channels;
    info.samplerate = shape.sampleRate;
    info.format = container | encodingOf(container, format);
    return info;
}

/// Whether the installed libsndfile encodes such files: it says so only when it begins one.
bool canEncode(int container, const SoundShape& shape)
{
    // More than two channels of Opus come out of libsndfile 1.2 without their upper octaves.
    if ((container & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS && shape.channels > 2) return false;
    std::int64_t bytes = 0;
    SF_VIRTUAL_IO nowhere = {};
    nowhere.get_filelen =
        nowhere.tell = [](void* n) -> sf_count_t { return *static_cast<std::int64_t*>(n); };
    nowhere.seek = [](sf_count_t, int, void*) -> sf_count_t { return 0; };
    nowhere.read = [](void*, sf_count_t, void*) -> sf_count_t { return 0; };
    nowhere.write = [](const void*, sf_count_t count, void* n) -> sf_count_t {
        *static_cast<std::int64_t*>(n) += count;
        return count;
    };
    SF_INFO info = infoOf(container, shape, SampleFormat::Coded);
    SNDFILE* const file = sf_open_virtual(&nowhere, SFM_WRITE, &info, &bytes);
    if (file) sf_close(file);
    return file != nullptr;
}

/// Titles, broadcast and cue data, instrument loops.
void copyDescriptions(SNDFILE* from, SNDFILE* to)
{
    for (int id = SF_STR_FIRST; id <= SF_STR_LAST; ++id)
        if (const char* text = sf_get_string(from, id); text && *text) sf_set_string(to, id, text);
    const auto copy = [&]<typename D>(D data, int get, int set) {
        if (sf_command(from, get, &data, sizeof data) == SF_TRUE)
            sf_command(to, set, &data, sizeof data);
    };
    copy(SF_BROADCAST_INFO{}, SFC_GET_BROADCAST_INFO, SFC_SET_BROADCAST_INFO);
    copy(SF_CART_INFO{}, SFC_GET_CART_INFO, SFC_SET_CART_INFO);
    copy(SF_CUES{}, SFC_GET_CUE, SFC_SET_CUE);
    copy(SF_INSTRUMENT{}, SFC_GET_INSTRUMENT, SFC_SET_INSTRUMENT);
}

}  // namespace

bool isCoded(const std::string& path)
{
    return (kindOf(path).format & SF_FORMAT_SUBMASK) != 0;
}

bool canHold(const std::string& path, const SoundShape& shape, SampleFormat format)
{
    const int container = containerOf(path, shape, format);
    if (isCoded(path) != (format == SampleFormat::Coded)) return false;
    if (format == SampleFormat::Coded) return canEncode(container, shape);
    const SF_INFO info = infoOf(container, shape, format);
    return path == "-" || sf_format_check(&info);
}

SoundWriter::SoundWriter(const std::string& path, const SoundShape& shape, SampleFormat format,
                         Dither dither, const SoundReader* source)
    : path_(path),
      shape_(shape),
      format_(format),
      output_(path),
      ditherer_(bitsOf(format) <= 24 ? dither : Dither::None, shape.channels, shape.sampleRate)
{
    if (output_.isStream()) {
        if (isatty(output_.descriptor()))
            throw UsageError("samples are not written to a terminal (name a file or use a pipe)");
        WaveHeader header;
        header.format = isFloat(format) ? WaveHeader::kFloat : WaveHeader::kPcm;
        header.channels = static_cast<std::uint16_t>(shape.channels);
        header.sampleRate = static_cast<std::uint32_t>(shape.sampleRate);
        header.bits = static_cast<std::uint16_t>(bitsOf(format));
        header.bytesPerFrame = static_cast<std::uint16_t>(header.channels * header.bits / 8);
        header.mask = shape.mask;
        const auto bytes = writeWaveHeader(header, shape.frames);
        output_.write(bytes.data(), bytes.size());
    } else {
        openFile(containerOf(path, shape, format), source);
    }
}

void SoundWriter::openFile(int container, const SoundReader* source)
{
    SF_INFO info = infoOf(container, shape_, format_);
    file_ = sf_open_fd(output_.descriptor(), SFM_WRITE, &info, SF_FALSE);
    if (!file_)
        throw WorkError(std::string("the output cannot be written: ") + sf_strerror(nullptr));
    isWave_ =
        container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX || container == SF_FORMAT_RF64;
    // The chunk carries the time of writing: the same input would not give the same file.
    sf_command(file_, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(file_, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    if (format_ == SampleFormat::Coded) {
        // 0 is the best and 1 the smallest: here about 200 to 300 kbit/s in stereo.
        double compression = 0.2;
        sf_command(file_, SFC_SET_COMPRESSION_LEVEL, &compression, sizeof compression);
        if ((container & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG)
            order_ = vorbisOrder(shape_.channels);
    }
    if (source && source->handle()) copyDescriptions(source->handle(), file_);
}

SoundWriter::~SoundWriter()
{
    if (file_) sf_close(file_);
}

void SoundWriter::flush(std::int64_t frames, Unit unit)
{
    framesWritten_ += frames;
    if (!file_) return output_.write(buffer_.data(), buffer_.size());
    sf_count_t done = 0;
    if (unit == Unit::Float)
        done = sf_writef_float(file_, reinterpret_cast<const float*>(buffer_.data()), frames);
    else if (unit == Unit::Double)
        done = sf_writef_double(file_, reinterpret_cast<const double*>(buffer_.data()), frames);
    else
        done = sf_writef_int(file_, reinterpret_cast<const int*>(buffer_.data()), frames);
    if (done != frames) output_.fail(errno ? errno : EIO);
}

template <typename S, typename T>
void SoundWriter::writeFloats(const Planes<T>& planes, int from, int to)
{
    const auto step = static_cast<std::size_t>(shape_.channels);
    buffer_.resize(static_cast<std::size_t>(to - from) * step * sizeof(S));
    for (int c = 0; c < shape_.channels; ++c) {
        const T* const in = planes[order_ ? order_->channel[static_cast<std::size_t>(c)] : c];
        S* out = reinterpret_cast<S*>(buffer_.data()) + c;
        S sum = 0;  // stays 0 as long as all is finite
        for (int i = from; i < to; ++i, out += step) {
            *out = static_cast<S>(in[i]);
            sum += *out - *out;
        }
        if (sum != 0 && std::all_of(in + from, in + to, [](T x) { return std::isfinite(x); }))
            throw WorkError(path_ + ": cannot be written: a sample is too large for 32 bits " +
                            "(--format float64 holds it)");
    }
    flush(to - from, sizeof(S) == sizeof(float) ? Unit::Float : Unit::Double);
}

template <typename T> void SoundWriter::countClipped(const T* samples, std::size_t n, double limit)
{
    for (std::size_t i = 0; i < n; ++i) {
        const double x = std::abs(static_cast<double>(samples[i]));
        const bool isClipped = samples[i] < 0 ? x >= 2 - limit : x >= limit;
        clipped_ += isClipped;
        if (isClipped) peak_ = std::max(peak_, x);
    }
}

template <typename T> void SoundWriter::writeIntegers(const Planes<T>& planes, int from, int to)
{
    const int bits = bitsOf(format_);
    const double scale = std::ldexp(1.0, bits - 1);
    const auto frames = static_cast<std::size_t>(to - from);
    const auto step = static_cast<std::size_t>(shape_.channels);
    integers_.resize(frames * step);
    steps_.resize(frames);
    for (int c = 0; c < shape_.channels; ++c) {
        const T* const in = planes[c] + from;
        std::int64_t over = 0;
        for (std::size_t i = 0; i < frames; ++i) {
            double x = static_cast<double>(in[i]) * scale;
            x = x == x ? x : 0;
            const double limited = std::min(std::max(x, -scale), scale - 1);
            over += x != limited;
            steps_[i] = limited;
        }
        // Less than half a step above the largest integer is rounding, not clipping.
        if (over) countClipped(in, frames, 1 - 0.5 / scale);
        ditherer_.round(c, steps_.data(), frames);
        std::int32_t* out = integers_.data() + c;
        for (std::size_t i = 0; i < frames; ++i) {
            const double limited = std::min(std::max(steps_[i], -scale), scale - 1);
            out[i * step] = static_cast<std::int32_t>(limited);
        }
    }

    if (file_) {  // libsndfile takes the upper bits
        buffer_.resize(integers_.size() * sizeof(std::int32_t));
        auto* const out = reinterpret_cast<std::uint32_t*>(buffer_.data());
        for (std::size_t i = 0; i < integers_.size(); ++i)
            out[i] = static_cast<std::uint32_t>(integers_[i]) << (32 - bits);
    } else {
        const auto bytes = static_cast<std::size_t>(bits / 8);
        buffer_.resize(integers_.size() * bytes);
        const std::uint32_t offset = bits == 8 ? 128 : 0;  // 8-bit samples are unsigned
        for (std::size_t i = 0; i < integers_.size(); ++i) {
            const auto word = static_cast<std::uint32_t>(integers_[i]) + offset;
            std::memcpy(buffer_.data() + i * bytes, &word, bytes);
        }
    }
    flush(to - from, Unit::Integer);
}

template <typename T> void SoundWriter::write(const Planes<T>& planes, int from, int to)
{
    if (to <= from) return;
    errno = 0;
    needingMemory(std::to_string(to - from) + " frames of " + path_,
                  [&] { writeAs(planes, from, to); });
}

template <typename T> void SoundWriter::writeAs(const Planes<T>& planes, int from, int to)
{
    if (format_ == SampleFormat::Float32 || format_ == SampleFormat::Coded)
        writeFloats<float>(planes, from, to);
    else if (format_ == SampleFormat::Float64)
        writeFloats<double>(planes, from, to);
    else
        writeIntegers(planes, from, to);
}

template void SoundWriter::write(const Planes<float>&, int, int);
template void SoundWriter::write(const Planes<double>&, int, int);

/// libsndfile invents a mask by the channel count where none is wanted, and writes the time of day
/// into long files: the mask becomes what the file is to say, the time 0.
void SoundWriter::settleHeader()
{
    const int fd = output_.descriptor();
    WaveHeader header;
    std::string reason;
    lseek(fd, 0, SEEK_SET);
    const auto read = [fd](void* data, std::size_t bytes) {
        const auto n = ::read(fd, data, bytes);
        return n < 0 ? std::size_t{0} : static_cast<std::size_t>(n);
    };
    if (!readWaveHeader(read, -1, header, reason)) return;
    const auto put = [&](std::uint32_t word, std::int64_t at) {
        if (pwrite(fd, &word, sizeof word, at) != sizeof word) output_.fail(errno);
    };
    if (header.maskOffset >= 0 && header.mask != shape_.mask) put(shape_.mask, header.maskOffset);
    if (header.peakOffset >= 0) put(0, header.peakOffset + 4);
}

void SoundWriter::finish()
{
    if (file_) {
        errno = 0;
        const int error = sf_close(std::exchange(file_, nullptr));
        if (error) output_.fail(errno ? errno : EIO);
        if (isWave_) settleHeader();
    } else if (framesWritten_ * shape_.channels * bitsOf(format_) / 8 % 2 != 0) {
        output_.write("", 1);  // chunks have an even length
    }
    output_.finish();
}

}  // namespace quillhost
