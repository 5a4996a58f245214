// SPDX-License-Identifier: ISC
// Moving sums and the true-peak interpolator beside their definitions.
#include <gtest/gtest.h>

#include "dsp/fine_true_peak.h"
#include "dsp/power_window.h"
#include "dsp/true_peak.h"
#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

TEST(PowerWindow, IsTheSumOfTheLastValuesHoweverTheyArrive)
{
    std::mt19937 random(kSeed);
    for (const int length : {1, 7, 64, 300}) {
        for (const std::int64_t top : {std::int64_t{1} << 40, PowerQuanta::kFull}) {
            PowerWindow window, tracked;
            window.reserve(400);
            tracked.reserve(400);
            ASSERT_TRUE(window.setLength(length));
            ASSERT_TRUE(tracked.setLength(length));
            std::vector<std::int64_t> ring(std::size_t(length), 0);
            std::int64_t sum = 0;
            for (std::size_t i = 0; i < 2000;) {
                const int n = 1 + int(random() % 150);
                std::vector<std::int64_t> q;
                std::int64_t bound = 0, largest = 0;
                for (int k = 0; k < n; ++k, ++i) {
                    q.push_back(std::uniform_int_distribution<std::int64_t>(0, top)(random));
                    bound = std::max(bound, q.back());
                    auto& old = ring[i % ring.size()];
                    const auto kept = std::min(q.back(), PowerQuanta::kFull - sum);
                    sum = sum + kept - old;
                    old = kept;
                    largest = std::max(largest, sum);
                }
                window.add({q.data(), n, bound});
                ASSERT_EQ(tracked.addTracking({q.data(), n, bound}), largest);
                ASSERT_EQ(window.sum(), sum);
                ASSERT_EQ(tracked.sum(), sum);
            }
        }
    }
    PowerWindow window;
    window.reserve(10);
    EXPECT_FALSE(window.setLength(11));  // the window stays as it was
    EXPECT_EQ(window.length(), 1);
}

TEST(PowerQuanta, RoundSquaresAndLimitThemBeforeTheCast)
{
    const double x[] = {0, 1, -0.5, 6.9e-8, 7.2e-8, 303.6, 303.8, 1e6, -1e30};
    std::int64_t q[std::size(x)];
    const auto quanta = quantisePower(q, x, int(std::size(x)));
    EXPECT_EQ(q[0], 0);
    EXPECT_EQ(q[1], 100000000000000);
    EXPECT_EQ(q[2], 25000000000000);
    EXPECT_EQ(q[3], 0);
    EXPECT_EQ(q[4], 1);
    EXPECT_LT(q[5], q[6]);
    for (const auto i : {6, 7, 8}) EXPECT_GT(q[i], PowerQuanta::kFull - 2048) << i;
    for (const auto v : q) EXPECT_LE(v, quanta.bound);
}

TEST(TruePeak, IsTheLargestOfFourPhasesAtEveryLength)
{
    for (const double rate : {44100.0, 48000.0}) {
        const auto& filter = TruePeakFilter::at(rate);
        TruePeak interpolator;
        interpolator.prepare(rate);
        TruePeak::Row<64> row;
        const auto x = noise<float>(3000);
        std::size_t at = 0;
        for (int n = 1; at + 64 < x.size(); n = n % 64 + 1) {
            // What lies beyond the end is of no account.
            std::fill_n(row.input(), 64, 1e6f);
            std::copy_n(x.begin() + std::ptrdiff_t(at), n, row.input());
            double largest = 0;
            for (std::size_t i = at; i < at + std::size_t(n); ++i)
                for (const auto* phase : {&filter.first, &filter.second}) {
                    double forward = 0, reversed = 0;
                    for (std::size_t k = 0; k < 12 && k <= i; ++k) {
                        forward += double((*phase)[k]) * double(x[i - k]);
                        reversed += double((*phase)[11 - k]) * double(x[i - k]);
                    }
                    largest = std::max({largest, std::abs(forward), std::abs(reversed)});
                }
            ASSERT_NEAR(interpolator.advance(row, n), largest, 2e-6)
                << rate << " " << at << " " << n;
            at += std::size_t(n);
        }
    }
    EXPECT_EQ(&TruePeakFilter::at(96000), &TruePeakFilter::at(48000));
    EXPECT_EQ(&TruePeakFilter::at(192000), &TruePeakFilter::at(48000));
    EXPECT_EQ(&TruePeakFilter::at(88200), &TruePeakFilter::at(44100));
}

