// SPDX-License-Identifier: ISC
#include "analysis/scope_engine.h"

#include <bit>

namespace quillworks {
namespace {

constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();

void pack(std::uint64_t word, float* to)
{
    to[0] = std::bit_cast<float>(static_cast<std::uint32_t>(word));
    to[1] = std::bit_cast<float>(static_cast<std::uint32_t>(word >> 32));
}

std::uint64_t word(float low, float high)
{
    return std::bit_cast<std::uint32_t>(low) |
           static_cast<std::uint64_t>(std::bit_cast<std::uint32_t>(high)) << 32;
}

}  // namespace

void packAnchor(const SongAnchor& anchor, float (&to)[kSongChannels]) noexcept
{
    pack(std::bit_cast<std::uint64_t>(anchor.from), to);
    pack(std::bit_cast<std::uint64_t>(anchor.origin), to + 2);
    pack(std::bit_cast<std::uint64_t>(anchor.position), to + 4);
    pack(std::bit_cast<std::uint64_t>(anchor.step), to + 6);
}

void ScopeEngine::prepareMeter(const ProcessSpec& spec)
{
    history_.prepare(spec);
    history_.setSource(settings_.source);
    trigger_.prepare(spec.sampleRate);
    fundamental_.prepare(trigger_.periodWindow());
    songFrames_.resize(std::size_t{kSongChannels} * CaptureRing::kMaxRead);
    if (song_ && !songReader_) songReader_.emplace(*song_);
}

void ScopeEngine::releaseMeter() noexcept
{
    songReader_.reset();
    songFrames_ = {};
    history_.release();
    shown_.reset();
    lines_ = {};
    source_ = {};
    window_ = {};
    isRead_ = true;
}

void ScopeEngine::begin(std::int64_t first)
{
    history_.begin(first);
    trigger_.begin();
}

void ScopeEngine::clear()
{
    history_.begin(0);
    trigger_.clear();
    shown_.reset();
    isRead_ = true;
}

void ScopeEngine::set(const TriggerSettings& settings, std::uint32_t arms)
{
    settings_ = settings;
    if (isPrepared()) {
        history_.setSource(settings.source);
        trigger_.set(settings);
        if (arms != arms_) trigger_.arm();
    }
    arms_ = arms;
}

void ScopeEngine::readSong()
{
    if (!songReader_) return;
    float* x[kSongChannels];
    for (int c = 0; c < kSongChannels; ++c)
        x[c] = songFrames_.data() + static_cast<std::ptrdiff_t>(c) * CaptureRing::kMaxRead;
    for (;;) {
        const auto piece = songReader_->read(x);
        if (piece.frames == 0) return;
        const auto value = [&](int i, int c) { return word(x[c][i], x[c + 1][i]); };
        for (int i = 0; i < piece.frames; ++i)
            trigger_.follow(
                {std::bit_cast<std::int64_t>(value(i, 0)), std::bit_cast<std::int64_t>(value(i, 2)),
                 std::bit_cast<double>(value(i, 4)), std::bit_cast<double>(value(i, 6))});
    }
}

void ScopeEngine::take(const float* const* x, int n)
{
    readSong();
    const std::int64_t before = history_.end();
    history_.append(x, n);
    for (int i = 1; i <= n; ++i)
        if (trigger_.advance(before + i)) keepTrace();
}

void ScopeEngine::keepTrace()
{
    shown_ = trigger_.finished();
    const auto span = static_cast<std::size_t>(shown_->span);
    lines_.resize(static_cast<std::size_t>(history_.channels()));
    for (std::size_t c = 0; c < lines_.size(); ++c) {
        lines_[c].resize(span);
        history_.copy(static_cast<int>(c), shown_->start, shown_->span, lines_[c].data());
    }
    source_.resize(kScopeReach + span);
    history_.copySource(shown_->start - kScopeReach, static_cast<int>(source_.size()),
                        source_.data());
    const std::int64_t end = shown_->start + shown_->span;
    const int n = fundamental_.window();
    window_.resize(static_cast<std::size_t>(n));
    if (end - n >= history_.first())
        history_.copySource(end - n, n, window_.data());
    else
        window_.clear();
    isRead_ = false;
}

void ScopeEngine::readTrace()
{
    std::optional<double> period;
    if (!window_.empty()) period = fundamental_.period(window_.data());
    readings_ = reader_.read(source_, shown_->span, spec().sampleRate,
                             settings_.slope != Slope::Falling, period);
    isRead_ = true;
}

void ScopeEngine::publishMeter(MeterSlots& meters) noexcept
{
    try {
        if (!isRead_) readTrace();
    } catch (...) {  // no memory: no readings
        readings_ = {};
    }
    const ScopeReadings r = shown_ ? readings_ : ScopeReadings{};
    meters.publish("Freq"_tag, static_cast<float>(r.frequency));
    meters.publish("VPP "_tag, static_cast<float>(r.peakToPeak()));
    meters.publish("VMax"_tag, static_cast<float>(r.maximum));
    meters.publish("VMin"_tag, static_cast<float>(r.minimum));
    meters.publish("VRMS"_tag, static_cast<float>(r.rms));
    meters.publish("VDC "_tag, static_cast<float>(r.mean));
    meters.publish("Duty"_tag, static_cast<float>(100 * r.dutyCycle));
    meters.publish("TSta"_tag, isPrepared() ? static_cast<float>(trigger_.state()) : kNothing);
}

void ScopeEngine::showMeter(int, VNK::IDisplaySink& sink) const
{
    sink.number("state", static_cast<double>(trigger_.state()));
    const auto nothing = ScopeReadings::kNothing;
    sink.number("start", shown_ ? static_cast<double>(shown_->start) : nothing);
    const bool isTriggered = shown_ && shown_->instant;
    sink.number("offset",
                isTriggered ? *shown_->instant - static_cast<double>(shown_->start) : nothing);
    sink.number("span", shown_ ? shown_->span : nothing);
    sink.beginList("channels");
    for (std::size_t c = 0; shown_ && c < lines_.size(); ++c) {
        sink.beginObject(nullptr);
        sink.text("name", channelNames()[c].c_str());
        sink.numbers("samples", lines_[c].data(), static_cast<std::int64_t>(lines_[c].size()));
        sink.end();
    }
    sink.end();
}

}  // namespace quillworks
