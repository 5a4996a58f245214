// SPDX-License-Identifier: ISC
// Song position as LV2 hosts send it.
#pragma once

#include <lv2/atom/atom.h>
#include <lv2/urid/urid.h>

#include "adapters/common/song_position.h"

namespace quillworks::lv2 {

class SongPosition : public adapters::SongPosition {
public:
    /// Numbers of the URIs that events use. Without a map no event is understood.
    void map(LV2_URID_Map* map, double sampleRate);

    /// Takes a time:Position event over; other atoms are left alone. [audio thread]
    void read(const LV2_Atom& atom) noexcept;

    LV2_URID sequence() const noexcept { return ids_.sequence; }

private:
    bool number(const LV2_Atom& atom, double& value) const noexcept;

    struct {
        LV2_URID sequence, object, blank, intType, longType, floatType, doubleType;
        LV2_URID position, speed, frame, beat, bar, barBeat, beatUnit, beatsPerBar, beatsPerMinute;
    } ids_{};
    double beatsPerBar_ = 4, beatUnit_ = 4, beatsPerMinute_ = 0;  // 0: unknown
};

}  // namespace quillworks::lv2