/// The largest magnitude 32 times interpolated: sinc of 64 samples to each side under a Kaiser
/// window.
double interpolated(const Signal<float>& x)
{
    constexpr int reach = 64, phases = 32;
    double most = peak(x);
    for (int phase = 1; phase < phases; ++phase) {
        double h[2 * reach];
        for (int k = 0; k < 2 * reach; ++k) {
            const double t = double(phase) / phases - (k - reach + 1), u = t / reach;
            h[k] = std::sin(std::numbers::pi * t) / (std::numbers::pi * t) *
                   std::cyl_bessel_i(0, 9 * std::sqrt(std::max(0.0, 1 - u * u))) /
                   std::cyl_bessel_i(0, 9.0);
        }
        for (std::size_t i = 0; i + 2 * reach <= x.size(); ++i) {
            double y = 0;
            for (std::size_t k = 0; k < 2 * reach; ++k) y += h[k] * double(x[i + k]);
            most = std::max(most, std::abs(y));
        }
    }
    return most;
}

TEST(FineTruePeak, IsWithinAFewHundredthsOfADecibelOfFineInterpolation)
{
    struct {
        const char* name;
        Signal<float> x;
    } cases[] = {{"a quarter of the rate", sine<float>(800, 0.25, 1, 0.7, 0.785)},
                 {"a third", sine<float>(800, 1.0 / 3, 1, 0.7, 0.3)},
                 {"near half the rate", sine<float>(800, 0.457, 1, 0.7)},
                 {"far below", sine<float>(800, 0.011, 1, 0.7)},
                 {"noise below 0.46", {}},
                 {"clipped noise below 0.46", {}}};
    for (auto* c : {&cases[4], &cases[5]}) {
        const auto white = noise<double>(9000, kSeed, 1);
        for (std::size_t i = 0; i + 200 < white.size(); ++i) {  // low pass, windowed by Hann
            double y = 0;
            for (int k = -100; k <= 100; ++k) {
                const double t = std::numbers::pi * k;
                y += white[std::size_t(int(i) + 100 + k)] * (1 + std::cos(t / 101)) / 2 *
                     (k == 0 ? 0.9 : std::sin(0.9 * t) / t);
            }
            c->x.push_back(float(c == &cases[5] ? std::clamp(y, -0.5, 0.5) : y));
        }
    }
    for (auto& c : cases) {
        for (std::size_t i = 0; i < 200; ++i) {  // an edge has more than a filter knows
            c.x[i] *= float(i) / 200;
            c.x.rbegin()[std::ptrdiff_t(i)] *= float(i) / 200;
        }
        c.x.insert(c.x.begin(), 100, 0);
        c.x.insert(c.x.end(), 100, 0);
        for (const int block : {1, 17, 64, 256}) {
            FineTruePeak search;
            search.prepare(256);
            float most = 0;
            for (std::size_t at = 0; at < c.x.size();) {
                const auto n = std::min(std::size_t(block), c.x.size() - at);
                std::copy_n(c.x.begin() + std::ptrdiff_t(at), n, search.input());
                most = search.advance(int(n), most);
                at += n;
            }
            most = search.finish(most);
            EXPECT_NEAR(db(double(most)), db(interpolated(c.x)), 0.02)
                << c.name << ", blocks of " << block;
        }
    }
}

}  // namespace
}  // namespace quillworks::test
