// SPDX-License-Identifier: ISC
#include "dsp/oversampler.h"

#include <complex>
#include <gtest/gtest.h>

#include "dsp/midpoint_filter.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

constexpr double kTurn = 2 * std::numbers::pi;

/// Blocks of any length up to `longest`, always the same ones.
template <class Play> void inBlocks(std::size_t frames, int longest, Play play)
{
    for (std::size_t from = 0, k = 7; from < frames; ++k) {
        const auto n = std::min(frames - from, longest == 1 ? 1 : 1 + k * k % std::size_t(longest));
        play(from, int(n));
        from += n;
    }
}

template <typename T> class Oversampling : public ::testing::Test {
protected:
    /// The signal through a shaper that forms the means of neighbours.
    static Signal<T> play(int factor, double alpha, const Signal<T>& x, int longest)
    {
        Oversampler<T> over;
        over.prepare(factor, alpha);
        Signal<T> y(x.size());
        inBlocks(x.size(), longest, [&](std::size_t from, int n) {
            const T* const* const in = over.up(&x[from], n);
            T* const* const out = over.shaped();
            for (int p = 0; p < factor; ++p)
                for (int i = 0; i < n; ++i) {
                    const T before = p > 0 ? in[p - 1][i] : in[factor - 1][i - 1];
                    out[p][i] = factor == 1 ? in[0][i] : T(0.5) * (in[p][i] + before);
                }
            over.down(&y[from]);
        });
        return y;
    }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Oversampling, Precisions);

struct Way {
    int factor;
    double alpha;
    int latency;
    double ripple;  // dB to 20 kHz at 48 kHz
};
constexpr Way kWays[] = {
    {1, 0, 0, 0}, {2, 0.16, 32, 0.17}, {4, 0.125, 38, 0.034}, {8, 0.125, 39, 0.0095}};

TYPED_TEST(Oversampling, IsFlatAndDelaysByItsLatency)
{
    for (const auto& [factor, alpha, latency, ripple] : kWays) {
        Oversampler<TypeParam> over;
        over.prepare(factor, alpha);
        EXPECT_EQ(over.latency(), latency);
        const auto h = TestFixture::play(factor, alpha, impulse<TypeParam>(200, 20), 32);
        for (double f = 100; f <= 20000; f += 100) {
            std::complex<double> response = 0;
            for (int i = 0; i < 200; ++i)
                response += double(h[std::size_t(i)]) *
                            std::polar(1.0, -kTurn * f / 48000 * (i - 20 - latency));
            EXPECT_NEAR(db(std::abs(response)), 0, ripple + 1e-5) << factor << ", " << f;
            EXPECT_NEAR(std::arg(response), 0, 1e-5) << factor << ", " << f;
            if (factor == 8 && f == 1000) {
                EXPECT_LT(db(std::abs(response - 1.0)), -82);
            }
        }
    }
}

TYPED_TEST(Oversampling, DoesNotDependOnTheBlocks)
{
    const auto x = noise<TypeParam>(1000);
    for (const auto& way : kWays) {
        const auto whole = TestFixture::play(way.factor, way.alpha, x, 32);
        EXPECT_EQ(TestFixture::play(way.factor, way.alpha, x, 1), whole) << way.factor;
        EXPECT_EQ(TestFixture::play(way.factor, way.alpha, x, 9), whole) << way.factor;
    }
}

TYPED_TEST(Oversampling, LeavesNoImagesAndLetsNoAliasesBack)
{
    using T = TypeParam;
    for (const int factor : {2, 4, 8}) {
        // Up: the phases lie on the sine. Down: tones between the rates, and their aliases.
        const double delay = factor == 2 ? 16 : factor == 4 ? 19 : 20;
        Oversampler<T> over;
        over.prepare(factor);
        const auto x = sine<T>(2000, 9000, 48000);
        double image = 0, alias = 0;
        for (int from = 0; from + 32 <= 2000; from += 32) {
            const T* const* const in = over.up(&x[std::size_t(from)], 32);
            T y[32];
            for (int p = 0; p < factor; ++p)
                for (int i = 0; i < 32; ++i) {
                    const double at = from + i + p / double(factor);
                    const double wanted = std::sin(kTurn * 9000 / 48000 * (at - delay));
                    if (from >= 96) image = std::max(image, std::abs(double(in[p][i]) - wanted));
                    over.shaped()[p][i] = T(std::sin(kTurn * 0.8 * at));  // comes back at 0.2
                }
            over.down(y);
            if (from >= 96)
                for (const T v : y) alias = std::max(alias, std::abs(double(v)));
        }
        EXPECT_LT(db(image), -60) << factor;  // with the ripple
        EXPECT_LT(db(alias), -78) << factor;
    }
}

TYPED_TEST(Oversampling, MidpointFiltersFollowTheirDefinitionUpAndDown)
{
    using T = TypeParam;
    const auto taps = midpointTaps<T, 24>(6);
    const auto x = noise<T>(1500), z = noise<T>(1500, 3);
    const auto at = [](const Signal<T>& s, int i) { return i < 0 ? 0 : double(s[std::size_t(i)]); };
    const auto midway = [&](const Signal<T>& s, int i) {  // between i and i + 1
        double sum = 0;
        for (int k = 0; k < 24; ++k)
            sum += double(taps[std::size_t(k)]) * (at(s, i - k) + at(s, i + 1 + k));
        return sum;
    };
    MidpointFilter<T> up, down;
    up.prepare(taps);
    down.prepare(taps);
    EXPECT_EQ(up.latency(), 24);
    Signal<T> even(1500), odd(1500), half(1500), even1(1500), odd1(1500);
    inBlocks(1500, 500, [&](std::size_t from, int n) {
        up.up(&x[from], n, &even[from], &odd[from]);
        down.down(&x[from], &z[from], n, &half[from]);
    });
    up.reset();
    inBlocks(1500, 3,
             [&](std::size_t from, int n) { up.up(&x[from], n, &even1[from], &odd1[from]); });
    EXPECT_EQ(even, even1);
    EXPECT_EQ(odd, odd1);
    for (int i = 0; i < 1500; ++i) {
        ASSERT_EQ(even[std::size_t(i)], T(at(x, i - 24)));
        ASSERT_NEAR(odd[std::size_t(i)], midway(x, i - 24), 2e-6) << i;
        // Even samples lie between the odd ones before and of the same pair.
        ASSERT_NEAR(half[std::size_t(i)], 0.5 * (at(x, i - 23) + midway(z, i - 24)), 2e-6) << i;
    }
}

}  // namespace
}  // namespace quillworks
