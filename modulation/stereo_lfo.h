// SPDX-License-Identifier: ISC
// An oscillator that left and right channels read at two places of its cycle.
#pragma once

#include <array>

#include "dsp/smoothed.h"
#include "modulation/song_lfo.h"

namespace quillworks {

/// Channels of a pair; those in the middle go with the left ones.
enum Side { kLeft, kRight, kSides };

/// Each sub-block's course leads from the end of the last one to the value that belongs to its own
/// end, so that nothing lags behind the song.
class StereoLfo {
public:
    void prepare(double sampleRate) noexcept
    {
        lfo_.prepare(sampleRate);
        for (auto& voice : voices_) voice.prepare(sampleRate);
        stereo_.prepareHalfLife(2 * glideSubBlocks(sampleRate));
        stereo_.setTolerance(0.5e-6);
    }
    void reset() noexcept
    {
        lfo_.reset();
        for (auto& voice : voices_) voice.reset();
        stereo_.snap();
        isFresh_ = true;
    }
    /// `stereo`: degrees by which the right channels are ahead.
    void set(const SongLfo::Settings& settings, double stereo) noexcept
    {
        lfo_.set(settings);
        stereo_.target(stereo / 360);
    }
    void setTempo(double beatsPerMinute) noexcept { lfo_.setTempo(beatsPerMinute); }

    /// Once per process call.
    void begin(const VNK::Transport& transport, int frames) noexcept
    {
        lfo_.begin(transport, frames);
    }
    /// Where a sub-block begins, `offset` frames after the first of the call.
    void next(int offset) noexcept
    {
        lfo_.next(offset);
        stereo_.next(kWholeSubBlock);
        for (const Side side : {kLeft, kRight}) {
            const double value = lfo_.read(voices_[side], ahead(side));
            values_[side] = {isFresh_ ? value : values_[side].to, value};
        }
        isFresh_ = false;
    }
    /// Within -1 .. 1, over the open sub-block.
    const Ramp<double>& value(Side side) const noexcept { return values_[side]; }
    /// Periods since the song or the free run began, at the end of the open sub-block.
    double place(Side side) const noexcept { return lfo_.place() + ahead(side); }
    /// Whether it did not come there by itself.
    bool hasJumped() const noexcept { return lfo_.hasJumped(); }

private:
    double ahead(Side side) const noexcept { return side == kRight ? stereo_.current() : 0; }

    SongLfo lfo_;
    std::array<LfoVoice, kSides> voices_;
    Smoothed<double> stereo_;  // periods
    std::array<Ramp<double>, kSides> values_{};
    bool isFresh_ = true;
};

}  // namespace quillworks
