// SPDX-License-Identifier: ISC
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "dsp/lfo_voice.h"
#include "framework/note_sync.h"
#include "framework/song_clock.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;

VNK::Transport at(double quarterNotes, std::int64_t frame, double tempo, bool playing = true)
{
    return {.playing = playing,
            .positionKnown = true,
            .quarterNotes = quarterNotes,
            .frameKnown = true,
            .frame = frame,
            .tempo = tempo};
}

/// A song as a host tells it block by block, its positions in single precision if `rough`.
struct Song {
    double tempo = 133.7;
    int block = 64;
    bool rough = false, framesKnown = true;
    std::int64_t start = 0, loopAt = -1, loopTo = 0;

    /// Calls f(clock, offset) where each sub-block of `frames` frames begins.
    template <class F> void play(std::int64_t frames, F&& f) const
    {
        SongClock clock;
        clock.prepare(kRate);
        std::int64_t song = start;
        for (std::int64_t done = 0; done < frames;) {
            if (song == loopAt) song = loopTo;
            std::int64_t n = std::min<std::int64_t>(block, frames - done);
            if (loopAt > song) n = std::min(n, loopAt - song);
            double beat = double(song) * tempo / (60 * kRate);
            if (rough) beat = double(float(beat));
            auto transport = at(beat, song, tempo);
            transport.frameKnown = framesKnown;
            clock.begin(transport, int(n));
            for (std::int64_t i = 0; i < n; ++i)
                if ((done + i) % kSubBlock == 0) f(clock, int(i));
            done += n;
            song += n;
        }
    }
    std::vector<double> positions(std::int64_t frames) const
    {
        std::vector<double> all;
        play(frames, [&](const SongClock& clock, int offset) {
            all.push_back(clock.position(offset + kSubBlock));
        });
        return all;
    }
};

TEST(SongClock, PositionsAreTheSameBitsWhateverTheBlocks)
{
    for (const bool framesKnown : {true, false})
        for (const bool rough : {false, true}) {
            const auto frames = std::int64_t{20 * 48000};
            Song song{.rough = rough, .framesKnown = framesKnown};
            song.block = 4096;
            const auto expected = song.positions(frames);
            for (int block : {1, 37, 64, 1000}) {
                song.block = block;
                EXPECT_EQ(song.positions(frames), expected)
                    << block << (rough ? " rough" : "") << (framesKnown ? "" : " without frames");
            }
            EXPECT_NEAR(expected.back(), 20 * song.tempo / 60, 2e-3);
        }
}

TEST(SongClock, TellsJumpsFromRoundingAndFromTempoChanges)
{
    SongClock clock;
    clock.prepare(kRate);
    const double beatsPerBlock = 480 * 120 / (60 * kRate);
    double beat = 3;
    std::int64_t frame = 72000;
    const auto go = [&](double jumpBeats, std::int64_t jumpFrames, double tempo) {
        beat += jumpBeats, frame += jumpFrames;
        const auto before = clock.jumps();
        clock.begin(at(beat, frame, tempo), 480);
        beat += beatsPerBlock * tempo / 120, frame += 480;
        return clock.jumps() != before;
    };
    EXPECT_TRUE(go(0, 0, 120)) << "playing begins";
    EXPECT_FALSE(go(0, 0, 120));
    EXPECT_FALSE(go(5e-5, 0, 120)) << "rounding";
    EXPECT_FALSE(go(5e-4, 0, 120)) << "a little drift, which is followed";
    EXPECT_DOUBLE_EQ(clock.position(480), beat);
    EXPECT_TRUE(go(-1, 0, 120)) << "the position alone";
    EXPECT_TRUE(go(-1, -24000, 120)) << "the end of a loop, where both agree";
    EXPECT_FALSE(go(0, 0, 150)) << "a change of tempo is no jump";
    EXPECT_DOUBLE_EQ(clock.position(480), beat);
    clock.begin(at(beat, frame, 150, false), 480);
    EXPECT_FALSE(clock.isLocked()) << "stopped";
    EXPECT_TRUE(go(0, 0, 150)) << "and started again";
}

TEST(SongClock, TakesNonsenseForUnknown)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    SongClock clock;
    clock.prepare(kRate);
    for (const double beat : {nan, -1e300, 1e300, std::numeric_limits<double>::infinity()}) {
        clock.begin(at(beat, 0, 120), 64);
        EXPECT_FALSE(clock.isLocked()) << beat;
    }
    clock.begin(at(4, std::numeric_limits<std::int64_t>::max() - 3, 120), 64);
    EXPECT_TRUE(clock.isLocked());
    EXPECT_FALSE(clock.songFrame(0));
    clock.reset();
    for (const double tempo : {nan, -3.0, 0.0}) {
        clock.begin(at(4, 0, tempo), 64);
        EXPECT_FALSE(clock.isLocked()) << tempo;
    }
    clock.begin(at(-2.5, 0, 120), 24000);
    EXPECT_DOUBLE_EQ(clock.position(24000), -1.5) << "before the start of the song";
}

