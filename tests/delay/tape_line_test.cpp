// SPDX-License-Identifier: ISC
// The tape under every motor: what can be played before it is recorded, and what is then heard.
#include "delay/tape_line.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

constexpr float kSpeeds[] = {0.125f, 0.13f, 0.2f, 0.25f, 0.49f, 0.5f, 1, 1.001f, 1.7f, 2.6f, 4};

/// The tape fed with noise for `subBlocks` sub-blocks of random ramps, its length gliding between
/// short ones, played in pieces of at most `longest` samples.
Signal<float> played(int longest, std::uint32_t seed, int subBlocks)
{
    std::mt19937 random(seed);
    TapeLine tape;
    tape.prepare(1, 8000, 40);
    tape.reset();
    Signal<float> x(noise<float>(static_cast<std::size_t>(subBlocks) * kSubBlock, seed)),
        y(x.size());
    float speed = 1;
    for (int at = 0; at < static_cast<int>(x.size()); at += kSubBlock) {
        if (random() % 3 == 0) tape.setLength(static_cast<int>(random() % 5 * (random() % 12)));
        const float before = std::exchange(speed, kSpeeds[random() % std::size(kSpeeds)]);
        tape.begin({random() % 4 ? before : speed, speed});
        for (int phase = 0; phase < kSubBlock;) {
            const int n = std::min(longest, kSubBlock - phase);
            const int run = tape.run(phase, n);
            if (run < 1 || run > n) {
                ADD_FAILURE() << run << " of " << n << " at " << phase << ", speed " << before
                              << " to " << speed << ", seed " << seed;
                return y;
            }
            float* const out[] = {&y[static_cast<std::size_t>(at + phase)]};
            const float* const in[] = {&x[static_cast<std::size_t>(at + phase)]};
            tape.play(phase, run, out);
            tape.record(in, run);
            phase += run;
        }
    }
    return y;
}

TEST(TapeLine, PlaysAtLeastOneSampleAtEverySpeedLengthAndPhase)
{
    // Piece by piece as long as they may be, or sample by sample: what is heard has been recorded,
    // so it is the same.
    for (std::uint32_t seed = 1; seed <= 60; ++seed)
        ASSERT_EQ(played(kSubBlock, seed, 400), played(1, seed, 400)) << seed;
    // Every ramp there is, at length 0.
    TapeLine tape;
    tape.prepare(1, 8000, 40);
    for (const float from : kSpeeds)
        for (const float to : kSpeeds) {
            tape.reset();
            tape.begin({from, to});
            for (int phase = 0; phase < kSubBlock; ++phase)
                for (int n = 1; n <= kSubBlock - phase; ++n)
                    ASSERT_GE(tape.run(phase, n), 1) << from << " to " << to << " at " << phase;
        }
}

}  // namespace
}  // namespace quillworks::test
