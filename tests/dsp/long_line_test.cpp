// SPDX-License-Identifier: ISC
#include "dsp/long_line.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "dsp/tap_reader.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

/// Memory that is full of what must not be heard, as freed memory may be.
class DirtyMemory {
public:
    ~DirtyMemory() { BufferMemory::exchangeService(usual_); }

private:
    static constexpr BufferMemory kDirty{
        [](std::size_t bytes) noexcept {
            void* const memory = std::malloc(bytes);
            std::memset(memory, 0xff, bytes);  // not-a-number, as float and as double
            return memory;
        },
        [](void* memory) noexcept { std::free(memory); }};
    const BufferMemory& usual_ = BufferMemory::exchangeService(kDirty);
};

template <typename T> class LongLines : public ::testing::Test {
    DirtyMemory dirty_;
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(LongLines, Precisions);

TYPED_TEST(LongLines, GivesBackWhatWasWrittenAndZerosBeforeTheClear)
{
    using T = TypeParam;
    constexpr int kCapacity = 200, kChannels = 3;
    std::mt19937 random(kSeed);
    const auto upTo = [&](int most) { return int(random() % unsigned(most + 1)); };
    LongLine<T> line;
    line.prepare(kChannels, kCapacity);
    Channels<T> past(kChannels);  // since the clear
    for (int round = 0; round < 2000; ++round) {
        if (round % 150 == 0) {
            line.clear();
            past.assign(kChannels, {});
        }
        const int n = round % 7 ? upTo(70) : upTo(kCapacity);
        const T* in[kChannels];
        for (int c = 0; c < kChannels; ++c) {
            for (int i = 0; i < n; ++i)
                past[std::size_t(c)].push_back(T(round + 1) + T(i * 3 + c) / 1000);
            in[c] = past[std::size_t(c)].data() + past[std::size_t(c)].size() - n;
        }
        line.write(in, n);
        const int distance = upTo(kCapacity - 1), run = 1 + upTo(std::min(distance, 63));
        const int c = upTo(kChannels - 1);
        const auto& x = past[std::size_t(c)];
        const auto wanted = [&](int i) {
            const auto at = std::ssize(x) - 1 - distance + i;
            return at < 0 ? T(0) : x[std::size_t(at)];
        };
        std::array<T, 64> out;
        line.copy(c, out.data(), distance, run);
        for (int i = 0; i < run; ++i)
            ASSERT_EQ(out[std::size_t(i)], wanted(i)) << round << ":" << i;
        if (distance < line.valid()) {
            for (int i = 0; i < run; ++i) ASSERT_EQ(line.at(c, distance)[i], wanted(i)) << round;
        }
    }
}

TEST(LongLine, PreparingTouchesNoMemory)
{
    static std::vector<std::uint8_t> block;
    block.assign(1 << 20, 0x5a);
    static constexpr BufferMemory own{[](std::size_t) noexcept -> void* { return block.data(); },
                                      [](void*) noexcept {}};
    const BufferMemory& usual = BufferMemory::exchangeService(own);
    {
        LongLine<double> line;
        line.prepare(2, 50000);
        EXPECT_EQ(std::count(block.begin(), block.end(), 0x5a), std::ssize(block));
    }
    BufferMemory::exchangeService(usual);
}

TYPED_TEST(LongLines, ReadersBetweenTheSamplesHearNothingFromBeforeTheClear)
{
    using T = TypeParam;
    LongLine<T> line;
    line.prepare(2, 300);
    TapReader<T> reader;
    reader.prepare();
    const auto x = noise<T>(40);
    T out[2][100];
    T* const to[2] = {out[0], out[1]};
    std::vector<double> distances;
    for (int i = 0; i < 100; ++i) distances.push_back(12 + i * 2.7);
    reader.read(line, 0, 2, distances.data(), 100, to);
    for (const T y : out[1]) ASSERT_EQ(y, T(0));
    // The same as after 300 zeros.
    const T* const in[2] = {x.data(), x.data()};
    line.write(in, 40);
    reader.read(line, 0, 2, distances.data(), 100, to);
    LongLine<T> other;
    other.prepare(1, 400);
    const Signal<T> zeros(350);
    const T *const silence[1] = {zeros.data()}, *const same[1] = {x.data()};
    other.write(silence, 350);
    other.write(same, 40);
    T wanted[100];
    T* const toWanted[1] = {wanted};
    reader.read(other, 0, 1, distances.data(), 100, toWanted);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(out[1][i], wanted[i]) << i;
}

/// A tone through a tap that moves by 2 ms at 1 Hz, against where it ought to be; in dB.
template <typename T> double movingTapError(double frequency, int block)
{
    constexpr double kRate = 48000;
    constexpr int kFrames = 48000;
    const double w = 2 * std::numbers::pi * frequency / kRate;
    LongLine<T> line;
    line.prepare(1, 1000);
    TapReader<T> reader;
    reader.prepare();
    const auto x = sine<T>(kFrames, frequency, kRate);
    Signal<T> y(kFrames);
    double error = 0, power = 0;
    for (int from = 0; from < kFrames; from += block) {
        const int n = std::min(block, kFrames - from);
        const T* const in[1] = {x.data() + from};
        line.write(in, n);
        std::vector<double> distances;
        for (int i = 0; i < n; ++i) {
            const double delay = 120 + 96 * std::sin(2 * std::numbers::pi * (from + i) / kRate);
            distances.push_back(delay + n - 1 - i);
        }
        T* const out[1] = {y.data() + from};
        reader.read(line, 0, 1, distances.data(), n, out);
        for (int i = 0; i < n; ++i)
            if (from + i > 400) {
                const double wanted =
                    std::sin(w * (from + i - (distances[std::size_t(i)] - n + 1 + i)));
                error += std::pow(double(y[std::size_t(from + i)]) - wanted, 2);
                power += wanted * wanted;
            }
    }
    return 10 * std::log10(error / power);
}

TYPED_TEST(LongLines, AMovingTapKeepsTheTreble)
{
    const std::pair<double, double> bars[] = {{1000, -97},  {5000, -95},  {10000, -97},
                                              {15000, -96}, {18000, -86}, {20000, -34}};
    for (const auto& [frequency, bar] : bars) {
        const double error = movingTapError<TypeParam>(frequency, 100);
        EXPECT_LT(error, bar) << frequency;
        EXPECT_NEAR(movingTapError<TypeParam>(frequency, 9), error, 0.01) << frequency;
    }
}

TYPED_TEST(LongLines, TapsDependNeitherOnTheirNeighboursNorOnTheChannelsAndAreExactOnSamples)
{
    using T = TypeParam;
    constexpr int kPoints = 75;
    LongLine<T> line;
    line.prepare(2, 500);
    const auto a = noise<T>(700), b = noise<T>(700, 5);
    for (int from = 0; from < 700; from += 350) {
        const T* const in[2] = {a.data() + from, b.data() + from};
        line.write(in, 350);
    }
    TapReader<T> reader;
    reader.prepare();
    std::vector<double> distances;
    for (int i = 0; i < kPoints; ++i) distances.push_back(i % 5 ? 12 + i * 6.37 : 12 + i * 6);
    T out[2][kPoints];
    T* const to[2] = {out[0], out[1]};
    reader.read(line, 0, 2, distances.data(), kPoints, to);
    for (int i = 0; i < kPoints; ++i) {
        T alone;
        T* const toAlone[1] = {&alone};
        reader.read(line, 1, 1, &distances[std::size_t(i)], 1, toAlone);
        ASSERT_EQ(out[1][i], alone) << i;
        if (i % 5 == 0) {
            ASSERT_EQ(out[0][i], a[699 - std::size_t(12 + i * 6)]) << i;
        }
    }
}

TYPED_TEST(LongLines, GlidesReadAndAddWhatPointsReadWhereverTheyAreCut)
{
    using T = TypeParam;
    LongLine<T> line;
    line.prepare(2, 500);
    TapReader<T> reader;
    reader.prepare();
    std::mt19937 random(kSeed);
    // The line fills up, wraps round, and some of the taps are no samples yet.
    for (int turn = 0; turn < 200; ++turn) {
        const auto x = noise<T>(7, std::uint32_t(turn));
        const T* const in[2] = {x.data(), x.data()};
        line.write(in, 7);
        const int n = 1 + int(random() % 32), cut = int(random() % unsigned(n));
        const TapGlide glide{TapGlide::of(12 + double(random() % 300) + turn % 3 * 0.4) +
                                 40 * TapGlide::kOne,
                             std::int64_t(random()) % TapGlide::kOne * (turn % 4 ? 1 : -1)};
        std::vector<double> distances;
        for (int i = 0; i < n; ++i)
            distances.push_back(double(glide.first + i * glide.step) / double(TapGlide::kOne));
        T points[2][32], whole[2][32], pieces[32];
        T* const toPoints[2] = {points[0], points[1]};
        T* const toWhole[2] = {whole[0], whole[1]};
        reader.read(line, 0, 2, distances.data(), n, toPoints);
        reader.follow(line, 0, 2, glide, n, toWhole);
        T *const first[1] = {pieces}, *const second[1] = {pieces + cut};
        if (cut > 0) reader.follow(line, 1, 1, glide, cut, first);
        reader.follow(line, 1, 1, {glide.first + cut * glide.step, glide.step}, n - cut, second);
        const auto gains = noise<T>(64, 1000 + std::uint32_t(turn)), before = noise<T>(32, 7);
        auto left = before, right = before;
        const T* const by[2] = {gains.data(), gains.data() + 32};
        T* const to[2] = {left.data(), right.data()};
        reader.add(line, 0, n > 7 ? 1 : 2, glide, n, by, to);
        for (int i = 0; i < n; ++i) {
            const T added[2] = {whole[0][i] * by[0][i], n > 7 ? T(0) : whole[1][i] * by[1][i]};
            ASSERT_EQ(to[0][i], before[std::size_t(i)] + added[0]) << turn << ": " << i;
            ASSERT_EQ(to[1][i], before[std::size_t(i)] + added[1]) << turn << ": " << i;
            ASSERT_NEAR(whole[0][i], points[0][i], 1e-6) << turn << ": " << i;
            ASSERT_EQ(pieces[i], whole[1][i]) << turn << ": " << i;
        }
    }
}

}  // namespace
}  // namespace quillworks
