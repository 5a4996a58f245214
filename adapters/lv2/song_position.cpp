// SPDX-License-Identifier: ISC
#include "adapters/lv2/song_position.h"

#include <cmath>

#include <lv2/atom/util.h>
#include <lv2/time/time.h>

namespace quillworks::lv2 {

void SongPosition::map(LV2_URID_Map* map, double sampleRate)
{
    prepare(sampleRate);
    if (!map) return;
    const auto id = [&](const char* uri) { return map->map(map->handle, uri); };
    ids_ = {id(LV2_ATOM__Sequence),      id(LV2_ATOM__Object),   id(LV2_ATOM__Blank),
            id(LV2_ATOM__Int),           id(LV2_ATOM__Long),     id(LV2_ATOM__Float),
            id(LV2_ATOM__Double),        id(LV2_TIME__Position), id(LV2_TIME__speed),
            id(LV2_TIME__frame),         id(LV2_TIME__beat),     id(LV2_TIME__bar),
            id(LV2_TIME__barBeat),       id(LV2_TIME__beatUnit), id(LV2_TIME__beatsPerBar),
            id(LV2_TIME__beatsPerMinute)};
}

bool SongPosition::number(const LV2_Atom& atom, double& value) const noexcept
{
    double v = 0;
    if (atom.type == ids_.floatType)
        v = reinterpret_cast<const LV2_Atom_Float&>(atom).body;
    else if (atom.type == ids_.doubleType)
        v = reinterpret_cast<const LV2_Atom_Double&>(atom).body;
    else if (atom.type == ids_.intType)
        v = reinterpret_cast<const LV2_Atom_Int&>(atom).body;
    else if (atom.type == ids_.longType)
        v = static_cast<double>(reinterpret_cast<const LV2_Atom_Long&>(atom).body);
    else
        return false;
    if (!std::isfinite(v)) return false;
    value = v;
    return true;
}

void SongPosition::read(const LV2_Atom& atom) noexcept
{
    if (ids_.object == 0 || (atom.type != ids_.object && atom.type != ids_.blank)) return;
    const auto& object = reinterpret_cast<const LV2_Atom_Object&>(atom);
    if (object.body.otype != ids_.position) return;
    const auto come = present();
    auto word = come;
    double frame = 0, beat = 0, bar = 0, barBeat = 0;
    bool hasFrame = false, hasBeat = false, hasBar = false, hasBarBeat = false;
    LV2_ATOM_OBJECT_FOREACH(&object, property)
    {
        const auto& value = property->value;
        const auto key = property->key;
        if (key == ids_.frame)
            hasFrame = number(value, frame);
        else if (key == ids_.beat)
            hasBeat = number(value, beat);
        else if (key == ids_.bar)
            hasBar = number(value, bar);
        else if (key == ids_.barBeat)
            hasBarBeat = number(value, barBeat);
        else if (key == ids_.speed)
            number(value, word.speed);
        else if (key == ids_.beatUnit)
            number(value, beatUnit_);
        else if (key == ids_.beatsPerBar)
            number(value, beatsPerBar_);
        else if (key == ids_.beatsPerMinute)
            number(value, beatsPerMinute_);
    }
    // What this event does not tell goes on from where it has come to. Beats per minute count beats
    // of the unit; the effects count quarter notes.
    const double quartersPerBeat = beatUnit_ > 0 ? 4 / beatUnit_ : 1;
    word.tempo = beatsPerMinute_ * quartersPerBeat;
    if (!hasBeat && hasBar && hasBarBeat) {
        beat = bar * beatsPerBar_ + barBeat;  // one signature since the start, as far as is known
        hasBeat = true;
    }
    // A jump that is told by the frame alone leaves the beat behind; hosts round their frames.
    const bool hasJumped = hasFrame && come.isFrameKnown && !(std::abs(frame - come.frame) <= 1);
    word.isBeatKnown = hasBeat || (come.isBeatKnown && !hasJumped);
    if (hasFrame) word.frame = frame;
    if (hasBeat) word.quarterNotes = beat * quartersPerBeat;
    word.isFrameKnown = come.isFrameKnown || hasFrame;
    set(word);
}

}  // namespace quillworks::lv2
