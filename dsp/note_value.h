// SPDX-License-Identifier: ISC
// Note values of tempo-synced parameters: the table, snapping, tempo conversions and texts.
#pragma once
#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

namespace quillworks {

enum class NoteKind { Straight, Triplet, Dotted };

/// One entry of the table. The *value* of a note, as parameters hold it, is twice its length in
/// whole notes: 0.5 is a quarter note, 8 is four whole notes; at 120 BPM it is the time in seconds.
struct NoteValue {
    NoteKind kind = NoteKind::Straight;
    float base = 0;  // whole notes

    /// Effective length in whole notes.
    constexpr float length() const noexcept
    {
        if (kind == NoteKind::Straight) return base;
        return kind == NoteKind::Triplet ? base * 0.6666667f : base * 1.5f;
    }
    constexpr float value() const noexcept { return 2 * length(); }
    constexpr bool operator==(const NoteValue&) const = default;
};

inline constexpr int kNoteValues = 21;

/// By base, and triplet, straight, dotted within it: the order of stored indices.
extern const std::array<NoteValue, kNoteValues> kNotesStored;
/// By decreasing length: the order of the search.
extern const std::array<NoteValue, kNoteValues> kNotesByLength;

/// Stored index (0 .. 20) of the note nearest to `value`; halfway between two it is the longer one.
/// Values of 0 and below and values that are not finite give the shortest note.
int noteIndexOf(float value) noexcept;

/// The value of that note.
float snapNoteValue(float value) noexcept;

/// `snapNoteValue`, but the whole note's triplet and dotted value, which the table lacks and songs
/// may hold, stay what they are.
float soundingNoteValue(float value) noexcept;

/// A note value without the rounding of single precision: every note is a multiple of a 192nd. What
/// follows the song for long would otherwise drift off its triplets, by a sample in ten minutes.
/// Values that are no note stay as they are.
inline double exactNoteValue(double value) noexcept
{
    const double note = std::floor(value * 192 + 0.5) / 192;
    return std::abs(note - value) <= 1e-6 * value ? note : value;
}

// Conversions at a tempo in BPM (above 0). Those that give a note value are not snapped yet.

/// Tempo over 120 BPM: the tempo at which a note value is its time in seconds.
constexpr float tempoRatio(float tempo) noexcept
{
    return tempo * 0.008333334f;
}
constexpr float noteValueToMs(float value, float tempo) noexcept
{
    return value * 120000 / tempo;
}
constexpr float msToNoteValue(float ms, float tempo) noexcept
{
    return ms * tempo * 8.333334e-6f;
}
/// Rate in Hz of an oscillation whose period is the note value, and back.
constexpr float noteValueToHertz(float value, float tempo) noexcept
{
    return 0.008333334f / value * tempo;
}
constexpr float hertzToNoteValue(float hertz, float tempo) noexcept
{
    return 0.008333334f / hertz * tempo;
}

/// What sounds at `value`, as musicians write it: "4/1", "1/4", "1/8 T" (triplet), "1/8 D"
/// (dotted). [main thread]
std::string noteValueText(float value);

/// The value of such a text, whatever its blanks and case; "1/8." is dotted too, any fraction of a
/// whole note is taken ("3/16"), and a plain number is the value itself. Empty if the text is
/// neither, or not above 0. [main thread]
std::optional<float> parseNoteValue(std::string_view text);

}  // namespace quillworks
