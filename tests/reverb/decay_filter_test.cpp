// SPDX-License-Identifier: ISC
#include "reverb/decay_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace quillworks {
namespace {

using Octaves = OctaveDecayDesign;

/// Decay times like those of a room: longer in the lows, shorter in the highs.
std::array<double, Octaves::kBands> roomTimes(double decay, double low, double high)
{
    std::array<double, Octaves::kBands> seconds{};
    for (int k = 0; k < Octaves::kBands; ++k) {
        const double f = Octaves::frequency(k);
        seconds[std::size_t(k)] = decay * std::pow(low, 1 / (1 + std::pow(f / 250, 2))) *
                                  std::pow(high, 1 / (1 + std::pow(4500 / f, 2)));
    }
    return seconds;
}

TEST(DecayDesign, MeetsTheTimesOfARoomInEveryOctaveAtEveryRate)
{
    for (const double rate : {8000.0, 44100.0, 96000.0, 384000.0}) {
        const auto design = Octaves::at(rate);
        for (const double decay : {0.4, 1.4, 8.0, 30.0})
            for (const double low : {0.6, 1.0, 1.8})
                for (const double high : {0.4, 0.8})
                    for (const double period : {0.02, 0.06}) {
                        const auto seconds = roomTimes(decay, low, high);
                        const auto gains = design->design(seconds, period);
                        for (int k = 1; k < 9 && Octaves::frequency(k) < 0.3 * rate; ++k) {
                            const double db = design->responseDb(gains, Octaves::frequency(k));
                            const double t = -60 * period / db;
                            EXPECT_NEAR(t / seconds[std::size_t(k)], 1, decay < 1 ? 0.12 : 0.08)
                                << rate << " Hz, " << decay << " s, band " << k;
                        }
                    }
    }
}

TEST(DecayDesign, NoFrequencyGrowsWhateverIsAskedFor)
{
    for (const double rate : {8000.0, 48000.0, 384000.0})
        for (int pattern = 0; pattern < 1024; pattern += 11) {
            std::array<double, Octaves::kBands> seconds{};
            for (int k = 0; k < Octaves::kBands; ++k)
                seconds[std::size_t(k)] = pattern >> k & 1 ? 60 : 0.05;
            const auto design = Octaves::at(rate);
            const auto gains = design->design(seconds, 0.1);
            for (double f = 1; f < rate / 2; f *= 1.02)
                ASSERT_LT(design->responseDb(gains, f), 0) << rate << " " << pattern << " " << f;
        }
}

TEST(DecayDesign, MatchesAnEqualiser)
{
    const std::array<double, 10> decibels{-3, -2, 0, 1, 3, 4, 2, 0, -2, -6};
    const auto design = Octaves::at(48000);
    const auto gains = design->match(decibels);
    for (int k = 0; k < 9; ++k)
        EXPECT_NEAR(design->responseDb(gains, Octaves::frequency(k)), decibels[std::size_t(k)], 0.4)
            << k;
}

template <typename T> class DecayFilterTest : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(DecayFilterTest, Precisions);

/// The filter does what the design says, in every lane, and those beside it do something else.
TYPED_TEST(DecayFilterTest, HasTheResponseOfItsDesign)
{
    using T = TypeParam;
    constexpr int kLanes = 11, kFrames = 1 << 15;
    for (const double rate : {44100.0, 384000.0}) {
        const auto design = Octaves::at(rate);
        DecayFilter<T> filter;
        filter.prepare(*design, kLanes);
        std::vector<DecayGains> gains;
        for (int lane = 0; lane < kLanes; ++lane) {
            gains.push_back(design->design(roomTimes(1 + lane, 1.5, 0.5), 0.1));
            filter.set(lane, design->sections(gains.back()));
        }
        std::vector<std::vector<T>> y(kLanes);
        std::vector<std::vector<T>> rows(kLanes, std::vector<T>(DecayFilter<T>::kRow));
        for (int at = 0; at < kFrames; at += kSubBlock) {
            std::vector<T*> row;
            for (auto& r : rows) {
                std::fill(r.begin(), r.end(), T(0));
                if (at == 0) r[0] = 1;
                row.push_back(r.data());
            }
            filter.begin();
            filter.process(row.data(), row.data(), {20, 0});
            for (int lane = 0; lane < kLanes; ++lane)
                y[std::size_t(lane)].insert(y[std::size_t(lane)].end(), row[std::size_t(lane)],
                                            row[std::size_t(lane)] + 20);
            for (T* r : row) std::fill_n(r, DecayFilter<T>::kRow, T(0));
            filter.process(row.data(), row.data(), {12, 20});
            for (int lane = 0; lane < kLanes; ++lane)
                y[std::size_t(lane)].insert(y[std::size_t(lane)].end(), row[std::size_t(lane)],
                                            row[std::size_t(lane)] + 12);
        }
        for (int lane = 0; lane < kLanes; ++lane)
            for (const double f : {125.0, 500.0, 2000.0, 8000.0, 15000.0}) {
                std::complex<double> sum = 0;
                for (std::size_t t = 0; t < y[std::size_t(lane)].size(); ++t)
                    sum += double(y[std::size_t(lane)][t]) *
                           std::polar(1.0, -2 * std::numbers::pi * f / rate * double(t));
                const double db = 20 * std::log10(std::abs(sum));
                const double expected = design->responseDb(gains[std::size_t(lane)], f);
                EXPECT_NEAR(db, expected, 0.01 + 0.01 * std::abs(expected))
                    << rate << " Hz, lane " << lane << ", " << f;
            }
    }
}

}  // namespace
}  // namespace quillworks
