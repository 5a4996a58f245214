// SPDX-License-Identifier: ISC
// The responses that come with the effects, as the build has made them.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "reverb/decay_analysis.h"
#include "reverb/response_search.h"
#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

/// Songs name them, and tell by the hash whether a file is the one they knew.
struct Made {
    const char* name;
    std::uint64_t hash;
    double t60;  // of the octave at 1 kHz in seconds, 0: not told
};
constexpr Made kMade[] = {
    {"Booth", 0x96b886dbf67dc165u, 0.235},      {"Wood Room", 0x3470c770f7940fe0u, 0.58},
    {"Live Chamber", 0x3c7db7e35abb83d5u, 1.8}, {"Concert Hall", 0x924b50479690a82fu, 2.0},
    {"Opera", 0xe6489244df297f34u, 1.35},       {"Stone Church", 0xec9bf867dc117b90u, 3.3},
    {"Cathedral", 0x176b0c3847b293f4u, 6.6},    {"Car Park", 0x8f75e06acaa461b0u, 2.8},
    {"Stairwell", 0xc44532d0a2445b3bu, 2.6},    {"Steel Plate", 0x279937277d687245u, 0},
    {"Twin Spring", 0xe639d87a46cedc7fu, 0},    {"Small Speaker", 0x980a7c25c4214d2du, 0},
};

TEST(FactoryResponses, AreTheSameInEveryBuild)
{
    for (const auto& made : kMade) {
        SCOPED_TRACE(made.name);
        const auto loaded = loadResponse(std::string("factory:") + made.name, {}, {});
        ASSERT_EQ(loaded.outcome, LoadedResponse::Outcome::Loaded) << loaded.reason;
        EXPECT_EQ(loaded.identity.hash, made.hash);
        EXPECT_EQ(loaded.identity.sampleRate, 48000);
        ASSERT_EQ(loaded.identity.channels, 4);
        double highest = 0;
        for (const auto& x : loaded.sound.channels) highest = std::max(highest, peak(x));
        EXPECT_NEAR(db(highest), -1, 0.01);
        const auto& left = loaded.sound.channels[0];
        const std::vector<double> x(left.begin(), left.end());
        EXPECT_LT(double(firstSound(x)), 0.003 * 48000) << "begins at once";
        if (made.t60 == 0) continue;
        const auto t60 = BandDecay::ofOctave(x, 1000, 48000).reverberationTime();
        ASSERT_TRUE(t60);
        EXPECT_NEAR(*t60, made.t60, 0.06 * made.t60);
    }
}

}  // namespace
}  // namespace quillworks::test
