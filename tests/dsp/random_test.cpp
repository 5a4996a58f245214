// SPDX-License-Identifier: ISC
// Random generators against their authors' figures, and the law for bad samples as a table.
#include "dsp/random.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "dsp/dc_blocker.h"
#include "dsp/sanitise.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

TEST(RandomNumbers, ArePublishedOnes)
{
    // Numerical Recipes, chapter 7.1: from seed 0, in hexadecimal.
    Lcg lcg;
    for (const std::uint32_t expected :
         {0x3C6EF35Fu, 0x47502932u, 0xD1CCF6E9u, 0xAAF95334u, 0x6252E503u})
        EXPECT_EQ(lcg.step(), expected);
    // The test vectors of the reference implementations.
    std::uint64_t seed = 1234567;
    for (const std::uint64_t expected :
         {6457827717110365317u, 3203168211198807973u, 9817491932198370423u})
        EXPECT_EQ(splitmix64(seed), expected);
    Xoshiro256pp noise;
    for (std::uint64_t i = 0; i < 4; ++i) noise.s[i] = i + 1;
    for (const std::uint64_t expected : {41943041u, 58720359u}) EXPECT_EQ(noise.next(), expected);
    EXPECT_EQ(noise.next(), 3588806011781223u);
    EXPECT_EQ(noise.next(), 3591011842654386u);
    EXPECT_EQ(Xoshiro256pp(1234567).s[2], 9817491932198370423u);
}

TEST(RandomNumbers, HashIsUniformAndFreeOfTraces)
{
    // Two values worked out by hand from the definition.
    EXPECT_EQ(hashRandom(0u - 0x9E3779B9u, 0), 0);
    EXPECT_NE(hashRandom(1, 0), hashRandom(0, 1));
    double sum = 0, squares = 0, neighbours = 0, voices = 0, before = 0;
    constexpr int n = 100000;
    for (std::uint32_t i = 0; i < n; ++i) {
        const double r = hashRandom(i, 3);
        ASSERT_TRUE(r >= -1 && r < 1);
        sum += r, squares += r * r, neighbours += r * before, voices += r * hashRandom(i, 4);
        before = r;
    }
    for (const double mean : {sum, squares - n / 3.0, neighbours, voices})
        EXPECT_LT(std::abs(mean / n), 0.01);
}

template <typename T> class BadSamples : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(BadSamples, Precisions);

TYPED_TEST(BadSamples, FollowOneLaw)
{
    using T = TypeParam;
    constexpr T infinity = std::numeric_limits<T>::infinity();
    constexpr T nan = std::numeric_limits<T>::quiet_NaN();
    const struct {
        T in, plain, limited;
    } table[] = {
        {T(0.5), T(0.5), T(0.5)}, {1000, 1000, 1000}, {-1001, -1001, -1000}, {1e6, 1e6, 1000},
        {T(-1.1e6), -1e6, 0},     {T(1e30), 1e6, 0},  {nan, 0, 0},           {infinity, 0, 0},
        {-infinity, 0, 0}};
    for (const auto& row : table) {
        T x[2] = {T(-0.25), row.in}, y[2] = {T(-0.25), row.in};
        sanitise(x, 2);
        sanitise(y, 2, kLoudestSignal);
        EXPECT_EQ(x[1], row.plain) << row.in;
        EXPECT_EQ(y[1], row.limited) << row.in;
        EXPECT_TRUE(x[0] == T(-0.25) && y[0] == T(-0.25));
    }
}

TYPED_TEST(BadSamples, DcBlockerHasTheCornerAskedFor)
{
    using T = TypeParam;
    for (const double corner : {3.0, 5.0, 20.0}) {
        DcBlocker blocker;
        blocker.prepare(48000, corner);
        auto x = test::sine<T>(5 * 48000, corner, 48000);
        blocker.process(x.data(), int(x.size()));
        EXPECT_NEAR(test::db(test::amplitudeAt(x, corner, 48000, 48000, 5 * 48000)), -3.01, 0.02);
    }
}

}  // namespace
}  // namespace quillworks
