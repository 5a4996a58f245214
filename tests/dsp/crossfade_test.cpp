// SPDX-License-Identifier: ISC
// Fades: exact ends, equal signals untouched, the same at all block lengths, no step under a tone.
#include "dsp/crossfade.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

constexpr double kRate = 48000;
constexpr int kFrames = 4096;

template <typename T> class Fades : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Fades, Precisions);

template <class F> void inBlocks(int block, F&& f)
{
    for (int at = 0; at < kFrames;) {
        const int inBlock = block - at % block;
        const GridSlice slice{std::min({kFrames - at, inBlock, kSubBlock - at % kSubBlock}),
                              at % kSubBlock};
        f(at, slice);
        at += slice.frames;
    }
}

TYPED_TEST(Fades, WeightsRiseLinearlyToExactlyOneAndAddUpToOne)
{
    using T = TypeParam;
    Crossfade fade;
    for (const double seconds : {0.0, 0.001, 0.01, 0.0211}) {
        fade.prepare(kRate, seconds);
        EXPECT_FALSE(fade.isRunning());
        fade.start();
        const int length = fade.length();
        for (int k = 0; k < length;) {
            T w[13], fresh[13], old[13], same[13];
            std::fill(std::begin(fresh), std::end(fresh), T(3));
            std::fill(std::begin(old), std::end(old), T(0.1));
            std::copy(std::begin(old), std::end(old), same);
            fade.weights(w, 13);
            fade.mix(fresh, old, 13);
            fade.mix(same, old, 13);
            for (int i = 0; i < 13; ++i, ++k) {
                ASSERT_NEAR(w[i], std::min(1.0, double(k + 1) / length), 1e-6);
                ASSERT_EQ((1 - w[i]) + w[i], T(1));
                ASSERT_NEAR(fresh[i], 0.1 + 2.9 * double(w[i]), 1e-6);
                ASSERT_EQ(same[i], old[i]);
                ASSERT_TRUE(k + 1 < length || (w[i] == 1 && fresh[i] == 3)) << k;
            }
            fade.advance(13);
        }
        EXPECT_FALSE(fade.isRunning());
    }
}

/// What a switch between three gains of a tone gives; two changes come while the first one fades.
template <typename T> Signal<T> switched(int block)
{
    Switch<int> gain;
    gain.prepare(kRate, 487 / kRate);  // no whole sub-blocks: the next one waits for the grid
    gain.target(1);
    gain.snap();
    const auto tone = sine<T>(kFrames, 441, kRate);
    auto x = tone;
    inBlocks(block, [&](int at, GridSlice slice) {
        const int n = slice.frames;
        T* const y = x.data() + at;
        if (at >= 512) gain.target(at < 576 ? 2 : at < 704 ? 9 : -1);
        gain.next(slice);
        Signal<T> old(std::size_t(n), T(0));
        for (int i = 0; i < n; ++i) {
            old[std::size_t(i)] = y[i] * T(gain.leaving());
            y[i] *= T(gain.present());
        }
        if (gain.isFading()) gain.fade().mix(y, old.data(), n);
        gain.advance(n);
    });
    for (int i = 0; i < 512; ++i) EXPECT_EQ(x[std::size_t(i)], tone[std::size_t(i)]);
    for (int i = 1024 + 487; i < kFrames; ++i) EXPECT_EQ(x[std::size_t(i)], -tone[std::size_t(i)]);
    return x;
}

TYPED_TEST(Fades, ASwitchTakesOneChangeAtATimeAndThenTheLatest)
{
    using T = TypeParam;
    const auto whole = switched<T>(kFrames);
    // The tone's own steps, twice as large in between, and the fade's 1/487 of the jump.
    EXPECT_LT(largestStep(whole), 2 * 0.058 + 3.0 / 487);
    EXPECT_LT(peak(whole), 2.0001);
    for (const int block : {1, 7, 32}) EXPECT_EQ(switched<T>(block), whole) << block;
}

struct Dipped {
    Signal<double> x;
    std::vector<int> acts;
};
Dipped dipped(int block, std::vector<int> requests, int wait)
{
    Dip dip;
    dip.prepare(kRate);
    Dipped result{sine<double>(kFrames, 441, kRate), {}};
    inBlocks(block, [&](int at, GridSlice slice) {
        for (const int r : requests)
            if (at == r) dip.request();
        if (dip.next(slice)) {
            result.acts.push_back(at);
            dip.wait(wait);
        }
        dip.apply(result.x.data() + at, slice.frames);
        dip.advance(slice.frames);
        EXPECT_TRUE(at <= 3000 || !dip.isRunning());
    });
    return result;
}

TEST(Dips, ActOnceInSilenceAndComeBackWhenTheLinesHaveFilled)
{
    const auto tone = sine<double>(kFrames, 441, kRate);
    const auto once = dipped(kFrames, {512}, 100);
    ASSERT_EQ(once.acts, std::vector<int>{768});  // 240 frames of fade, to the next sub-block
    for (int i = 0; i < kFrames; ++i) {
        const double gain = i < 512               ? 1
                            : i < 768 + 100       ? std::max(0, 511 + 240 - i) / 240.0
                            : i < 768 + 100 + 240 ? (i - 867) / 240.0
                                                  : 1;
        ASSERT_NEAR(once.x[std::size_t(i)], gain * tone[std::size_t(i)], 1e-12) << i;
        const bool isExact = gain == 1 || gain == 0;
        ASSERT_TRUE(!isExact || once.x[std::size_t(i)] == gain * tone[std::size_t(i)]);
    }
    EXPECT_LT(largestStep(once.x), largestStep(tone) * 1.08);
    // A request before the change is one with the first; a later one turns the fade round.
    EXPECT_EQ(dipped(kFrames, {512, 640}, 100).acts.size(), 1u);
    const auto again = dipped(kFrames, {512, 992}, 100);
    EXPECT_EQ(again.acts, (std::vector<int>{768, 1120}));
    EXPECT_LT(largestStep(again.x), largestStep(tone) * 1.08);
    for (const int block : {1, 7, 32})
        EXPECT_EQ(dipped(block, {512, 992}, 100).x, again.x) << block;
}

}  // namespace
}  // namespace quillworks
