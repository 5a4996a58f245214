// SPDX-License-Identifier: ISC
#include "dsp/level_lanes.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "dsp/follower.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

TEST(LevelLanes, ReadAsFollowersDoAtAnyRateAndDivision)
{
    for (const double rate : {8000.0, 48000.0, 384000.0}) {
        SCOPED_TRACE(rate);
        LevelLanes::Times times;
        times.prepare(rate);
        LevelLanes lanes;
        PeakFollower plain[8];
        for (int k = 0; k < 8; ++k) plain[k].setTimes(rate, 1 / rate, k < 4 ? 1 : 3);
        std::mt19937 random(kSeed);
        std::uniform_real_distribution<float> noise(-1, 1);
        float x[4][128] = {};
        float* const at[] = {x[0], x[1], x[2], x[3]};
        double worst = 0;
        for (double done = 0; done < 2 * rate;) {
            const int n = 1 + static_cast<int>(random() % 100);
            // Loud for a while and then quiet, each signal at its own level.
            const double gain = std::fmod(done, 0.7 * rate) < 0.1 * rate ? 1 : 1e-3;
            for (int s = 0; s < 4; ++s)
                for (int i = 0; i < n; ++i)
                    x[s][i] = static_cast<float>(gain / (s + 1)) * noise(random);
            for (int k = 0; k < 8; ++k)
                for (int i = 0; i < n; ++i) plain[k].next(std::abs(double(x[k % 4][i])));
            lanes.run(times, at, n);
            for (int k = 0; k < 8; ++k) {
                const double got = k < 4 ? lanes.fast(k) : lanes.slow(k - 4);
                worst = std::max(worst, std::abs(20 * std::log10(got / plain[k].envelope)));
            }
            done += n;
        }
        EXPECT_LT(worst, 0.002) << "dB";
        lanes.reset();
        std::fill_n(x[1], 32, 0.5f);
        x[1][7] = std::numeric_limits<float>::quiet_NaN();
        lanes.run(times, at, 32);
        EXPECT_NEAR(lanes.fast(1), 0.5, 1e-3) << "no number counts as 0";
    }
}

}  // namespace
}  // namespace quillworks
