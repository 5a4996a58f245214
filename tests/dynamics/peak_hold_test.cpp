// SPDX-License-Identifier: ISC
// The detector in lanes against its law, sample by sample.
#include "dynamics/peak_hold.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "dsp/decibel.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

struct Model {
    double attack, release;
    int hold;
    double u = 0, v = 0;
    int left = 0;

    double next(double r)
    {
        if (r > std::max(u - 0.05, 0.0)) {
            u = std::max(u, r);
            left = hold;
        } else if (left > 0) {
            --left;
        } else {
            u = r + release * (u - r);
            if (r == 0 && u <= 0.05) u = 0;
        }
        v = u + attack * (v - u);
        if (u == 0 && v < 1e-6) v = 0;
        return v;
    }
};

template <typename T> class PeakHoldOf : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(PeakHoldOf, Precisions);

TYPED_TEST(PeakHoldOf, AnyNumberOfKeysIsTheLawSampleBySampleAtAllDivisions)
{
    using T = TypeParam;
    constexpr int kFrames = 48000;
    for (const int keys : {1, 2, 3, 5, 8, 11})
        for (const int block : {32, 5, 1}) {
            PeakHold hold;
            hold.prepare(keys);
            std::vector<Model> models;
            for (int k = 0; k < keys; ++k) {
                models.push_back({followerCoefficient(48000, 0.001 * (1 + k)),
                                  followerCoefficient(48000, 0.02 * (1 + k)),
                                  PeakHold::holdFrames(48000, 40.0 * k)});
                const auto& m = models.back();
                hold.setTimes(k, m.attack, m.release, m.hold);
            }
            std::vector<T> rows(std::size_t(keys * kSubBlock));
            for (int at = 0; at < kFrames;) {
                const int n = std::min(block, kSubBlock - at % kSubBlock);
                const auto asked = [&](int k, int i) {  // bursts of a tone, the last silence long
                    const double t = double(at + i) / 48000 + 0.01 * k;
                    const double tone = std::abs(std::sin(60 * (k + 1) * t));
                    return t < 0.5 && std::fmod(t, 0.1) < 0.06 ? T(std::max(0.0, 18 * tone - 9))
                                                               : T(0);
                };
                for (int k = 0; k < keys; ++k)
                    for (int i = 0; i < n; ++i) rows[std::size_t(k * kSubBlock + i)] = asked(k, i);
                const bool isIdle = hold.run(rows.data(), n);
                for (int k = 0; k < keys; ++k)
                    for (int i = 0; i < n; ++i) {
                        auto& m = models[std::size_t(k)];
                        const double wanted = m.next(double(asked(k, i)));
                        ASSERT_NEAR(double(rows[std::size_t(k * kSubBlock + i)]), wanted, 2e-6);
                        ASSERT_TRUE(!isIdle || wanted == 0);
                    }
                at += n;
            }
            // Fallen to exactly nothing, key 0 within 12.5 ms of hold and the times of its release.
            EXPECT_TRUE(hold.run(rows.data(), 32));
            EXPECT_EQ(hold.reached(0).body, 0);
        }
}

/// The same for what falls below.
struct TroughModel {
    double attack, release;
    int stretch;
    double u = 0, v = 0, present = 0, past[4] = {};
    int left = stretch;

    double next(double q)
    {
        present = std::min(present, q);
        const double h = std::min(present, *std::min_element(past, past + 4));
        if (q < u)
            u = q;
        else if (h - 0.05 > u)
            u = h + release * (u - h);
        if (--left == 0) {
            std::copy_backward(past, past + 3, past + 4);
            past[0] = present;
            present = 1e30;
            left = stretch;
        }
        v = u + attack * (v - u);
        if (u == 0 && v < 1e-6) v = 0;
        return v;
    }
};

TYPED_TEST(PeakHoldOf, TroughsAreTheirLawSampleBySampleAtAllDivisions)
{
    using T = TypeParam;
    for (const int keys : {1, 5, 11})
        for (const int block : {32, 5}) {
            TroughHold hold;
            hold.prepare(keys);
            std::vector<TroughModel> models;
            for (int k = 0; k < keys; ++k) {
                const int frames = KeyDetectors::holdFrames(48000, 100.0 * k);
                models.push_back({followerCoefficient(48000, 0.001 * (1 + k)),
                                  followerCoefficient(48000, 0.02 * (1 + k)), frames / 4 + 1});
                hold.setTimes(k, models.back().attack, models.back().release, frames);
            }
            hold.reset();
            std::vector<T> rows(std::size_t(keys * kSubBlock));
            for (int at = 0; at < 24000;) {
                const int n = std::min(block, kSubBlock - at % kSubBlock);
                const auto asked = [&](int k, int i) {  // a tone that comes and goes
                    const double t = double(at + i) / 48000 + 0.01 * k;
                    const double level = std::abs(std::sin(300 * (k + 1) * t));
                    return T(std::fmod(t, 0.2) < 0.1 ? 20 - 18 * level : 0.5 * (1 - level));
                };
                for (int k = 0; k < keys; ++k)
                    for (int i = 0; i < n; ++i) rows[std::size_t(k * kSubBlock + i)] = asked(k, i);
                hold.run(rows.data(), n);
                for (int k = 0; k < keys; ++k)
                    for (int i = 0; i < n; ++i)
                        ASSERT_NEAR(double(rows[std::size_t(k * kSubBlock + i)]),
                                    models[std::size_t(k)].next(double(asked(k, i))), 2e-6)
                            << k << ", " << at + i;
                at += n;
            }
        }
}

TYPED_TEST(PeakHoldOf, ASteadyToneMakesNoRipple)
{
    using T = TypeParam;
    for (const double f : {40.0, 61.0, 997.0}) {
        PeakHold hold;
        hold.prepare(1);
        hold.setTimes(0, followerCoefficient(48000, 0.001), followerCoefficient(48000, 0.005),
                      PeakHold::holdFrames(48000, 0));
        T least = 100, most = 0;
        for (int at = 0; at < 48000; at += kSubBlock) {
            T x[kSubBlock];
            for (int i = 0; i < kSubBlock; ++i) {
                const double s = std::sin(2 * std::numbers::pi * f * (at + i) / 48000);
                x[i] = T(std::max(0.0, 20 * std::log10(std::abs(s) + 1e-8) + 12));
            }
            hold.run(x, kSubBlock);
            if (at < 24000) continue;
            least = std::min(least, *std::min_element(x, x + kSubBlock));
            most = std::max(most, *std::max_element(x, x + kSubBlock));
        }
        EXPECT_LT(most - least, 1e-3) << f;
        EXPECT_NEAR(double(most), 12, 0.1) << f;
    }
}

}  // namespace
}  // namespace quillworks
