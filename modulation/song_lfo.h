// SPDX-License-Identifier: ISC
// The oscillator of a modulation effect: the song it follows, its place in the cycle, its wave.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "dsp/lfo_voice.h"
#include "framework/lfo_reading.h"
#include "framework/song_clock.h"

namespace quillworks {

/// What all voices of an effect share. begin() once per process call, next() where a sub-block of
/// the control grid begins, and then read() for each voice.
class SongLfo {
public:
    /// As they come from lfoRows() of framework/note_sync.h.
    struct Settings {
        bool isSynced = false;
        double noteValue = 4;  // of a period, 0.5 is a quarter note
        double hertz = 1;      // while not synced
        LfoWave wave = LfoWave::Sine;
    };

    void prepare(double sampleRate) noexcept;
    void reset() noexcept;
    void set(const Settings& settings) noexcept;
    void setTempo(double beatsPerMinute) noexcept;

    /// What the host says of the first of the next `frames` frames.
    void begin(const VNK::Transport& transport, int frames) noexcept
    {
        clock_.begin(transport, frames);
    }
    /// A sub-block begins `offset` frames after the first one given to begin().
    void next(int offset) noexcept;

    /// Value of a voice at the end of the sub-block, within -1 .. 1. It is `ahead` periods before
    /// the others; `voice` draws its own chance. Where the song or the wave changes it goes over in
    /// 20 ms, and where the voice `jumps` by itself.
    double read(LfoVoice& state, double ahead, std::uint32_t voice = 0,
                bool jumps = false) const noexcept
    {
        return std::clamp(state.next(waves_, place_ + ahead, voice, jumps_ || jumps), -1.0, 1.0);
    }
    /// Periods since the song or the free run began, at the end of the sub-block; and whether it
    /// has not come there by itself.
    double place() const noexcept { return place_; }
    bool hasJumped() const noexcept { return jumps_; }
    /// Periods per second as they sound now.
    double hertz() const noexcept;
    LfoWave wave() const noexcept { return waves_.wave(); }
    /// For further cycles of the same song.
    const SongClock& clock() const noexcept { return clock_; }

private:
    void update() noexcept;

    Settings settings_;
    double tempo_ = 120;
    SongClock clock_;
    LfoCycle cycle_;
    LfoWaves waves_;
    double place_ = 0;  // in periods, at the end of the sub-block
    bool isFresh_ = true, jumps_ = false;
};

}  // namespace quillworks
