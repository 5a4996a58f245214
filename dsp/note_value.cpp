// SPDX-License-Identifier: ISC
#include "dsp/note_value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

namespace quillworks {
namespace {

constexpr auto S = NoteKind::Straight;
constexpr auto T = NoteKind::Triplet;
constexpr auto D = NoteKind::Dotted;

constexpr NoteValue kWholeTriplet{T, 1};
constexpr NoteValue kWholeDotted{D, 1};

bool isAbout(float value, NoteValue note)
{
    // Songs and texts hold the value with about seven digits.
    return std::abs(value - note.value()) <= 1e-5f * note.value();
}

std::string nameOf(NoteValue note)
{
    const int whole = static_cast<int>(std::max(note.base, 1.0f));
    const int part = static_cast<int>(std::max(1 / note.base, 1.0f));
    std::string name = std::to_string(whole) + "/" + std::to_string(part);
    if (note.kind == T) name += " T";
    if (note.kind == D) name += " D";
    return name;
}

/// Takes a positive decimal number off the front of `text`.
std::optional<float> takeNumber(std::string_view& text)
{
    float number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !std::isfinite(number) || number <= 0) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

std::optional<NoteKind> kindOf(std::string_view suffix)
{
    if (suffix.empty()) return S;
    if (suffix == "t" || suffix == "T") return T;
    if (suffix == "d" || suffix == "D" || suffix == ".") return D;
    return std::nullopt;
}

}  // namespace

// clang-format off
const std::array<NoteValue, kNoteValues> kNotesStored{{
               {S, 4.0f},
               {S, 2.0f},
               {S, 1.0f},
    {T, 1/2.f},  {S, 1/2.f},  {D, 1/2.f},
    {T, 1/4.f},  {S, 1/4.f},  {D, 1/4.f},
    {T, 1/8.f},  {S, 1/8.f},  {D, 1/8.f},
    {T, 1/16.f}, {S, 1/16.f}, {D, 1/16.f},
    {T, 1/32.f}, {S, 1/32.f}, {D, 1/32.f},
    {T, 1/64.f}, {S, 1/64.f}, {D, 1/64.f},
}};

const std::array<NoteValue, kNoteValues> kNotesByLength{{
    {S, 4.0f},    {S, 2.0f},    {S, 1.0f},
    {D, 1/2.f},  {S, 1/2.f},
    {D, 1/4.f},  {T, 1/2.f},  {S, 1/4.f},
    {D, 1/8.f},  {T, 1/4.f},  {S, 1/8.f},
    {D, 1/16.f}, {T, 1/8.f},  {S, 1/16.f},
    {D, 1/32.f}, {T, 1/16.f}, {S, 1/32.f},
    {D, 1/64.f}, {T, 1/32.f}, {S, 1/64.f},
    {T, 1/64.f},
}};
// clang-format on

int noteIndexOf(float value) noexcept
{
    auto nearest = kNotesByLength.end() - 1;
    if (std::isfinite(value) && value > 0) {
        const float x = value * 0.5f;
        nearest = std::adjacent_find(kNotesByLength.begin(), kNotesByLength.end(),
                                     [x](NoteValue longer, NoteValue shorter) {
                                         const float a = longer.length();
                                         return x >= a - (a - shorter.length()) * 0.5f;
                                     });
        if (nearest == kNotesByLength.end()) --nearest;
    }
    const auto stored = std::find(kNotesStored.begin(), kNotesStored.end(), *nearest);
    return static_cast<int>(stored - kNotesStored.begin());
}

float snapNoteValue(float value) noexcept
{
    return kNotesStored[static_cast<std::size_t>(noteIndexOf(value))].value();
}

float soundingNoteValue(float value) noexcept
{
    return isAbout(value, kWholeTriplet) || isAbout(value, kWholeDotted) ? value
                                                                         : snapNoteValue(value);
}

std::string noteValueText(float value)
{
    for (const auto note : {kWholeTriplet, kWholeDotted})
        if (isAbout(value, note)) return nameOf(note);
    return nameOf(kNotesStored[static_cast<std::size_t>(noteIndexOf(value))]);
}

std::optional<float> parseNoteValue(std::string_view text)
{
    std::string dense;
    std::copy_if(text.begin(), text.end(), std::back_inserter(dense),
                 [](char c) { return c != ' ' && c != '\t'; });
    std::string_view rest = dense;
    const auto numerator = takeNumber(rest);
    if (!numerator) return std::nullopt;
    if (rest.empty()) return numerator;
    if (rest.front() != '/') return std::nullopt;
    rest.remove_prefix(1);
    // Digits only: the point of "1/8." belongs to the note, not to the number.
    const auto digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    std::string_view denominatorText = rest.substr(0, digits);
    const auto denominator = takeNumber(denominatorText);
    const auto kind = kindOf(rest.substr(digits));
    if (!denominator || !kind) return std::nullopt;
    const float value = NoteValue{*kind, *numerator / *denominator}.value();
    return std::isfinite(value) && value > 0 ? std::optional(value) : std::nullopt;
}

}  // namespace quillworks
