// SPDX-License-Identifier: ISC
#include "dsp/aligned_buffer.h"

#include "tests/dsp/counting_memory.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace quillworks {
namespace {

TEST(AlignedBuffer, StartsOnItsBoundaryZeroedAndWritableToTheEnd)
{
    std::vector<AlignedBuffer<float>> all;
    for (std::size_t n = 1; n < 400; n += 7) {
        auto& buffer = all.emplace_back(n);
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(buffer.data()) % 128, 0u) << n;
        ASSERT_EQ(std::count(buffer.begin(), buffer.end(), 0.0f), static_cast<std::ptrdiff_t>(n));
        buffer.fill(static_cast<float>(n));
    }
    for (const auto& b : all)
        for (const float x : b) ASSERT_EQ(x, static_cast<float>(b.size()));
}

TEST(AlignedBuffer, AllocatesWhenItsByteCountChangesOnly)
{
    CountingMemory memory;
    AlignedBuffer<double> buffer(64);
    buffer[63] = 5;
    EXPECT_TRUE(buffer.resize(64));
    EXPECT_EQ(buffer[63], 5);
    EXPECT_EQ(memory.allocations, 1);
    EXPECT_TRUE(buffer.resize(32));
    EXPECT_EQ(memory.allocations, 2);

    AlignedBuffer<double> other = std::move(buffer);
    EXPECT_EQ(other.size(), 32u);
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(memory.allocations, 2);
    other = AlignedBuffer<double>(3);
    EXPECT_EQ(memory.releases, 2);
    EXPECT_TRUE(other.resize(0));
    EXPECT_EQ(other.data(), nullptr);
    EXPECT_EQ(memory.releases, memory.allocations);
}

TEST(AlignedBuffer, IsEmptyAfterAFailureAndUsableAgain)
{
    CountingMemory memory;
    AlignedBuffer<double> buffer(8);
    EXPECT_FALSE(buffer.resize(std::numeric_limits<std::size_t>::max() / 8));
    EXPECT_TRUE(buffer.empty());
    EXPECT_TRUE(buffer.resize(8));
    EXPECT_FALSE(buffer.resize(std::numeric_limits<std::size_t>::max() / 4));  // count wraps
    EXPECT_TRUE(buffer.empty());
    EXPECT_TRUE(buffer.resize(8));
    memory.isExhausted = true;
    EXPECT_FALSE(buffer.resize(9));
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(buffer.begin(), buffer.end());
    EXPECT_EQ(memory.releases, memory.allocations);
    memory.isExhausted = false;
    EXPECT_TRUE(buffer.resize(9));
    EXPECT_EQ(buffer.size(), 9u);
}

}  // namespace
}  // namespace quillworks