/// Voices as an effect runs them.
std::vector<double> modulation(const Song& song, LfoWave wave, bool isSynced, std::int64_t frames)
{
    LfoWaves waves;
    waves.select(wave);
    LfoCycle cycle;
    cycle.prepare(kRate);
    cycle.set(isSynced, 0.5, 0.7);
    LfoVoice voice;
    voice.prepare(kRate);
    std::vector<double> values;
    song.play(frames, [&](const SongClock& clock, int offset) {
        const double at = cycle.next(clock, offset);
        values.push_back(voice.next(waves, at, 0, cycle.hasJumped()));
    });
    return values;
}

TEST(LfoVoice, RepeatsTheSongFromAnyStartAndAnyBlocks)
{
    const std::int64_t frames = 10 * 48000, later = 3 * 48000;
    for (const auto wave :
         {LfoWave::Triangle, LfoWave::Sine, LfoWave::Sawtooth, LfoWave::Square, LfoWave::Random})
        for (const bool isSynced : {false, true}) {
            const auto whole = modulation({.block = 1000}, wave, isSynced, frames);
            EXPECT_EQ(modulation({.block = 37}, wave, isSynced, frames), whole);
            const auto part =
                modulation({.block = 64, .start = later}, wave, isSynced, frames - later);
            // What is rounded at an edge has to come to rest first.
            for (std::size_t i = 300; i < part.size(); ++i)
                ASSERT_NEAR(part[i], whole[i + std::size_t(later) / kSubBlock], 1e-6)
                    << int(wave) << (isSynced ? " synced " : " free ") << i;
        }
}

TEST(LfoVoice, GoesOverAJumpWithoutAStep)
{
    const Song loop{.tempo = 120, .block = 480, .loopAt = 48000 + 7200, .loopTo = 24000};
    for (const auto wave : {LfoWave::Triangle, LfoWave::Sine, LfoWave::Random}) {
        const auto y = modulation(loop, wave, true, 3 * 48000);
        double largest = 0;
        for (std::size_t i = 1; i < y.size(); ++i)
            largest = std::max(largest, std::abs(y[i] - y[i - 1]));
        EXPECT_LT(largest, 0.1) << int(wave);  // 2 in 30 sub-blocks beside the wave's own
    }
}

TEST(NoteSync, ConvertsSoThatWhatIsHeardStays)
{
    const NoteSync time{"sync", "beats", "time"};
    const auto read = [](const char* key) {
        return std::string_view(key) == "time"      ? 260.0f
               : std::string_view(key) == "lfotime" ? 2.1f
                                                    : 0.5f;
    };
    const auto on = time.moved("sync", 1, 0, read, 120);
    ASSERT_TRUE(on);
    EXPECT_STREQ(on->key, "beats");
    EXPECT_FLOAT_EQ(on->value, 0.25f) << "260 ms is nearest to an eighth at 120";
    const auto off = time.moved("sync", 0, 1, read, 90);
    ASSERT_TRUE(off);
    EXPECT_STREQ(off->key, "time");
    EXPECT_NEAR(off->value, 60000.0 / 90, 1e-3);
    EXPECT_NEAR(kLfoSync.moved("lfosync", 1, 0, read, 120)->value, 0.5f, 1e-6);
    EXPECT_NEAR(kLfoSync.moved("lfosync", 0, 1, read, 120)->value, 2, 1e-5);
    EXPECT_FALSE(time.moved("sync", 1, 1, read, 120)) << "no change";
    EXPECT_FALSE(time.moved("mix", 1, 0, read, 120));
}

struct RowSettings {
    float a, sync, beats, rate, wave, stereo, z;
};

TEST(NoteSync, RowsJoinIntoOneTableInTheirOrder)
{
    using R = RowSettings;
    static constexpr auto rows = joinedRows(
        std::array{Parameter<R>{"first", "Frst"_tag, "First", Kind::Float, 0, 1, 0, "", &R::a}},
        lfoRows<R>({&R::sync, &R::beats, &R::rate, &R::wave, &R::stereo}, {.beats = 2}, 1),
        std::array{Parameter<R>{"last", "Last"_tag, "Last", Kind::Float, 0, 1, 0, "", &R::z}});
    const char* keys[] = {"first", "lfosync", "lfobeatsnu", "lfotime", "wave", "stereo", "last"};
    ASSERT_EQ(rows.size(), std::size(keys));
    for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_STREQ(rows[i].key, keys[i]);
    EXPECT_EQ(rows[2].def, 2);
}

}  // namespace
}  // namespace quillworks::test
