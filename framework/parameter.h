// SPDX-License-Identifier: ISC
// The parameter table of an effect: one row says all about a parameter, and no second list exists.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "framework/conversion.h"
#include "framework/curve.h"
#include "vnk/parameter.h"

namespace quillworks {

using VNK::Tag;

/// "Thre"_tag: first letter in the most significant byte. (Not consteval: clang 14 leaves calls of
/// those in templates to the linker.)
constexpr Tag operator""_tag(const char* s, std::size_t n)
{
    if (n != 4) throw "a tag has four characters";
    Tag tag = 0;
    for (std::size_t i = 0; i < 4; ++i) tag = tag << 8 | static_cast<unsigned char>(s[i]);
    return tag;
}

/// ParameterNotes::flags of a gain in dB.
inline constexpr std::uint32_t kGainFlags = VNK::isDecibel | VNK::isBipolar;

enum class Kind : std::uint8_t {
    Float,    // continuous
    List,     // whole-number steps from min to max
    Toggle,   // on while not 0
    Trigger,  // acts once for each value other than 0; not stored
    Bypass,   // the effect's bypass switch
    Tempo,    // beats per minute: shows the host's tempo; what is set lasts until the host's next
              // word
    Meter,    // measured value that stands in the parameter list, read-only; a list if it has texts
    Reading,  // the same outside the parameter list
    Command,  // crosses like a parameter but is none: no key for the host, not stored
};

/// What texts, forms and the manual need to know beyond the value itself.
struct ParameterNotes {
    const char* group = "";                   // display group ("Curve", "Envelope")
    const char* help = "";                    // one sentence
    const char* shortTitle = "";              // for a narrow form
    const Curve* curve = &curve::linear;      // of the control
    std::span<const char* const> texts = {};  // of a list, from the minimum on
    const char* minText = "";                 // shown in place of the number at the minimum ("Off")
    const char* maxText = "";
    const char* drivenBy = "";               // key of the toggle that takes this parameter over
    std::string (*toText)(float) = nullptr;  // in place of number and unit
    std::optional<float> (*fromText)(std::string_view) = nullptr;  // tried before a number
    std::uint32_t flags = 0;           // VNK::ParameterFlag beyond those of the kind
    std::optional<float> origin = {};  // where a knob's arc begins; else the minimum, or the middle
    bool wraps = false;                // the ends are one place, as of an angle
    /// Release of the effect that brought the row, counted from 0: formats that number their ports
    /// put later ones behind all earlier ones.
    int generation = 0;
};

/// A row that stands for `count` parameters: key + index, tag + index.
template <class Settings> struct Family {
    int count = 0;                                // 0: no family
    float& (*element)(Settings&, int) = nullptr;  // where the value of an index goes
    float (*defaultAt)(int) = nullptr;            // where defaults differ by index
    bool perChannel = false;  // the index is a channel; readings: only channels present are shown
};

template <class Settings> struct Parameter {
    const char* key;  // stored in songs and presets: never change
    Tag tag;
    const char* title;
    Kind kind = Kind::Float;
    float min = 0, max = 1, def = 0;  // in `unit`
    const char* unit = "";
    float Settings::*field = nullptr;       // null: nothing to store (meters, triggers)
    unsigned dirty = 0;                     // groups to recompute when the value changes
    Conversion forward = conversion::asIs;  // `unit` to what the field holds
    ParameterNotes notes = {};
    Family<Settings> family = {};

    int count() const noexcept { return family.count ? family.count : 1; }
    bool isMeter() const noexcept { return kind == Kind::Meter || kind == Kind::Reading; }
    float defaultAt(int i) const { return family.defaultAt ? family.defaultAt(i) : def; }
};

}  // namespace quillworks
