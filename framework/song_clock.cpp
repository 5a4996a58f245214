// SPDX-License-Identifier: ISC
#include "framework/song_clock.h"

#include <cmath>

namespace quillworks {
namespace {

/// Counts of frames beyond this are no positions in a song, and sums of them stay exact in double.
constexpr std::int64_t kFarthestFrame = std::int64_t{1} << 50;

}  // namespace

void SongClock::reset() noexcept
{
    const double rate = sampleRate_;
    *this = {};
    sampleRate_ = rate;
}

void SongClock::begin(const VNK::Transport& t, int frames) noexcept
{
    const bool wasPlaying = isPlaying_, hadPosition = hasPosition_, hadFrame = frameKnown_;

    isPlaying_ = t.playing;
    frameKnown_ = t.frameKnown && t.frame > -kFarthestFrame && t.frame < kFarthestFrame;
    frame_ = frameKnown_ ? t.frame : next_;
    const double skipped = std::abs(double(frame_ - next_));
    next_ = frame_ + frames;
    const bool tempoKnown = std::isfinite(t.tempo) && t.tempo > 0;
    // Without a tempo the song goes on at the last one that was told.
    const double tempo = tempoKnown ? t.tempo : anchor_.tempo;
    hasPosition_ = t.positionKnown && tempo > 0 && std::abs(t.quarterNotes) <= kFarthest;

    // At the end of a loop both counts jump, and agree with each other before and after.
    const bool comparesFrames = hadFrame && frameKnown_;
    const bool framesJump = comparesFrames && skipped * tempo / (60 * sampleRate_) >= kJump;
    bool jumps = isPlaying_ && (!wasPlaying || framesJump);
    const bool compares =
        hasPosition_ && isPlaying_ && wasPlaying && hadPosition && hadFrame == frameKnown_;
    const double difference = std::abs(t.quarterNotes - position(0));
    jumps |= isPlaying_ && hasPosition_ && (compares ? !(difference < kJump) : !hadPosition);
    jumps_ += jumps;
    if (!hasPosition_) {
        anchor_.tempo = tempo;
        return;
    }
    if (compares && tempo == anchor_.tempo && difference < kRounding) return;
    anchor_ = {t.quarterNotes, tempo, frame_};
    quarterNotesPerFrame_ = isPlaying_ ? tempo / (60 * sampleRate_) : 0;
}

SongFollower::Way SongFollower::look(const SongClock& clock) noexcept
{
    const bool isLocked = settings_.isSynced && clock.isLocked();
    const bool clockJumped = clock.jumps() != sounded_.jumps;
    const bool restarts = clockJumped || sounded_.isFirst;
    const bool changes =
        isLocked != sounded_.isLocked || (isLocked && settings_.noteValue != sounded_.noteValue);
    hasJumped_ = !sounded_.isFirst && (clockJumped || changes);
    sounded_ = {isLocked, false, settings_.noteValue, clock.jumps()};
    return isLocked ? Way::Locked : restarts ? Way::Restarts : Way::GoesOn;
}

double LfoCycle::next(const SongClock& clock, int offset) noexcept
{
    const int end = offset + kSubBlock;
    const auto songFrame = clock.songFrame(end);
    switch (look(clock)) {
    case Way::Locked:
        cycle_ = clock.position(end) * cyclesPerQuarterNote();
        break;
    case Way::Restarts:
        cycle_ = songFrame ? hertz() * double(*songFrame) / sampleRate_ : 0;
        break;
    case Way::GoesOn:
        cycle_ += hertz() * kSubBlock / sampleRate_;
        break;
    }
    return cycle_;
}

const FrameLine& FrameCycle::next(const SongClock& clock, int frames) noexcept
{
    const double place = line_.at(frames_), step = hertz() / sampleRate_;
    const auto songFrame = clock.songFrame(0);
    switch (look(clock)) {
    case Way::Locked:
        line_ = clock.line();
        line_.scale = cyclesPerQuarterNote();
        break;
    case Way::Restarts:
        line_ = {songFrame ? double(*songFrame) * step : 0, 0, step};
        break;
    case Way::GoesOn:
        if (line_.scale == 1 && line_.step == step)
            line_.first += frames_;
        else
            line_ = {place, 0, step};
        break;
    }
    frames_ = frames;
    return line_;
}

}  // namespace quillworks
