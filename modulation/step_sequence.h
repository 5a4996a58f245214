// SPDX-License-Identifier: ISC
// A row of values that the song steps through, gliding from one to the next.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "modulation/song_lfo.h"

namespace quillworks {

/// One value per sub-block, for its end, so that nothing lags behind the song; at the tempo by
/// itself where the song stands still.
class StepSequence {
public:
    static constexpr int kMost = 16;

    struct Settings {
        std::array<double, kMost> steps{};  // -1 .. 1
        int count = 8;                      // of them, 1 .. 16
        double noteValue = 0.25;            // of a step, 0.5 is a quarter note
        double glide = 0;                   // share of the step
    };

    void prepare(double sampleRate) noexcept
    {
        clock_.prepare(sampleRate);
        wayOfJump_ =
            static_cast<int>(std::max(1.0, std::trunc(0.02 * sampleRate / kSubBlock + 0.5)));
    }
    void reset() noexcept
    {
        clock_.reset();
        jumpLeft_ = 0;
        isFresh_ = true;
        isChanged_ = false;
    }
    /// What sounds goes over to the new pattern in 20 ms.
    void set(const Settings& settings) noexcept
    {
        settings_ = settings;
        settings_.count = std::clamp(settings.count, 1, kMost);
        clock_.set({.isSynced = true, .noteValue = settings.noteValue});
        isChanged_ = true;
    }
    void setTempo(double beatsPerMinute) noexcept { clock_.setTempo(beatsPerMinute); }

    /// Once per process call.
    void begin(const VNK::Transport& transport, int frames) noexcept
    {
        clock_.begin(transport, frames);
    }
    /// Where a sub-block begins, `offset` frames after the first of the call.
    void next(int offset) noexcept
    {
        clock_.next(offset);
        double value = at(clock_.place());
        if (clock_.hasJumped() || isChanged_) {
            jump_ = isFresh_ ? 0 : value_.to - value;
            jumpLeft_ = wayOfJump_;
            isChanged_ = false;
        }
        if (jumpLeft_ > 0) value += jump_ * --jumpLeft_ / wayOfJump_;
        value_ = {isFresh_ ? value : value_.to, value};
        isFresh_ = false;
    }
    /// Within -1 .. 1 (beyond it only on the way to another pattern), over the open sub-block.
    const Ramp<double>& value() const noexcept { return value_; }
    /// In steps, 0 .. count.
    double position() const noexcept
    {
        const double rounds = clock_.place() / settings_.count;
        return (rounds - std::floor(rounds)) * settings_.count;
    }

private:
    /// A step begins with the glide from the one before: by a quintic, in 2 ms at least.
    double at(double place) const noexcept
    {
        const double whole = std::floor(place), passed = place - whole;
        const double way = std::min(1.0, std::max(settings_.glide, 0.002 * clock_.hertz()));
        const double z = std::min(1.0, passed / way);
        const double from = step(whole - 1), to = step(whole);
        return to + (from - to) * (1 - z * z * z * (10 - 15 * z + 6 * z * z));
    }
    double step(double n) const noexcept
    {
        const double rounds = std::floor(n / settings_.count);
        const int i = static_cast<int>(n - rounds * settings_.count);
        return settings_.steps[static_cast<std::size_t>(std::clamp(i, 0, kMost - 1))];
    }

    Settings settings_;
    SongLfo clock_;  // a period is a step
    Ramp<double> value_{};
    double jump_ = 0;
    int wayOfJump_ = 1, jumpLeft_ = 0;  // sub-blocks
    bool isFresh_ = true, isChanged_ = false;
};

}  // namespace quillworks
