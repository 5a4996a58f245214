// SPDX-License-Identifier: ISC
// What a host learns of an effect's parameters and meters.
#pragma once

#include <cstdint>

namespace VNK {

/// Parameter and meter tags: four characters, first letter in the most significant byte, or the
/// base of a family plus an index.
using Tag = std::uint32_t;

enum class ValueKind : std::int32_t { Toggle = 0, List = 1, Continuous = 2 };

/// Behaviour flags by bit.
enum ParameterFlag : std::uint32_t {
    isBypass = 1u << 0,
    isToggle = 1u << 1,
    isDecibel = 1u << 2,   // text and entry in dB
    isBipolar = 1u << 3,   // drawn from the middle
    isReadOnly = 1u << 4,  // meter value; not stored, not automatable
    isTrigger = 1u << 5,   // momentary; not stored
    isList = 1u << 6,      // whole-number steps, minimum to maximum
    isNotStored = 1u << 7,
    isNotAutomatable = 1u << 8,
    isHidden = 1u << 9,  // legacy entries
};
inline constexpr int kParameterFlagCount = 10;

/// Strings belong to the component and live as long as it does.
struct ParameterInfo {
    const char* key;  // lower-case identifier, unique within the effect
    Tag tag;
    const char* title;
    const char* shortTitle;  // for a narrow form; the title where none is given
    const char* group;       // display group, may be empty
    const char* help;        // one sentence, may be empty
    const char* unitKey;     // as declared: "Media.DB", "dB", ...
    const char* unit;        // as shown: "dB", "ms", "Hz", "%", ...
    const char* drivenBy;    // key of the toggle that takes this parameter over, or empty
    const char* minText;     // shown in place of the number at the minimum ("Off"), or empty
    const char* maxText;
    ValueKind kind;
    float minimum;
    float maximum;
    float defaultValue;
    std::uint32_t flags;
    std::int32_t index;       // within a family, else -1
    std::int32_t choices;     // texts of a list, 0 if none
    std::int32_t generation;  // release of the effect that brought it, from 0
    float origin;             // value where a knob's arc begins
    bool wraps;               // minimum and maximum are one place, as of an angle
    bool logarithmic;         // the control moves in equal ratios
    bool perChannel;          // the index is that of a channel
    bool isTempo;  // shows the host's tempo; a host that automates it moves its own instead

    bool has(ParameterFlag flag) const noexcept { return (flags & flag) != 0; }
    bool isStored() const noexcept { return !(flags & (isReadOnly | isTrigger | isNotStored)); }
    bool isAutomatable() const noexcept { return !(flags & (isReadOnly | isNotAutomatable)); }
};

/// A value that an effect measures. Not-a-number in its slot means "nothing to show".
struct MeterInfo {
    const char* key;
    Tag tag;
    const char* title;
    const char* unit;
    ValueKind kind;  // Continuous, or List where it has texts
    float minimum;
    float maximum;
    std::int32_t index;       // channel of a per-channel meter, or within a family; else -1
    std::int32_t choices;     // texts of a list, 0 if none
    std::int32_t generation;  // release of the effect that brought it, from 0
};

}  // namespace VNK
