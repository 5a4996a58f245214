// SPDX-License-Identifier: ISC
#include "dsp/farrow_line.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

#include "tests/support/dirty_memory.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

/// The n samples of x from `from` on, in all channels, in pieces of `block`.
template <typename T>
void write(FarrowLine<T>& line, int channels, const Signal<T>& x, int from, int n, int block = 32)
{
    for (int done = 0; done < n; done += block) {
        const int count = std::min(block, n - done);
        for (int c = 0; c < channels; ++c)
            std::copy_n(x.data() + from + done, count, line.incoming(c));
        line.advance(count);
    }
}

template <typename T>
void readOne(const FarrowLine<T>& line, int channel, TapGlide glide, int n, T* out)
{
    const typename FarrowLine<T>::Tap tap{channel, glide, out};
    line.read({&tap, 1}, n);
}

template <typename T> class FarrowLines : public ::testing::Test {
    DirtyMemory dirty_;
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FarrowLines, Precisions);

/// A tone through a tap that moves by 2 ms at 1 Hz, against where it ought to be; in dB.
template <typename T> double movingTapError(double frequency, int block)
{
    constexpr double kRate = 48000;
    constexpr int kFrames = 48000;
    const double w = 2 * std::numbers::pi * frequency / kRate;
    FarrowLine<T> line;
    line.prepare(1, 400);
    const auto x = sine<T>(kFrames, frequency, kRate);
    const auto delayAt = [](int i) {
        return TapGlide::of(120 + 96 * std::sin(2 * std::numbers::pi * i / kRate));
    };
    double error = 0, power = 0;
    for (int from = 0; from < kFrames; from += block) {
        const int n = std::min(block, kFrames - from);
        write(line, 1, x, from, n);
        const std::int64_t delay = delayAt(from), step = (delayAt(from + n) - delay) / n;
        T y[32];
        readOne(line, 0, {delay + (n - 1) * TapGlide::kOne, step - TapGlide::kOne}, n, y);
        for (int i = 0; i < n && from > 400; ++i) {
            const double at = double(delay + i * step) / double(TapGlide::kOne);
            const double wanted = std::sin(w * (from + i - at));
            error += std::pow(double(y[i]) - wanted, 2);
            power += wanted * wanted;
        }
    }
    return 10 * std::log10(error / power);
}

TYPED_TEST(FarrowLines, AMovingTapKeepsTheTreble)
{
    const std::pair<double, double> bars[] = {{1000, -97},  {5000, -95},  {10000, -96},
                                              {15000, -99}, {18000, -98}, {20000, -33}};
    for (const auto& [frequency, bar] : bars)
        for (const int block : {32, 9}) {
            const double error = movingTapError<TypeParam>(frequency, block);
            EXPECT_LT(error, bar) << frequency << ", " << block;
            this->RecordProperty("error" + std::to_string(int(frequency)), std::to_string(error));
        }
}

/// Lines of any age, read at any speed: the same as one long one that began with zeros, however
/// writing and reading are cut, and nothing from before the clear.
TYPED_TEST(FarrowLines, PointsDependOnTheSignalAlone)
{
    using T = TypeParam;
    constexpr int kCapacity = 300, kFrames = 3000;
    const auto x = noise<T>(kFrames);
    std::mt19937 random(kSeed);
    const auto upTo = [&](int most) { return int(random() % unsigned(most + 1)); };
    FarrowLine<T> line, reference;
    line.prepare(3, kCapacity);
    reference.prepare(1, kFrames);
    int cleared = 0;
    Signal<T> heard(kFrames);  // since the clear, after zeros
    for (int at = 0; at < kFrames;) {
        if (at - cleared > 1000) {
            line.clear();
            cleared = at;
            std::fill(heard.begin(), heard.end(), T(0));
            reference.clear();
            write(reference, 1, heard, 0, 400);
        }
        const int n = std::min(1 + upTo(31), kFrames - at);
        write(line, 3, x, at, n, 1 + upTo(31));
        write(reference, 1, x, at, n);
        at += n;

        const int points = 1 + upTo(31), cut = upTo(points - 1);
        const double steps[] = {-1, -1.003, -0.98, -0.7, 0, 0.4};
        const std::int64_t step = TapGlide::of(steps[random() % 6]);
        const TapGlide glide{TapGlide::of(43 + upTo(200) + 0.001 * upTo(999)), step};
        T whole[2][32], pieces[32], wanted[32];
        const auto gains = noise<T>(32, std::uint32_t(at)), before = noise<T>(32, 7);
        auto added = before;
        const typename FarrowLine<T>::Tap taps[] = {
            {0, glide, whole[0]}, {2, glide, whole[1]}, {1, glide, added.data(), gains.data()}};
        line.read(taps, points);
        if (cut > 0) readOne(line, 1, glide, cut, pieces);
        readOne(line, 1, {glide.first + cut * step, step}, points - cut, pieces + cut);
        readOne(reference, 0, glide, points, wanted);
        for (int i = 0; i < points; ++i) {
            const auto k = std::size_t(i);
            ASSERT_EQ(whole[0][i], wanted[i]) << at << ": " << i;
            ASSERT_EQ(whole[1][i], wanted[i]) << at << ": " << i;
            ASSERT_EQ(pieces[i], wanted[i]) << at << ": " << i;
            ASSERT_NEAR(added[k], before[k] + wanted[i] * gains[k], 1e-6) << at << ": " << i;
        }
        // Whole distances are read bit by bit, from the nearest to the farthest.
        for (const int distance : {12, 13, upTo(kCapacity - 12) + 12, kCapacity}) {
            T exact;
            readOne(line, 2, {distance * TapGlide::kOne, 0}, 1, &exact);
            const int from = at - 1 - distance;
            ASSERT_EQ(exact, from < cleared ? T(0) : x[std::size_t(from)])
                << at << ", " << distance;
        }
    }
}

}  // namespace
}  // namespace quillworks
