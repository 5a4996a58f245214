// SPDX-License-Identifier: ISC
// A gain changes where the signal changes its sign, or when it has waited long enough for that.
#include "dsp/zero_crossing_gain.h"

#include <vector>

#include <gtest/gtest.h>

namespace quillworks {
namespace {

/// The gain at the end of each sub-block of a signal of 1, where `wanted[i]` is asked for in the
/// i-th.
std::vector<double> gainsOver(const std::vector<double>& wanted)
{
    ZeroCrossingGain<double> gain;
    gain.snap(1);
    std::vector<double> applied;
    for (double g : wanted) {
        double x[kSubBlock];
        for (double& v : x) v = 1;
        gain.run(x, g, {kSubBlock, 0});
        applied.push_back(x[kSubBlock - 1]);
    }
    return applied;
}

TEST(ZeroCrossingGain, TakesTheNewGainAtTheFirstChangeOfSign)
{
    ZeroCrossingGain<double> gain;
    gain.snap(1);
    double x[] = {-1, -1, 1, 1, -1};
    gain.run(x, 3, {5, 0});
    const double expected[] = {-1, -1, 3, 3, -3};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(x[i], expected[i]) << i;
}

TEST(ZeroCrossingGain, WaitsEightSubBlocksFromTheLastChangeOfMind)
{
    std::vector<double> wanted(20, 2);
    wanted[0] = 1;  // the first sub-block turns positive
    auto applied = gainsOver(wanted);
    for (std::size_t i = 0; i < 20; ++i) EXPECT_EQ(applied[i], i <= 8 ? 1 : 2) << i;
    wanted[5] = 1;  // what it has waited by then no longer counts
    applied = gainsOver(wanted);
    for (std::size_t i = 0; i < 20; ++i) EXPECT_EQ(applied[i], i <= 13 ? 1 : 2) << i;
}

}  // namespace
}  // namespace quillworks
