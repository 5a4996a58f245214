// SPDX-License-Identifier: ISC
#include "dsp/long_line.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "dsp/sinc_table.h"
#include "dsp/tap_reader.h"
#include "tests/support/dirty_memory.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

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

/// Between the samples by 32 taps.
struct Reader {
    std::shared_ptr<const SincTable<float>> table = SincTable<float>::shared({32, 128, 8});

    void read(const LongLine<float>& line, int channel, int channels, const double* distances,
              int n, float* const* out) const
    {
        readBetween<float, 32>(line, channel, channels, {table->row(0), 128}, distances, n, out);
    }
};

TEST(TapReading, ReadersBetweenTheSamplesHearNothingFromBeforeTheClear)
{
    using T = float;
    const DirtyMemory dirty;
    LongLine<T> line;
    line.prepare(2, 300);
    const Reader reader;
    const auto x = noise<T>(40);
    T out[2][100];
    T* const to[2] = {out[0], out[1]};
    std::vector<double> distances;
    for (int i = 0; i < 100; ++i) distances.push_back(16 + i * 2.7);
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

TEST(TapReading, TapsDependNeitherOnTheirNeighboursNorOnTheChannelsAndAreExactOnSamples)
{
    using T = float;
    constexpr int kPoints = 75;
    LongLine<T> line;
    line.prepare(2, 500);
    const auto a = noise<T>(700), b = noise<T>(700, 5);
    for (int from = 0; from < 700; from += 350) {
        const T* const in[2] = {a.data() + from, b.data() + from};
        line.write(in, 350);
    }
    const Reader reader;
    std::vector<double> distances;
    for (int i = 0; i < kPoints; ++i) distances.push_back(i % 5 ? 16 + i * 6.2 : 16 + i * 6);
    T out[2][kPoints];
    T* const to[2] = {out[0], out[1]};
    reader.read(line, 0, 2, distances.data(), kPoints, to);
    for (int i = 0; i < kPoints; ++i) {
        T alone;
        T* const toAlone[1] = {&alone};
        reader.read(line, 1, 1, &distances[std::size_t(i)], 1, toAlone);
        ASSERT_EQ(out[1][i], alone) << i;
        if (i % 5 == 0) {
            ASSERT_EQ(out[0][i], a[699 - std::size_t(16 + i * 6)]) << i;
        }
    }
}

}  // namespace
}  // namespace quillworks
