// SPDX-License-Identifier: ISC
// Maxima and sums over windows against their definitions.
#include <gtest/gtest.h>

#include "dsp/moving_sum.h"
#include "dsp/recent_samples.h"
#include "dsp/sliding_max.h"
#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

/// Maximum of x[i - length + 1 .. i], zeros before the signal.
double maximumAt(const Signal<double>& x, std::size_t i, int length)
{
    double most = 0;
    for (int k = 0; k < length && std::size_t(k) <= i; ++k) most = std::max(most, x[i - size_t(k)]);
    return most;
}

TEST(SlidingMax, IsTheMaximumOfEachWindowHoweverTheSignalIsDivided)
{
    std::mt19937 random(kSeed);
    for (const auto& [shortest, longest] :
         {std::pair{1, 1}, {1, 40}, {2, 2}, {2, 3}, {13, 213}, {73, 73}, {73, 1273}, {289, 400}}) {
        auto x = noise<double>(3000, std::uint32_t(random()), 1);
        for (auto& v : x) v = std::max(v, 0.0) + (v > 0.99 ? 5 : 0);  // lone peaks leave the window
        SlidingMax sliding;
        sliding.prepare(shortest, longest);
        sliding.setSecondWindow(longest);
        int second = longest;
        Signal<double> a(x.size()), b(x.size());
        for (std::size_t at = 0; at < x.size();) {
            const auto n = std::min(x.size() - at, std::size_t(random() % 129));
            if (random() % 8 == 0) {  // the window changes on the way
                second = random() % 2 ? longest : shortest;
                sliding.setSecondWindow(second);
            }
            sliding.process(x.data() + at, int(n), a.data() + at, b.data() + at);
            for (std::size_t i = at; i < at + n; ++i) {
                ASSERT_EQ(a[i], maximumAt(x, i, shortest)) << longest << ": " << i;
                ASSERT_EQ(b[i], maximumAt(x, i, second)) << longest << ": " << i;
            }
            at += n;
        }
        sliding.reset();
        const Signal<double> silence(std::size_t(longest) + 1);
        sliding.process(silence.data(), longest + 1, a.data(), b.data());
        EXPECT_EQ(a[0], 0);
        EXPECT_EQ(b[0], 0);
    }
}

TEST(MovingSum, IsExact)
{
    for (int length : {1, 2, 37, 200}) {
        MovingSum sum;
        sum.prepare(length);
        std::mt19937 random(kSeed);
        std::vector<std::int64_t> x(1500);
        for (auto& v : x) v = static_cast<std::int64_t>(random());
        auto y = x;
        for (std::size_t at = 0; at < x.size();) {
            const auto n = std::min(x.size() - at, std::size_t(random() % 100));
            sum.run(x.data() + at, y.data() + at, int(n));
            at += n;
        }
        for (std::size_t i = 0; i < x.size(); ++i) {
            std::int64_t expected = 0;
            for (std::size_t k = 0; k < std::size_t(length) && k <= i; ++k) expected += x[i - k];
            ASSERT_EQ(y[i], expected) << length << ": " << i;
        }
    }
}

TEST(RecentSamples, KeepsThePastInOnePiece)
{
    RecentSamples<double> recent;
    recent.prepare(100, 32, 8);
    std::mt19937 random(kSeed);
    double next = 1;
    for (int call = 0; call < 500; ++call) {
        const int n = 1 + int(random() % 32);
        double* const room = recent.append(n);
        for (int i = 0; i < n; ++i) room[i] = next++;
        for (int back = 1; back <= 100 + n; ++back)
            ASSERT_EQ(recent.end()[-back], std::max(next - back, 0.0));
    }
}

}  // namespace
}  // namespace quillworks::test
