// SPDX-License-Identifier: ISC
// The song position at any frame, and the cycles that modulation draws from it.
#pragma once

#include <cstdint>
#include <optional>

#include "dsp/control_grid.h"
#include "dsp/note_value.h"
#include "vnk/effect.h"

namespace quillworks {

/// A value that grows by the same amount from frame to frame: (origin + (first + i) step) scale.
/// Every factor but i stays what it is from block to block, so that a frame has the same bits in
/// whatever block it lies.
struct FrameLine {
    double origin = 0;
    double first = 0;  // frames since the origin, a whole number
    double step = 0;   // per frame, before `scale`
    double scale = 1;

    double at(int i) const noexcept { return (origin + (first + i) * step) * scale; }
    double perFrame() const noexcept { return step * scale; }
};

/// Hosts tell the position once a block and round it as they like. The clock keeps an anchor and
/// counts frames from there, in double, so that what follows the song depends on the frame alone
/// and not on how the signal is divided into blocks. The anchor is taken anew where the host's
/// position departs from the count or the tempo changes.
///
/// `begin` once per process call, then any number of questions about the frames from there on.
/// [audio thread]
class SongClock {
public:
    /// Differences below this, in quarter notes, are the host's rounding.
    static constexpr double kRounding = 1e-4;
    /// From here on the song has jumped, as at the end of a loop.
    static constexpr double kJump = 1.0 / 960;
    /// Positions beyond count as unknown, in quarter notes.
    static constexpr double kFarthest = 1e9;

    void prepare(double sampleRate) noexcept { sampleRate_ = sampleRate; }
    /// Forgets the song; the next call of `begin` is the first one.
    void reset() noexcept;

    /// What the host says of the first of the next `frames` frames. Uses the transport's own tempo,
    /// whatever its size; numbers that are not finite count as unknown.
    void begin(const VNK::Transport& transport, int frames) noexcept;

    bool isPlaying() const noexcept { return isPlaying_; }
    /// Whether the song plays and its position is known: what follows it may be locked to it.
    bool isLocked() const noexcept { return isPlaying_ && hasPosition_; }
    /// Quarter notes since the start of the song at `offset` frames after the first of the block;
    /// offsets may lie beyond the block. Negative before the start. Only while isLocked().
    double position(int offset) const noexcept
    {
        return anchor_.position + double(frame_ + offset - anchor_.frame) * quarterNotesPerFrame_;
    }
    /// position() as a line over the frames of the block.
    FrameLine line() const noexcept
    {
        return {anchor_.position, double(frame_ - anchor_.frame), quarterNotesPerFrame_};
    }
    /// Frames since the start of the song at `offset`, where the host counts them and plays.
    std::optional<std::int64_t> songFrame(int offset) const noexcept
    {
        return isPlaying_ && frameKnown_ ? std::optional(frame_ + offset) : std::nullopt;
    }
    /// How often, since the reset, the position has jumped or playing has begun: a block may be
    /// shorter than a sub-block of the control grid, which still has to learn of the jump in it.
    std::uint32_t jumps() const noexcept { return jumps_; }
    /// Quarter notes per minute of the song; 0 while unknown.
    double tempo() const noexcept { return anchor_.tempo; }

private:
    struct Anchor {
        double position = 0;  // quarter notes
        double tempo = 0;     // quarter notes per minute
        std::int64_t frame = 0;
    };

    double sampleRate_ = 48000;
    Anchor anchor_;
    double quarterNotesPerFrame_ = 0;
    std::int64_t frame_ = 0;  // of the block's first frame: the host's count, or one of our own
    std::int64_t next_ = 0;   // of the first frame after the block
    bool hasPosition_ = false, frameKnown_ = false, isPlaying_ = false;
    std::uint32_t jumps_ = 0;
};

/// What every modulation that may follow the song goes by: its period, and whether it is locked,
/// starts anew, or goes on by itself.
class SongFollower {
public:
    void reset() noexcept { sounded_ = {}, hasJumped_ = false; }

    /// Period in note values (0.5 is a quarter note) while locked to the song, and in Hz else.
    /// `isSynced`: a song that plays at a known position is followed.
    void set(bool isSynced, double noteValue, double hertz) noexcept
    {
        settings_ = {isSynced, exactNoteValue(noteValue), hertz};
    }
    /// The cycle has not come here by itself: the song or the settings have jumped since the last
    /// look. Not after a reset.
    bool hasJumped() const noexcept { return hasJumped_; }

protected:
    enum class Way { Locked, Restarts, GoesOn };

    /// How the place is found now.
    Way look(const SongClock& clock) noexcept;
    double hertz() const noexcept { return settings_.hertz; }
    double cyclesPerQuarterNote() const noexcept { return 0.5 / settings_.noteValue; }

private:
    struct Settings {
        bool isSynced = false;
        double noteValue = 4;
        double hertz = 1;
    };
    /// How the last place was found.
    struct Sounded {
        bool isLocked = false, isFirst = true;
        double noteValue = 0;
        std::uint32_t jumps = 0;  // of the clock
    };

    Settings settings_;
    Sounded sounded_;
    bool hasJumped_ = false;
};

/// Where a modulation stands in its cycle: a count of periods that goes on for ever, so that chance
/// drawn from its whole part repeats in every rendering. Advances with the control grid and gives
/// the place at the end of the sub-block that begins.
class LfoCycle : public SongFollower {
public:
    void prepare(double sampleRate) noexcept { sampleRate_ = sampleRate; }
    void reset() noexcept
    {
        SongFollower::reset();
        cycle_ = 0;
    }

    /// For a slice that begins a sub-block, `offset` frames after the first one of the block.
    double next(const SongClock& clock, int offset) noexcept;

private:
    double sampleRate_ = 48000;
    double cycle_ = 0;
};

/// The same frame by frame, for what has to be exact to the sample.
class FrameCycle : public SongFollower {
public:
    void prepare(double sampleRate) noexcept { sampleRate_ = sampleRate; }
    void reset() noexcept
    {
        SongFollower::reset();
        line_ = {};
        frames_ = 0;
    }

    /// Once per process call, behind the clock's: the places at the next `frames` frames and, as
    /// far as the course goes on unchanged, beyond.
    const FrameLine& next(const SongClock& clock, int frames) noexcept;
    const FrameLine& line() const noexcept { return line_; }

private:
    double sampleRate_ = 48000;
    FrameLine line_;
    int frames_ = 0;  // of the last call
};

}  // namespace quillworks
