// SPDX-License-Identifier: ISC
// The song position at any frame, and the cycles that modulation draws from it.
#pragma once

#include <cstdint>
#include <optional>

#include "dsp/control_grid.h"
#include "vnk/effect.h"

namespace quillworks {

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

/// Where a modulation stands in its cycle: a count of periods that goes on for ever, so that chance
/// drawn from its whole part repeats in every rendering. Advances with the control grid and gives
/// the place at the end of the sub-block that begins.
class LfoCycle {
public:
    void prepare(double sampleRate) noexcept { sampleRate_ = sampleRate; }
    void reset() noexcept { cycle_ = 0, sounded_ = {}, hasJumped_ = false; }

    /// Period in note values (0.5 is a quarter note) while locked to the song, and in Hz else.
    /// `isSynced`: a song that plays at a known position is followed.
    void set(bool isSynced, double noteValue, double hertz) noexcept
    {
        settings_ = {isSynced, noteValue, hertz};
    }

    /// For a slice that begins a sub-block, `offset` frames after the first one of the block.
    double next(const SongClock& clock, int offset) noexcept;
    /// The cycle has not come here by itself: the song or the settings have jumped since the last
    /// call. Not after a reset.
    bool hasJumped() const noexcept { return hasJumped_; }

private:
    struct Settings {
        bool isSynced = false;
        double noteValue = 4;
        double hertz = 1;

        bool operator==(const Settings&) const = default;
    };
    /// How the last place was found.
    struct Sounded {
        bool isLocked = false, isFirst = true;
        double noteValue = 0;
        std::uint32_t jumps = 0;  // of the clock
    };

    double sampleRate_ = 48000;
    Settings settings_;
    Sounded sounded_;
    double cycle_ = 0;
    bool hasJumped_ = false;
};

}  // namespace quillworks
