// SPDX-License-Identifier: ISC
// Parameters that follow the song's tempo: rows of note values, the rows of a low-frequency
// oscillator, and the conversion when a switch changes between note values and times.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "dsp/lfo_voice.h"
#include "dsp/note_value.h"
#include "framework/parameter.h"

namespace quillworks {

/// A note's name where the value is one; otherwise what is set, though the nearest note sounds.
/// [main thread]
std::string noteRowText(float value);

/// A row of note values, in the units of dsp/note_value.h (0.5 is a quarter note), from 1/64
/// triplet to 4/1. The settings get what sounds: the nearest note.
template <class S>
constexpr Parameter<S> noteRow(const char* key, Tag tag, const char* title, float def,
                               float S::*field, unsigned dirty, ParameterNotes notes)
{
    notes.curve = &curve::logarithmic;
    notes.toText = noteRowText;
    notes.fromText = parseNoteValue;
    return {key, tag,   title, Kind::Float,       0.0208333f, 8, def,
            "",  field, dirty, soundingNoteValue, notes,      {}};
}

/// A note value and a time or rate, of which a switch says which counts. Call from
/// AudioEffectComponent::changed:
/// @code
///   if (const auto move = kSync.moved(parameter.key, now, before, read, tempo()))
///       set(move->key, move->value, by);
/// @endcode
struct NoteSync {
    enum class Unit { Milliseconds, Hertz };

    const char* sync;   // key of the switch
    const char* beats;  // key of the note value
    const char* free;   // key of the time or rate
    Unit unit = Unit::Milliseconds;

    struct Move {
        const char* key;
        float value;  // to be limited to the range of its parameter
    };
    /// What has to be set when the parameter `key` has gone from `before` to `now`, so that what is
    /// heard stays: switched on, the note nearest to the time; switched off, the time of the note.
    /// `read` gives the value of a key; `tempo` in quarter notes per minute. [any thread]
    template <class Read>
    std::optional<Move> moved(std::string_view key, float now, float before, Read&& read,
                              float tempo) const noexcept
    {
        if (key != sync || now == before) return {};
        return now != 0 ? Move{beats, noteOf(read(free), tempo)}
                        : Move{free, freeOf(read(beats), tempo)};
    }

private:
    float noteOf(float value, float tempo) const noexcept;
    float freeOf(float note, float tempo) const noexcept;
};

/// Where the settings of an oscillator's five rows lie.
template <class S> struct LfoFields {
    float S::*sync;    // 0 off
    float S::*beats;   // note value of one period
    float S::*rate;    // Hz
    float S::*wave;    // an LfoWave
    float S::*stereo;  // degrees by which right channels are ahead
};

struct LfoDefaults {
    bool sync = false;
    float beats = 4, rate = 1;
    LfoWave wave = LfoWave::Triangle;
    float stereo = 0;
};

inline constexpr const char* kLfoWaveTexts[] = {"Triangle", "Sine", "Sawtooth", "Square", "Random"};
inline constexpr NoteSync kLfoSync{"lfosync", "lfobeatsnu", "lfotime", NoteSync::Unit::Hertz};

/// The rows of an oscillator in the order of every form: switch, period, rate, wave, stereo phase.
template <class S>
constexpr std::array<Parameter<S>, 5> lfoRows(const LfoFields<S>& to, const LfoDefaults& def,
                                              unsigned dirty)
{
    using namespace conversion;
    constexpr const char* kGroup = "LFO";
    return {
        Parameter<S>{"lfosync",
                     "LFOS"_tag,
                     "LFO Sync",
                     Kind::Toggle,
                     0,
                     1,
                     def.sync ? 1.0f : 0.0f,
                     "",
                     to.sync,
                     dirty,
                     asIs,
                     {.group = kGroup,
                      .help = "The modulation follows the song's tempo and position.",
                      .shortTitle = "Sync"}},
        noteRow<S>("lfobeatsnu", "LFBN"_tag, "LFO Beats", def.beats, to.beats, dirty,
                   {.group = kGroup,
                    .help = "Period of the modulation as a note value.",
                    .shortTitle = "Beats"}),
        Parameter<S>{"lfotime",
                     "LFSp"_tag,
                     "LFO Speed",
                     Kind::Float,
                     0.01f,
                     20,
                     def.rate,
                     "Hz",
                     to.rate,
                     dirty,
                     asIs,
                     {.group = kGroup,
                      .help = "Rate of the modulation while it does not follow the tempo.",
                      .shortTitle = "Speed",
                      .curve = &curve::logarithmic,
                      .drivenBy = "lfosync"}},
        Parameter<S>{"wave",
                     "LFWv"_tag,
                     "LFO Waveform",
                     Kind::List,
                     0,
                     4,
                     static_cast<float>(def.wave),
                     "",
                     to.wave,
                     dirty,
                     asIs,
                     {.group = kGroup,
                      .help = "Course of the modulation over one period; Random repeats with the "
                              "song.",
                      .shortTitle = "Wave",
                      .texts = kLfoWaveTexts}},
        Parameter<S>{"stereo",
                     "LFSt"_tag,
                     "Stereo Phase",
                     Kind::Float,
                     0,
                     180,
                     def.stereo,
                     "°",
                     to.stereo,
                     dirty,
                     asIs,
                     {.group = kGroup,
                      .help = "How far the right channels are ahead within the period.",
                      .shortTitle = "Stereo"}},
    };
}

/// One table of several: rows and groups of rows in their order.
template <class S, std::size_t... sizes>
constexpr auto joinedRows(const std::array<Parameter<S>, sizes>&... groups)
{
    std::array<Parameter<S>, (sizes + ...)> all{};
    std::size_t at = 0;
    const auto add = [&](const auto& group) {
        for (const auto& row : group) all[at++] = row;
    };
    (add(groups), ...);
    return all;
}

}  // namespace quillworks
