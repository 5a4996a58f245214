// SPDX-License-Identifier: ISC
// Parts of the frame that need no effect: curves, the crossing, the guard of the tests.
#include <atomic>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "framework/conversion.h"
#include "framework/curve.h"
#include "framework/parameter_crossing.h"
#include "tests/support/audio_thread_guard.h"

namespace quillworks::test {
namespace {

TEST(AudioThreadGuard, SeesAllocationsAndLogs)
{
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const AudioThreadGuard guard;
    void* volatile p = ::operator new(1000);
    EXPECT_STREQ(AudioThreadGuard::takeViolation(), "malloc");
    ::operator delete(p);
    EXPECT_STREQ(AudioThreadGuard::takeViolation(), "free");
    std::cerr << "a stream\n";
    EXPECT_STREQ(AudioThreadGuard::takeViolation(), "fwrite");
    std::fprintf(stderr, "%d\n", 1);
    EXPECT_STREQ(AudioThreadGuard::takeViolation(), "vfprintf");
#endif
}

TEST(Curves, MeetTheirEndsAndTheirMiddle)
{
    EXPECT_FLOAT_EQ(curve::logarithmic.toValue(0.5f, 20, 20000), std::sqrt(20.f * 20000));
    EXPECT_FLOAT_EQ(curve::middleAt<2000>.toValue(0.5f, 1, 20), 2);
    EXPECT_FLOAT_EQ(curve::middleAt<2000>.toPosition(2, 1, 20), 0.5f);
    for (const Curve& c : {curve::linear, curve::logarithmic, curve::middleAt<2000>}) {
        EXPECT_EQ(c.toValue(0, 1, 20), 1);
        EXPECT_EQ(c.toValue(1, 1, 20), 20);
        EXPECT_EQ(c.toValue(std::nanf(""), 1, 20), 1);
    }
}

TEST(Conversions, AnEndThatSaysOffIsSilence)
{
    for (const float db : {-60.0f, -61.0f, -1e30f})
        EXPECT_EQ(conversion::decibelsOffAt<-60>(db), 0) << db;
    EXPECT_EQ(conversion::decibelsOffAt<-60>(-59.99f), conversion::decibels(-59.99f));
    EXPECT_EQ(conversion::decibelsOffAt<-60>(0), 1);
}

TEST(Crossing, LosesNoChangeBetweenThreads)
{
    constexpr std::size_t slots = 100;
    constexpr int rounds = 10000;  // times `slots`: a million sets
    std::vector<bool> triggers(slots, false);
    triggers[7] = true;
    ParameterCrossing crossing(triggers);
    std::vector<float> latest(slots, -1);
    std::atomic<bool> done{false};
    std::thread audio([&] {
        for (bool last = false; !last;) {
            last = done.load();
            crossing.drain([&](std::size_t slot, float value) {
                if (slot != 7) {
                    EXPECT_GE(value, latest[slot]) << "values go back in time";
                }
                latest[slot] = value;
            });
        }
    });
    for (int i = 0; i < rounds; ++i)
        for (std::size_t slot = 0; slot < slots; ++slot) crossing.write(slot, float(i));
    done = true;
    audio.join();
    for (std::size_t slot = 0; slot < slots; ++slot)
        EXPECT_EQ(latest[slot], slot == 7 ? 1 : float(rounds - 1)) << slot;
}

}  // namespace
}  // namespace quillworks::test
