// SPDX-License-Identifier: ISC
// What the echo effects have in common in their forms: the loop, ducking, freeze, mix, readings.
#pragma once

#include <array>
#include <cmath>

#include "delay/step_line.h"
#include "framework/effect_component.h"
#include "framework/note_sync.h"
#include "framework/parameter.h"

namespace quillworks {

/// Base of an echo effect's settings.
struct EchoSettings {
    float feedback;         // 0 .. 1
    float lowCut, highCut;  // Hz
    float duck;             // dB
    float recover;          // s
    float freeze;           // on while not 0
    float mix;              // fraction wet

    /// Groups of derived values; an effect's own begin at kFirstOwnGroup.
    enum Group : unsigned { Loop = 1, Duck = 2, Mix = 4 };
    static constexpr unsigned kFirstOwnGroup = 8;
};

struct EchoDefaults {
    float feedback, lowCut, highCut, duck, recover, mix;  // as the user sees them
};

/// Ends of the cuts' ranges, where they are off.
inline constexpr float kEchoLowEnd = 20, kEchoHighEnd = 16000;
inline constexpr Tag kEchoPeak = 1000;
inline constexpr int kMostEchoChannels = 16;
inline constexpr float kMostDuck = 24;
inline constexpr float kLongestDelayShown = 6144000;
inline constexpr const char* kOffOn[] = {"Off", "On"};

// clang-format off
/// The switch between note value and time, and both; see NoteSync.
template <class S>
constexpr std::array<Parameter<S>, 3> echoTimeRows(float beats, float ms, float S::*sync,
                                                   float S::*note, float S::*time, unsigned dirty)
{
    using namespace conversion;
    return {
        Parameter<S>{"sync", "Sync"_tag, "Delay Sync", Kind::Toggle, 0, 1, 1, "", sync, dirty, asIs,
         {.group = "Time", .help = "Follows the song's tempo: the delay is a note value instead of a time.", .shortTitle = "Sync"}},
        noteRow<S>("beatsnu", "BtNu"_tag, "Delay Beats", beats, note, dirty,
         {.group = "Time", .help = "Delay as a note value.", .shortTitle = "Beats"}),
        Parameter<S>{"time", "Time"_tag, "Delay Time", Kind::Float, 1, 4000, ms, "Media.Milliseconds", time, dirty, milliseconds,
         {.group = "Time", .help = "Delay while it does not follow the tempo.", .shortTitle = "Time", .curve = &curve::logarithmic, .drivenBy = "sync"}},
    };
}

template <class S> constexpr std::array<Parameter<S>, 1> echoFeedbackRow(const EchoDefaults& def)
{
    return {
        Parameter<S>{"feedback", "FBLv"_tag, "Feedback", Kind::Float, 0, 100, def.feedback, "%", &S::feedback, S::Loop, conversion::percent,
         {.group = "Feedback", .help = "How much of each echo comes back as the next; at 100 % it stays."}},
    };
}

/// From the cuts to the bypass.
template <class S> constexpr std::array<Parameter<S>, 8> echoRows(const EchoDefaults& def)
{
    using namespace conversion;
    using P = Parameter<S>;
    return {
        P{"locut",   "Loct"_tag, "Low Cut",  Kind::Float,  kEchoLowEnd, 3200, def.lowCut, "Hz",                &S::lowCut,  S::Loop, asIs,
         {.group = "Tone", .help = "Takes the lows from the echoes, more with every repeat.", .curve = &curve::logarithmic, .minText = "Off"}},
        P{"hicut",   "Hict"_tag, "High Cut", Kind::Float,  400, kEchoHighEnd, def.highCut, "Hz",               &S::highCut, S::Loop, asIs,
         {.group = "Tone", .help = "Takes the highs from the echoes, more with every repeat.", .curve = &curve::logarithmic, .maxText = "Off", .origin = kEchoHighEnd}},
        P{"duck",    "Duck"_tag, "Ducking",  Kind::Float,  0,  kMostDuck, def.duck,       "dB",                 &S::duck,    S::Duck, asIs,
         {.group = "Ducking", .help = "How far the echoes step back while the input sounds, at any level."}},
        P{"recover", "Rcvr"_tag, "Recovery", Kind::Float,  50, 2000,      def.recover,    "Media.Milliseconds", &S::recover, S::Duck, milliseconds,
         {.group = "Ducking", .help = "Time in which the echoes come back when the input pauses.", .curve = &curve::logarithmic}},
        P{"freeze",  "Frez"_tag, "Freeze",   Kind::Toggle, 0,  1,         0,              "",                   &S::freeze,  S::Loop, asIs,
         {.group = "Feedback", .help = "Closes the loop: what is in it repeats unchanged until released."}},
        P{"mix",     "Mix "_tag, "Mix",      Kind::Float,  0,  100,       def.mix,        "%",                  &S::mix,     S::Mix,  percent,
         {.group = "Output", .help = "From the dry signal to the echoes; in the middle both are full."}},
        P{"tempo",   "Tmpo"_tag, "Tempo",    Kind::Tempo,  10, 400,       120,            "bpm",                nullptr,     0,       asIs,
         {.group = "Time", .help = "Tempo of the song."}},
        P{"bypass",  "Bypa"_tag, "Bypass",   Kind::Bypass, 0,  1,         0,              "",                   nullptr,     0,       asIs,
         {.group = "Output", .help = "Passes the input as it is."}},
    };
}

/// What EchoOutput publishes.
template <class S> constexpr std::array<Parameter<S>, 4> echoReadings()
{
    using P = Parameter<S>;
    return {
        P{"echopeak",     kEchoPeak,  "Echo Peak",     Kind::Reading, -144, 20, -144, "dB", nullptr, 0, conversion::asIs, {},
         {.count = kMostEchoChannels, .perChannel = true}},
        P{"duckgain",     "DckG"_tag, "Ducking Gain",  Kind::Meter, -kMostDuck, 0, 0, "dB"},
        P{"frozen",       "Frzn"_tag, "Frozen",        Kind::Meter, 0, 1, 0, "", nullptr, 0, conversion::asIs, {.texts = kOffOn}},
        P{"longestdelay", "LinD"_tag, "Longest Delay", Kind::Meter, 0, kLongestDelayShown, 0, "samples"},
    };
}
// clang-format on

/// Delay and tail of an echo effect whose longest delay is `samples`. `feedback` 0 .. 1.
inline Delays echoDelays(int samples, double feedback, bool isFrozen) noexcept
{
    if (isFrozen || feedback >= 0.99) return {0, VNK::kEndlessTail};
    const double rounds = 1 + std::ceil(60 / (-20 * std::log10(std::max(feedback, 0.001))));
    return {0, static_cast<std::uint32_t>(std::min(samples * rounds, 4294967294.0))};
}

}  // namespace quillworks
