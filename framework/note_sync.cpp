// SPDX-License-Identifier: ISC
#include "framework/note_sync.h"

#include <cmath>
#include <cstdio>

namespace quillworks {

std::string noteRowText(float value)
{
    if (std::abs(soundingNoteValue(value) - value) <= 1e-5f * value) return noteValueText(value);
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", double(value));
    return text;
}

float NoteSync::noteOf(float value, float tempo) const noexcept
{
    return snapNoteValue(unit == Unit::Milliseconds ? msToNoteValue(value, tempo)
                                                    : hertzToNoteValue(value, tempo));
}

float NoteSync::freeOf(float note, float tempo) const noexcept
{
    const float sounding = soundingNoteValue(note);
    return unit == Unit::Milliseconds ? noteValueToMs(sounding, tempo)
                                      : noteValueToHertz(sounding, tempo);
}

}  // namespace quillworks
