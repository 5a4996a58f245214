// SPDX-License-Identifier: ISC
// Control values over sub-blocks: what glides has the same bits however the signal is divided.
#include "dsp/course.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/dry_wet.h"
#include "dsp/follower.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;
using Precisions = ::testing::Types<float, double>;

constexpr int kFrames = 3200;
constexpr double kRate = 48000;

/// Calls f(first frame, slice) for the sub-blocks of a signal cut into blocks.
template <class F> void inBlocks(int block, F&& f)
{
    for (int start = 0; start < kFrames; start += block) {
        const int end = std::min(kFrames, start + block);
        for (int at = start; at < end;) {
            const GridSlice slice{std::min(end - at, kSubBlock - at % kSubBlock), at % kSubBlock};
            f(at, slice);
            at += slice.frames;
        }
    }
}

template <typename T> class Courses : public ::testing::Test {};
TYPED_TEST_SUITE(Courses, Precisions);

TYPED_TEST(Courses, EndOnTheRampAndAreTheSameAtAllBlockLengths)
{
    using T = TypeParam;
    const auto run = [](int block) {
        Smoothed<T> value;
        value.prepareHalfLife(1);
        value.target(1);
        Course<T> course;
        auto x = constant<T>(kFrames, 1);
        inBlocks(block, [&](int at, GridSlice slice) {
            if (at == 1600) value.target(T(0.3));
            course.follow(value, slice);
            course.scale(x.data() + at, slice);
            if (slice.ends()) {
                EXPECT_EQ(x[std::size_t(at + slice.frames - 1)], value.current());
            }
        });
        return x;
    };
    const auto whole = run(1600);
    EXPECT_EQ(whole.back(), T(0.3));
    EXPECT_EQ(whole[1599], T(1));
    for (const int block : {1, 7, 32, 1000}) EXPECT_EQ(run(block), whole) << block;
}

template <typename T> Signal<T> mixed(MixLaw law, T from, T to, int block, int delay = 0)
{
    DryWet<T> mixer;
    mixer.prepareHalfLife(20);
    mixer.prepareDry(1, 100);
    mixer.setDelay(delay);
    mixer.setLaw(law);
    mixer.target(from);
    mixer.reset();
    mixer.target(to);
    auto x = noise<T>(kFrames, 1);
    const auto wet = noise<T>(kFrames, 2);
    inBlocks(block, [&](int at, GridSlice slice) {
        T* const p = x.data() + at;
        mixer.next(slice);
        const T* const dry = mixer.keep(0, p, slice.frames);
        std::copy_n(wet.data() + at, slice.frames, p);
        mixer.mix(p, dry, slice);
    });
    return x;
}

TYPED_TEST(Courses, DryWetCopiesAtItsEndsAndGlidesTheSameAtAllBlockLengths)
{
    using T = TypeParam;
    const auto dry = noise<T>(kFrames, 1), wet = noise<T>(kFrames, 2);
    for (const auto law : {MixLaw::Linear, MixLaw::Balance, MixLaw::EqualPower}) {
        EXPECT_EQ(mixed<T>(law, 0, 0, 1000), dry);
        EXPECT_EQ(mixed<T>(law, 1, 1, 1000), wet);
        const auto glide = mixed<T>(law, 0, 1, kFrames);
        const double g[][2] = {
            {0.7, 0.3}, {1, 0.6}, {std::cos(0.15 * M_PI), std::sin(0.15 * M_PI)}};
        const auto at3 = mixed<T>(law, T(0.3), T(0.3), 1000);
        for (std::size_t i = 0; i < kFrames; ++i)
            ASSERT_NEAR(at3[i], g[int(law)][0] * double(dry[i]) + g[int(law)][1] * double(wet[i]),
                        1e-6);
        for (const int block : {1, 7, 32, 1000})
            EXPECT_EQ(mixed<T>(law, 0, 1, block), glide) << block;
    }
}

TYPED_TEST(Courses, DryWetDelaysTheDrySignalAlone)
{
    using T = TypeParam;
    const auto dry = noise<T>(kFrames, 1);
    const auto late = mixed<T>(MixLaw::Linear, 0, 0, 17, 39);
    for (std::size_t i = 0; i < kFrames; ++i) ASSERT_EQ(late[i], i < 39 ? T(0) : dry[i - 39]);
    EXPECT_EQ(mixed<T>(MixLaw::Linear, 1, 1, 17, 39), noise<T>(kFrames, 2));
}

TYPED_TEST(Courses, PowerOfASubBlockDoesNotDependOnTheDivision)
{
    using T = TypeParam;
    const auto left = noise<T>(kFrames, 1), right = noise<T>(kFrames, 2);
    const auto run = [&](int block) {
        SubBlockPower power;
        Signal<double> result;
        inBlocks(block, [&](int at, GridSlice slice) {
            const T* const x[] = {left.data() + at, right.data() + at};
            power.add(x, 2, slice);
            if (slice.ends()) result.push_back(power.power());
        });
        return result;
    };
    const auto whole = run(kFrames);
    EXPECT_NEAR(whole[7] * kSubBlock,
                kSubBlock * (std::pow(rms(left, 224, 256), 2) + std::pow(rms(right, 224, 256), 2)),
                1e-12);
    for (const int block : {1, 7, 1000}) EXPECT_EQ(run(block), whole) << block;
}

TEST(DelayLines, ReadAtTheNewDelayWhatWasWrittenUnderTheOldOne)
{
    DelayLine<double> line;
    line.prepare(700, 3);
    double x[kSubBlock];
    for (int at = 0; at < 3200; at += kSubBlock) {
        for (int i = 0; i < kSubBlock; ++i) x[i] = at + i + 1;
        if (at == 1600) line.setDelay(650);
        if (at == 2400) line.setDelay(100000);
        const double* const y = line.push(x, kSubBlock);
        for (int i = -1; i < kSubBlock; ++i)
            ASSERT_EQ(y[i], std::max(0, at + i + 1 - line.delay()));
        ASSERT_EQ(line.tap(0, kSubBlock)[5], x[5]);
    }
    EXPECT_EQ(line.delay(), 700);
}

TEST(Followers, CoverAllButExpOfMinusTwoPiInTheirTimeWhicheverTimeIsLonger)
{
    const double left = std::exp(-2 * M_PI);
    for (const auto& [rise, fall] : {std::pair{0.2, 0.005}, {0.005, 0.2}}) {
        EnvelopeFollower f;
        f.setTimes(kRate, rise, fall);
        for (int i = 0; i < int(rise * kRate); ++i) f.next(1);
        EXPECT_NEAR(f.envelope, 1 - left, 1e-9);
        const double top = f.envelope;
        for (int i = 0; i < int(fall * kRate); ++i) f.next(0);
        EXPECT_NEAR(f.envelope, top * left, 1e-9);
        PowerFollower p;  // its constants leave 1/e
        p.setTimes(kRate, rise, fall);
        const int subBlocks = int(rise * kRate / kSubBlock);
        for (int i = 0; i < subBlocks; ++i) p.next(1);
        EXPECT_NEAR(p.value(), 1 - std::exp(-subBlocks * kSubBlock / (rise * kRate)), 1e-9);
        const double before = p.value();
        p.next(0);
        EXPECT_NEAR(p.value(), before * std::exp(-kSubBlock / (fall * kRate)), 1e-9);
    }
}

}  // namespace
}  // namespace quillworks
