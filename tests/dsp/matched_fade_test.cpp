// SPDX-License-Identifier: ISC
// Matched fades keep the power of signals that are more or less alike; their timing.
#include "dsp/matched_fade.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

template <typename T> class MatchedFades : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatchedFades, Precisions);

TYPED_TEST(MatchedFades, KeepThePowerHoweverAlikeTheSignalsAreAndEndExactly)
{
    using T = TypeParam;
    MatchedFade fade;
    for (const double alike : {0.0, 0.4, 1.0}) {
        fade.prepare(48000, {0.02, 0, 0});
        fade.next(kWholeSubBlock, true);
        for (T before = 0; fade.isFading(); fade.advance(29)) {
            const auto g = fade.gains<T>(alike, 29);
            for (int i = 0; i < g.frames; ++i) {
                const double old = g.old[i], fresh = g.fresh[i];
                ASSERT_NEAR(old * old + fresh * fresh + 2 * alike * old * fresh, 1, 1e-6);
                ASSERT_TRUE(fresh >= before && old > 0);
                before = g.fresh[i];
            }
            T x[29]{}, old[29];
            std::fill(std::begin(old), std::end(old), T(NAN));
            g.mix(x, old, 29);
            for (int i = g.frames; i < 29; ++i) ASSERT_EQ(x[i], 0) << "the new one, bit by bit";
        }
    }
    // Opposite signals: an equal-power fade, and no spike where they cancel.
    const auto x = noise<TypeParam>(32);
    auto y = x;
    for (auto& v : y) v = -v;
    const TypeParam *const a[] = {x.data()}, *const b[] = {y.data()};
    Likeness likeness;
    EXPECT_EQ(likeness.correlation(), 0);
    likeness.add(a, b, 1, kWholeSubBlock);
    EXPECT_EQ(likeness.correlation(), 0);
    y[3] = std::numeric_limits<TypeParam>::quiet_NaN();
    likeness.add(a, b, 1, kWholeSubBlock);
    EXPECT_EQ(likeness.correlation(), 0);
}

TEST(MatchedFade, ListensFadesAndPausesForAsLongAsItSays)
{
    for (const auto& [rate, listens, fades, pause] :
         {std::array{8000, 4 * 32, 160, 1600}, {44100, 14 * 32, 882, 8832}}) {
        MatchedFade fade;
        fade.prepare(rate, {});
        std::vector<int> changes;
        int listened = 0, at = 0;
        for (; changes.size() < 3; at += kSubBlock) {
            if (fade.next(kWholeSubBlock, true)) changes.push_back(at);
            listened += fade.isListening() ? kSubBlock : 0;
            fade.advance(kSubBlock);
        }
        const int apart = listens + pause;  // to the next sub-block
        EXPECT_EQ(changes, (std::vector{0, apart, 2 * apart})) << rate;
        EXPECT_EQ(listened, 2 * listens + kSubBlock) << rate;
        EXPECT_EQ(fade.length(), fades);
        fade.reset();
        EXPECT_TRUE(fade.next(kWholeSubBlock, true));  // at once
    }
}

}  // namespace
}  // namespace quillworks
