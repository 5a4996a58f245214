// SPDX-License-Identifier: ISC
// Matched fades keep the power of signals that are more or less alike; their timing.
#include "dsp/matched_fade.h"

#include <gtest/gtest.h>

#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

template <typename T> class MatchedFades : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatchedFades, Precisions);

/// Power of a fade between two noises whose correlation is `alike`, in sixteenths of the fade; the
/// correlation is measured, as an effect does it, in pieces of at most `block`.
template <typename T> Signal<double> fadedPowers(double alike, int block, double& worstMeasure)
{
    constexpr int kFades = 400;
    MatchedFade fade;
    fade.prepare(48000, {0.02, 0, 0});
    const int length = fade.length();
    Signal<double> powers(16);
    for (int k = 0; k < kFades; ++k) {
        const auto a = noise<T>(std::size_t(length), std::uint32_t(2 * k + 1));
        auto b = noise<T>(std::size_t(length), std::uint32_t(2 * k + 2));
        for (std::size_t i = 0; i < b.size(); ++i)
            b[i] = T(alike) * a[i] + T(std::sqrt(1 - alike * alike)) * b[i];
        Likeness likeness;
        for (int i = 0; i < length;) {
            const int n = std::min({block, length - i, kSubBlock - i % kSubBlock});
            const T *const x[] = {a.data() + i}, *const y[] = {b.data() + i};
            likeness.add(x, y, 1, {n, i % kSubBlock});
            i += n;
        }
        worstMeasure = std::max(worstMeasure, std::abs(likeness.correlation() - alike));
        const T last = b.back();
        fade.next(kWholeSubBlock, true);
        EXPECT_TRUE(fade.isFading());
        for (int i = 0; i < length;) {
            const int n = std::min({block, kSubBlock, length - i});
            fade.gains<T>(likeness.correlation(), n).mix(b.data() + i, a.data() + i, n);
            fade.advance(n);
            i += n;
        }
        EXPECT_FALSE(fade.isFading());
        EXPECT_EQ(b.back(), last);  // bit by bit the new one
        for (int i = 0; i < length; ++i)
            powers[std::size_t(i * 16 / length)] += 12.0 * b[std::size_t(i)] * b[std::size_t(i)];
    }
    for (double& p : powers) p /= kFades * length / 16.0;
    return powers;
}

TYPED_TEST(MatchedFades, KeepThePowerHoweverAlikeTheSignalsAre)
{
    for (const double alike : {0.0, 0.4, 0.8, 1.0}) {
        double worst = 0;
        const auto powers = fadedPowers<TypeParam>(alike, 32, worst);
        for (const double p : powers) EXPECT_NEAR(p, 1, 0.03) << alike;  // 0.13 dB
        EXPECT_LT(worst, 0.13) << alike;  // of 960 samples; four standard deviations
        EXPECT_EQ(fadedPowers<TypeParam>(alike, 7, worst), powers) << alike;
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
    struct Row {
        double rate;
        int listens, fades, pause;
    };
    for (const Row& row : {Row{8000, 4 * 32, 160, 1600}, Row{44100, 14 * 32, 882, 8820},
                           Row{48000, 15 * 32, 960, 9600}, Row{192000, 60 * 32, 3840, 38400}}) {
        MatchedFade fade;
        fade.prepare(row.rate, {});
        int listened = 0, faded = 0;
        std::vector<int> changes;
        for (int at = 0; changes.size() < 3; at += kSubBlock) {
            if (fade.next(kWholeSubBlock, true)) changes.push_back(at);
            listened += fade.isListening() ? kSubBlock : 0;
            if (fade.isFading())
                faded += std::min(kSubBlock, fade.gains<float>(0, kSubBlock).frames + 1);
            fade.advance(kSubBlock);
        }
        EXPECT_EQ(changes[0], 0);
        for (int k = 1; k < 3; ++k) {
            const int apart = changes[std::size_t(k)] - changes[std::size_t(k - 1)];
            EXPECT_EQ(apart, row.listens + (row.pause + 31) / 32 * 32) << row.rate;
        }
        EXPECT_EQ(listened, 2 * row.listens + kSubBlock) << row.rate;
        EXPECT_EQ(faded, 2 * row.fades) << row.rate;
        fade.reset();
        EXPECT_TRUE(fade.next(kWholeSubBlock, true));  // at once
    }
}

}  // namespace
}  // namespace quillworks
