// SPDX-License-Identifier: ISC
#include "dsp/note_value.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace quillworks {
namespace {

const char* const kNamesStored[] = {"4/1",    "2/1",  "1/1",    "1/2 T",  "1/2",  "1/2 D",
                                    "1/4 T",  "1/4",  "1/4 D",  "1/8 T",  "1/8",  "1/8 D",
                                    "1/16 T", "1/16", "1/16 D", "1/32 T", "1/32", "1/32 D",
                                    "1/64 T", "1/64", "1/64 D"};

TEST(NoteValue, BothOrdersHoldTheSameNotesAndTheSearchRunsDown)
{
    EXPECT_TRUE(
        std::is_permutation(kNotesStored.begin(), kNotesStored.end(), kNotesByLength.begin()));
    for (std::size_t i = 1; i < kNotesByLength.size(); ++i)
        EXPECT_LT(kNotesByLength[i].length(), kNotesByLength[i - 1].length()) << i;
}

TEST(NoteValue, EachNoteSnapsToItselfAndHasItsIndexAndName)
{
    for (int i = 0; i < kNoteValues; ++i) {
        const auto note = kNotesStored[static_cast<std::size_t>(i)];
        EXPECT_EQ(noteIndexOf(note.value()), i);
        EXPECT_EQ(snapNoteValue(note.value()), note.value());
        EXPECT_EQ(noteValueText(note.value()), kNamesStored[i]);
        EXPECT_EQ(parseNoteValue(kNamesStored[i]), note.value());
    }
}

TEST(NoteValue, MidpointsGoToTheLongerNote)
{
    for (std::size_t i = 1; i < kNotesByLength.size(); ++i) {
        const float longer = kNotesByLength[i - 1].length(), shorter = kNotesByLength[i].length();
        const float midpoint = longer - (longer - shorter) * 0.5f;
        EXPECT_EQ(snapNoteValue(2 * midpoint), 2 * longer) << i;
        EXPECT_EQ(snapNoteValue(2 * std::nextafter(midpoint, 0.0f)), 2 * shorter) << i;
    }
}

TEST(NoteValue, ValuesOutsideTheTableGoToItsEnds)
{
    const float shortest = 2.0f / 3 / 64 * 2;
    const float infinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(snapNoteValue(100), 8);
    for (const float v : {0.0f, -1.0f, infinity, -infinity, std::nanf("")}) {
        EXPECT_FLOAT_EQ(snapNoteValue(v), shortest) << v;
        EXPECT_EQ(noteIndexOf(v), 18) << v;
    }
}

TEST(NoteValue, TempoConversionsAgreeWithEachOther)
{
    EXPECT_EQ(noteValueToMs(1, 120), 1000);
    EXPECT_EQ(noteValueToHertz(1, 120), 1);
    EXPECT_EQ(tempoRatio(120), 1);
    EXPECT_EQ(snapNoteValue(msToNoteValue(500, 120)), 0.5f);
    EXPECT_EQ(snapNoteValue(hertzToNoteValue(2, 120)), 0.5f);
    for (const float tempo : {20.0f, 97.3f, 120.0f, 300.0f})
        for (const auto note : kNotesStored) {
            const float v = note.value();
            EXPECT_NEAR(noteValueToMs(v, tempo), 120e3 * double(v) / tempo,
                        1e-6 * 120e3 * v / tempo);
            EXPECT_NEAR(noteValueToHertz(v, tempo) * noteValueToMs(v, tempo), 1000, 1e-3);
            EXPECT_EQ(snapNoteValue(msToNoteValue(noteValueToMs(v, tempo), tempo)), v) << tempo;
            EXPECT_EQ(snapNoteValue(hertzToNoteValue(noteValueToHertz(v, tempo), tempo)), v);
        }
}

TEST(NoteValue, WholeTripletAndDottedSoundThoughTheTableLacksThem)
{
    for (const float v : {1.333333f, 4.0f / 3, 3.0f}) {
        EXPECT_NE(snapNoteValue(v), v);
        EXPECT_EQ(soundingNoteValue(v), v);
        EXPECT_NEAR(parseNoteValue(noteValueText(v)).value(), v, 1e-6f);
    }
    EXPECT_EQ(noteValueText(3), "1/1 D");
    EXPECT_EQ(noteValueText(1.333333f), "1/1 T");
    EXPECT_EQ(soundingNoteValue(0.52f), 0.5f);
    EXPECT_EQ(noteValueText(0.52f), "1/4");
}

TEST(NoteValue, TextsAreReadAsPeopleWriteThem)
{
    const float third = 2 * 0.25f * 0.6666667f;
    const struct {
        const char* text;
        std::optional<float> value;
    } cases[] = {
        {"1/8D", 0.375f},
        {" 1 / 8 d ", 0.375f},
        {"1/8.", 0.375f},
        {"1/4t", third},
        {"3/16", 0.375f},
        {"0.75", 0.75f},
        {"2", 2.0f},
        {"1/8 X", std::nullopt},
        {"1/", std::nullopt},
        {"/4", std::nullopt},
        {"", std::nullopt},
        {"1/0", std::nullopt},
        {"-1/4", std::nullopt},
        {"nan", std::nullopt},
        {"inf", std::nullopt},
        {"0", std::nullopt},
        {"1/4 TD", std::nullopt},
        {"1/-4", std::nullopt},
        {"3e38/1", std::nullopt},
        {"quarter", std::nullopt},
        {"1/4 T 2", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(parseNoteValue(c.text), c.value) << '"' << c.text << '"';
}

}  // namespace
}  // namespace quillworks
