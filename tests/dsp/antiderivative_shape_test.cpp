// SPDX-License-Identifier: ISC
// Means of the saturation curves and the gain that keeps their level.
#include "dsp/antiderivative_shape.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>

#include "dsp/decibel.h"
#include "dsp/flush_denormals.h"
#include "dsp/level_match.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;
using enum Saturation;

constexpr Saturation kCurves[] = {Warm, Soft, Hard, Tube, Fold};

/// Mean of f between a and b by Simpson's rule, piece by piece between the curves' corners.
double meanOf(Saturation curve, double a, double b)
{
    if (a == b) return saturate(curve, a);
    std::vector<double> ends{std::min(a, b), std::max(a, b)};
    for (const double corner : {-1.5, -1.0, 0.0, 1.0, 1.5})
        if (corner > ends.front() && corner < std::max(a, b)) ends.insert(ends.end() - 1, corner);
    double sum = 0;
    for (std::size_t k = 0; k + 1 < ends.size(); ++k) {
        constexpr int kPieces = 400;
        const double step = (ends[k + 1] - ends[k]) / kPieces;
        for (int i = 0; i < kPieces; ++i) {
            const double x = ends[k] + i * step;
            sum += step / 6 *
                   (saturate(curve, x) + 4 * saturate(curve, x + step / 2) +
                    saturate(curve, x + step));
        }
    }
    return sum / std::abs(a - b);
}

template <typename T> class AntiderivativeShaping : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(AntiderivativeShaping, Precisions);

/// Gain 1 around no bias.
template <typename T> ShapeDrive<T> plainDrive()
{
    ShapeDrive<T> drive;
    std::fill(std::begin(drive.gain), std::end(drive.gain), T(1));
    std::fill(std::begin(drive.level), std::end(drive.level), T(1));
    return drive;
}

TYPED_TEST(AntiderivativeShaping, IsTheMeanOverTheWayHoweverNearTheNeighbours)
{
    using T = TypeParam;
    const double exactness = std::is_same_v<T, float> ? 5e-7 : 1e-10;
    const double points[] = {0,    -0.0, 1e-7,  0.003, 0.3,  -0.3, 0.99999, 1,   -1,
                             1.01, 1.5,  -1.49, 2.5,   -2.6, 7,    -12.5,   9.4, -15.8};
    Signal<T> from, to;
    for (const double a : points) {
        for (const double b : points) from.push_back(T(a)), to.push_back(T(b));
        for (const double near : {1e-3, 1e-6, 1e-9, 1e-15})
            from.push_back(T(a)), to.push_back(T(a + near));
    }
    const auto drive = plainDrive<T>();
    for (const auto curve : kCurves)
        for (std::size_t k = 0; k < from.size(); ++k) {
            T x[2 + kShapePadding]{from[k], to[k]}, y[1 + kShapePadding]{};
            const T* const in = x + 1;
            T* const out = y;
            AntiderivativeShape<T>::process(curve, drive, &in, 1, &out, {1, 0});
            const double a = double(from[k]), b = double(to[k]);
            const double size = std::min(1.0, std::max(std::abs(a), std::abs(b)));
            ASSERT_NEAR(double(y[0]), meanOf(curve, a, b), exactness * size)
                << int(curve) << ": " << a << " to " << b;
        }
}

TYPED_TEST(AntiderivativeShaping, StaysWithinItsLimitsAndSilent)
{
    using T = TypeParam;
    auto x = noise<T>(1 + ShapeDrive<T>::kFrames, 3, 1e6);
    const T smallest = std::numeric_limits<T>::min();
    for (int i = 8; i < 14; ++i) x[std::size_t(i)] = (i % 2 ? 1 : -1) * smallest;
    for (int i = 14; i < 20; ++i) x[std::size_t(i)] = i % 2 ? 0 : smallest / 2;
    for (int i = 20; i < 28; ++i) x[std::size_t(i)] = 0;
    const FlushDenormals flush;  // as while an effect runs
    for (const auto curve : kCurves)
        for (const double bias : {0.0, 0.3, -0.7}) {
            auto drive = plainDrive<T>();
            std::fill(std::begin(drive.bias), std::end(drive.bias), T(bias));
            AntiderivativeShape<T>::findRest(curve, drive);
            Signal<T> y(x.size());
            const T* const in = x.data() + 1;
            T* const out = y.data() + 1;
            AntiderivativeShape<T>::process(curve, drive, &in, 1, &out, {32, 0});
            for (std::size_t i = 1; i <= 32; ++i)
                ASSERT_LE(std::abs(y[i]), T(2.000001)) << int(curve);
            for (std::size_t i = 21; i < 28; ++i) ASSERT_EQ(y[i], 0) << int(curve) << ", " << bias;
        }
}

