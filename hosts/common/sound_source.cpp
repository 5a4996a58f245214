// SPDX-License-Identifier: ISC
#include "sound_source.h"

#include <soxr.h>

namespace quillhost {
namespace {

constexpr int kPiece = 4096;  // frames read of the file at a time

}  // namespace

/// The resampler and what of the file it has not taken yet. Of one precision, that of the first
/// read().
class RateConverter {
public:
    RateConverter(SoundReader& reader, int sampleRate) : reader_(reader), sampleRate_(sampleRate) {}
    ~RateConverter() { soxr_delete(soxr_); }
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    template <typename T> int read(Planes<T>& planes, int frames)
    {
        if (!soxr_) start<T>();
        Planes<T>& piece = pieceOf<T>();
        int done = 0;
        while (done < frames && !isOver_) {
            if (from_ == to_ && !isEnded_) {
                to_ = reader_.read(piece, kPiece);
                from_ = 0;
                isEnded_ = to_ < kPiece;
            }
            const void* in[kMostChannels];
            void* out[kMostChannels];
            for (int c = 0; c < reader_.channels(); ++c) {
                in[c] = piece[c] + from_;
                out[c] = planes[c] + done;
            }
            const bool flushes = isEnded_ && from_ == to_;
            std::size_t taken = 0, made = 0;
            const auto error =
                soxr_process(soxr_, flushes ? nullptr : in, static_cast<std::size_t>(to_ - from_),
                             &taken, out, static_cast<std::size_t>(frames - done), &made);
            if (error)
                throw WorkError(shownPath(reader_.path()) + ": cannot be converted: " + error);
            from_ += static_cast<int>(taken);
            done += static_cast<int>(made);
            isOver_ = flushes && made == 0;
        }
        return done;
    }

private:
    template <typename T> void start()
    {
        soxr_error_t error = nullptr;
        const auto type = sizeof(T) == 4 ? SOXR_FLOAT32_S : SOXR_FLOAT64_S;
        const auto io = soxr_io_spec(type, type);
        const auto quality = soxr_quality_spec(SOXR_VHQ, 0);
        soxr_ =
            soxr_create(reader_.sampleRate(), sampleRate_,
                        static_cast<unsigned>(reader_.channels()), &error, &io, &quality, nullptr);
        if (error) throw WorkError(shownPath(reader_.path()) + ": cannot be converted: " + error);
        pieceOf<T>() = Planes<T>(reader_.channels(), kPiece);
    }
    template <typename T> Planes<T>& pieceOf() noexcept
    {
        if constexpr (sizeof(T) == 4)
            return floats_;
        else
            return doubles_;
    }

    SoundReader& reader_;
    int sampleRate_;
    soxr_t soxr_ = nullptr;
    Planes<float> floats_;
    Planes<double> doubles_;
    int from_ = 0, to_ = 0;
    bool isEnded_ = false, isOver_ = false;  // the file, the conversion
};

SoundSource::SoundSource(const std::string& path, int sampleRate)
    : reader_(path), sampleRate_(sampleRate > 0 ? sampleRate : reader_.sampleRate())
{
    if (sampleRate_ != reader_.sampleRate())
        converter_ = std::make_unique<RateConverter>(reader_, sampleRate_);
}

SoundSource::~SoundSource() = default;

/// As the resampler rounds it.
std::int64_t SoundSource::converted(std::int64_t frames) const noexcept
{
    if (frames < 0 || !converter_) return frames;
    const std::int64_t from = reader_.sampleRate();
    return (frames * sampleRate_ + from / 2) / from;
}

template <typename T> int SoundSource::read(Planes<T>& planes, int frames)
{
    return converter_ ? converter_->read(planes, frames) : reader_.read(planes, frames);
}
template int SoundSource::read(Planes<float>&, int);
template int SoundSource::read(Planes<double>&, int);

}  // namespace quillhost
