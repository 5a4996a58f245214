// SPDX-License-Identifier: ISC
// What the reverbs have in common in their forms: pre-delay, cuts, width, ducking, mix, readings.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "framework/effect_component.h"
#include "framework/note_sync.h"
#include "framework/parameter.h"
#include "framework/peak_levels.h"

namespace quillworks {

/// Base of a reverb's settings. What has no row in an effect's table keeps the value it has here.
struct ReverbSettings {
    float preDelay = 0;                  // s
    float preDelaySync = 0;              // a note value instead of a time while not 0
    float preDelayBeats = 0.0625f;       // note value
    float lowCut = 20, highCut = 20000;  // Hz
    float width = 1;                     // of the wet signal
    float duck = 0;                      // dB
    float level = 1;                     // linear, of the wet signal
    float mix = 1;                       // fraction wet

    /// Groups of derived values; an effect's own begin at kFirstOwnGroup.
    enum Group : unsigned { PreDelay = 1, Tone = 2, Duck = 4, Mix = 8 };
    static constexpr unsigned kFirstOwnGroup = 16;
};

/// Ends of the cuts' ranges, where they are off.
inline constexpr float kReverbLowEnd = 20, kReverbHighEnd = 20000;
inline constexpr float kMostReverbDuck = 24;          // dB
inline constexpr float kLongestReverbPreDelay = 250;  // ms, as it is set; a note may last longer
inline constexpr double kLongestPreDelay = 1;         // s
inline constexpr NoteSync kPreDelaySync{"predelaysync", "predelaybeats", "predelay"};

// clang-format off
template <class S> constexpr std::array<Parameter<S>, 1> preDelayRow(float ms)
{
    return {
        Parameter<S>{"predelay", "PreD"_tag, "Pre-Delay", Kind::Float, 0, kLongestReverbPreDelay, ms, "Media.Milliseconds", &S::preDelay, S::PreDelay, conversion::milliseconds,
         {.group = "Time", .help = "Time before the room answers."}},
    };
}

/// For those whose pre-delay may follow the tempo; see kPreDelaySync.
template <class S> constexpr std::array<Parameter<S>, 3> preDelayRows()
{
    auto time = preDelayRow<S>(0)[0];
    time.notes.drivenBy = "predelaysync";
    auto beats = noteRow<S>("predelaybeats", "PDBt"_tag, "Pre-Delay Beats", 0.0625f, &S::preDelayBeats, S::PreDelay,
         {.group = "Time", .help = "Pre-delay as a note value.", .shortTitle = "Beats"});
    beats.max = 1;
    return {
        time,
        Parameter<S>{"predelaysync", "PDSy"_tag, "Pre-Delay Sync", Kind::Toggle, 0, 1, 0, "", &S::preDelaySync, S::PreDelay, conversion::asIs,
         {.group = "Time", .help = "Follows the song's tempo: the pre-delay is a note value instead of a time.", .shortTitle = "Sync"}},
        beats,
    };
}

template <class S> constexpr std::array<Parameter<S>, 1> reverbLowCutRow(float def = kReverbLowEnd)
{
    return {
        Parameter<S>{"lowcut", "LoCt"_tag, "Low Cut", Kind::Float, kReverbLowEnd, 1000, def, "Hz", &S::lowCut, S::Tone, conversion::asIs,
         {.group = "Output", .help = "Takes the lows from the reverberation.", .curve = &curve::logarithmic, .minText = "Off"}},
    };
}

template <class S> constexpr std::array<Parameter<S>, 1> reverbHighCutRow()
{
    return {
        Parameter<S>{"highcut", "HiCt"_tag, "High Cut", Kind::Float, 1000, kReverbHighEnd, kReverbHighEnd, "Hz", &S::highCut, S::Tone, conversion::asIs,
         {.group = "Output", .help = "Takes the highs from the reverberation.", .curve = &curve::logarithmic, .maxText = "Off", .origin = kReverbHighEnd}},
    };
}

template <class S> constexpr std::array<Parameter<S>, 2> reverbWidthRows()
{
    using namespace conversion;
    return {
        Parameter<S>{"width", "Wdth"_tag, "Width", Kind::Float, 0, 150, 100, "%", &S::width, S::Tone, percent,
         {.group = "Output", .help = "How far apart left and right of the reverberation are heard."}},
        Parameter<S>{"duck", "Duck"_tag, "Duck", Kind::Float, 0, kMostReverbDuck, 0, "dB", &S::duck, S::Duck, asIs,
         {.group = "Output", .help = "How far the reverberation steps back while the input sounds, at any level."}},
    };
}

template <class S> constexpr std::array<Parameter<S>, 1> reverbMotionRow(float def, float S::*field, unsigned dirty)
{
    return {
        Parameter<S>{"motion", "Motn"_tag, "Motion", Kind::Float, 0, 100, def, "%", field, dirty, conversion::percent,
         {.group = "Room", .help = "How far the reverberation moves within, so that no tone of its own stands out."}},
    };
}

template <class S> constexpr std::array<Parameter<S>, 1> reverbFreezeRow(float S::*field, unsigned dirty)
{
    return {
        Parameter<S>{"freeze", "Frez"_tag, "Freeze", Kind::Toggle, 0, 1, 0, "", field, dirty, conversion::asIs,
         {.group = "Decay", .help = "What rings goes on for ever, and nothing is added until it is released."}},
    };
}

/// Mix and bypass.
template <class S> constexpr std::array<Parameter<S>, 2> reverbMixRows(float mix)
{
    return {
        Parameter<S>{"mix", "Mix "_tag, "Mix", Kind::Float, 0, 100, mix, "%", &S::mix, S::Mix, conversion::percent,
         {.group = "Output", .help = "From the dry signal to the reverberation, at equal power."}},
        Parameter<S>{"bypass", "Bypa"_tag, "Bypass", Kind::Bypass, 0, 1, 0, "", nullptr, 0, conversion::asIs,
         {.group = "Output", .help = "Passes the input as it is."}},
    };
}

/// What WetPath publishes.
template <class S> constexpr std::array<Parameter<S>, 3> reverbReadings()
{
    using Levels = PeakLevels<float>;
    return {
        Parameter<S>{"duckreduction", "DkRd"_tag, "Duck Reduction", Kind::Meter, 0, kMostReverbDuck, 0, "dB"},
        Levels::inputRow<S>(Kind::Meter),
        Levels::outputRow<S>(Kind::Meter),
    };
}
// clang-format on

/// Pre-delay in force in seconds, at a tempo in quarter notes per minute.
inline double preDelaySeconds(const ReverbSettings& s, double tempo) noexcept
{
    const double time = s.preDelaySync != 0 ? exactNoteValue(double(s.preDelayBeats)) * 120 / tempo
                                            : double(s.preDelay);
    return std::min(time, kLongestPreDelay);
}
/// The same for a component: `read` gives the value of a key of preDelayRows().
template <class Read> double readPreDelaySeconds(Read&& read, double tempo) noexcept
{
    ReverbSettings s;
    s.preDelay = conversion::milliseconds(read("predelay"));
    s.preDelaySync = read("predelaysync");
    s.preDelayBeats = soundingNoteValue(read("predelaybeats"));
    return preDelaySeconds(s, tempo);
}

/// No latency, and a tail of so many seconds, pre-delay included; endless while frozen.
inline Delays reverbDelays(double tailSeconds, bool isFrozen, double sampleRate) noexcept
{
    if (isFrozen) return {0, VNK::kEndlessTail};
    const double samples = std::ceil(tailSeconds * sampleRate);
    return {0, static_cast<std::uint32_t>(std::min(samples, 4294967294.0))};
}

}  // namespace quillworks