/// Phases, lengths and a drive that moves against one sample after the other.
TYPED_TEST(AntiderivativeShaping, GoesThroughThePhasesInOrderUnderItsDrive)
{
    using T = TypeParam;
    constexpr std::size_t kRoom = ShapeDrive<T>::kFrames, kPast = 1;
    ShapeDrive<T> drive;
    std::ranges::copy(noise<T>(kRoom, 9, 0.8), drive.bias);
    std::ranges::copy(noise<T>(kRoom, 10, 3), drive.gain);
    std::ranges::copy(noise<T>(kRoom, 11, 1), drive.level);
    for (const auto curve : kCurves) {
        AntiderivativeShape<T>::findRest(curve, drive);
        for (const std::size_t phases : {1u, 2u, 4u, 8u})
            for (const GridSlice slice : {GridSlice{1, 31}, GridSlice{7, 3}, kWholeSubBlock}) {
                Channels<T> x(phases), y(phases, Signal<T>(kRoom));
                std::array<const T*, 8> in{};
                std::array<T*, 8> out{};
                for (std::size_t p = 0; p < phases; ++p) {
                    x[p] = noise<T>(kRoom + kPast, 1 + std::uint32_t(p), 2);
                    in[p] = x[p].data() + kPast;
                    out[p] = y[p].data();
                }
                AntiderivativeShape<T>::process(curve, drive, in.data(), int(phases), out.data(),
                                                slice);
                for (int i = 0; i < slice.frames; ++i)
                    for (std::size_t p = 0; p < phases; ++p) {
                        const double before = double(p > 0 ? in[p - 1][i] : in[phases - 1][i - 1]);
                        const int at = slice.phase + i;
                        const double gain = double(drive.gain[at]), bias = double(drive.bias[at]);
                        const double mean =
                            meanOf(curve, gain * before + bias, gain * double(in[p][i]) + bias);
                        ASSERT_NEAR(double(out[p][i]),
                                    double(drive.level[at]) * (mean - saturate(curve, bias)), 2e-6)
                            << int(curve) << ", " << phases << ", " << i;
                    }
            }
    }
}

TEST(LevelMatch, KeepsNoiseAtItsLevel)
{
    const struct {
        Saturation curve;
        double db[4];  // at a drive of 0, 12, 24 and 48 dB
    } cases[] = {{Warm, {0.20, -9.98, -15.49, -17.83}},
                 {Hard, {0.00, -11.64, -16.69, -17.93}},
                 {Tube, {0.44, -8.81, -13.47, -15.37}}};
    // In closed form; at 48 dB the curve's bend is narrower than the distance of the points.
    const double drives[] = {0, 12, 24, 48};
    for (const auto& [curve, wanted] : cases)
        for (int k = 0; k < 4; ++k)
            EXPECT_NEAR(db(levelMatch(curve, dbToGain(drives[k]), 0)), wanted[k],
                        k < 3 ? 0.01 : 0.045)
                << int(curve) << ", " << drives[k];
    // With a bias: its constant does not count.
    std::mt19937 random(kSeed);
    std::normal_distribution<double> normal(0, dbToGain(-18.0));
    for (const auto curve : kCurves) {
        double sum = 0, squares = 0;
        constexpr int kCount = 200000;
        for (int i = 0; i < kCount; ++i) {
            const double y = saturate(curve, 4 * normal(random) + 0.6);
            sum += y / kCount;
            squares += y * y / kCount;
        }
        EXPECT_NEAR(db(levelMatch(curve, 4, 0.6) * std::sqrt(squares - sum * sum)), -18, 0.05)
            << int(curve);
    }
}

}  // namespace
}  // namespace quillworks
