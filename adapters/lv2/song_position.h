// SPDX-License-Identifier: ISC
// Song position as LV2 hosts send it, carried on from event to event.
#pragma once

#include <lv2/atom/atom.h>
#include <lv2/urid/urid.h>

#include "vnk/effect.h"

namespace quillworks::lv2 {

class SongPosition {
public:
    /// Numbers of the URIs that events use. Without a map no event is understood.
    void map(LV2_URID_Map* map, double sampleRate);
    /// As before the first event.
    void forget() noexcept;

    /// Takes a time:Position event over; other atoms are left alone. [audio thread]
    void read(const LV2_Atom& atom) noexcept;
    /// Hands the position to the effect for its next block. [audio thread]
    void tell(VNK::IEffectAlgorithm& algorithm) const noexcept;
    void advance(int frames) noexcept
    {
        if (isKnown_) elapsed_ += frames;
    }

    LV2_URID sequence() const noexcept { return ids_.sequence; }

private:
    bool number(const LV2_Atom& atom, double& value) const noexcept;
    double quartersPerBeat() const noexcept;
    double tempo() const noexcept;  // quarter notes per minute, 0: unknown
    struct Place {
        double frame, quarterNotes;
    };
    Place place() const noexcept;  // of the coming block
    /// Whether the beat of the last event could be carried on: not while the song runs at a tempo
    /// that nobody has told.
    bool isBeatCounted() const noexcept { return elapsed_ == 0 || speed_ == 0 || tempo() > 0; }

    struct {
        LV2_URID sequence, object, blank, intType, longType, floatType, doubleType;
        LV2_URID position, speed, frame, beat, bar, barBeat, beatUnit, beatsPerBar, beatsPerMinute;
    } ids_{};
    double sampleRate_ = 48000;
    bool isKnown_ = false;
    double speed_ = 0;
    double beatsPerBar_ = 4, beatUnit_ = 4, beatsPerMinute_ = 0;  // 0: unknown
    // As told by the last event, and how long ago that was: added up block by block the position
    // would depend on how the host cuts its blocks.
    bool isFrameKnown_ = false, isBeatKnown_ = false;
    double frame_ = 0, quarterNotes_ = 0;
    std::int64_t elapsed_ = 0;
};

}  // namespace quillworks::lv2
