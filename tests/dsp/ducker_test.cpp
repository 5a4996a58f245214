// SPDX-License-Identifier: ISC
// The depth and timing of ducking, at every level and every division of the signal.
#include "dsp/ducker.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

constexpr double kRate = 48000;

template <typename T> class Duckers : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Duckers, Precisions);

struct Ducked {
    std::vector<double> gains;  // dB, at the end of each sub-block
    Signal<double> wet;

    double at(double seconds) const { return gains[std::size_t(seconds * kRate / kSubBlock)]; }
};

template <typename T>
Ducked ducked(const Signal<T>& dry, Signal<T> wet, double depth, double recovery, int block = 32)
{
    Ducker<T> ducker;
    ducker.prepare(kRate, 10);
    ducker.setDepth(depth);
    ducker.setRecovery(recovery);
    ducker.reset();
    Ducked result;
    for (int at = 0; at < int(dry.size());) {
        const int phase = at % kSubBlock,
                  n = std::min({block - at % block, kSubBlock - phase, int(dry.size()) - at});
        const T* const in[] = {dry.data() + at};
        T* const out[] = {wet.data() + at};
        ducker.process(in, 1, out, 1, {n, phase});
        at += n;
        if (at % kSubBlock == 0) result.gains.push_back(ducker.gainDb());
    }
    result.wet = as<double>(wet);
    return result;
}

/// Noise of full scale between two times.
template <typename T> Signal<T> word(double length, double from, double to, std::uint32_t seed = 1)
{
    auto x = noise<T>(std::size_t(length * kRate), seed, 1);
    for (std::size_t i = 0; i < x.size(); ++i)
        if (double(i) < from * kRate || double(i) >= to * kRate) x[i] = 0;
    return x;
}

TYPED_TEST(Duckers, DuckByTheDepthWhileTheVoiceSoundsAndComeBackInTheRecovery)
{
    using T = TypeParam;
    // A voice of 3 s under echoes of its own loudness that go on.
    for (const auto& [recovery, back] : {std::pair{0.1, 0.107}, {0.3, 0.343}}) {
        const auto y = ducked(word<T>(4, 0, 3), word<T>(4, 0.375, 4, 2), 12, recovery);
        const double depth = y.at(2.9);
        EXPECT_NEAR(depth, -10.8, 0.2) << recovery;
        EXPECT_LT(y.at(3 + back - 0.02), 0.1 * depth) << recovery;
        EXPECT_GT(y.at(3 + back + 0.02), 0.1 * depth) << recovery;
    }
    // A phrase 10 dB softer than the one before; then echoes 10 dB louder than the voice.
    auto voice = word<T>(6, 0, 6), echoes = word<T>(6, 0.375, 6, 2);
    for (std::size_t i = 2 * 48000; i < voice.size(); ++i) {
        voice[i] *= T(0.316);
        if (i > 114000 && i < 240000) echoes[i] *= T(0.316);
    }
    const auto y = ducked(voice, echoes, 12, 0.3);
    EXPECT_NEAR(y.at(2.35), -6.3, 0.5);
    EXPECT_NEAR(y.at(4), -9, 0.5);
    EXPECT_NEAR(y.at(5.9), -6.2, 0.5);
}

TYPED_TEST(Duckers, AreAsDeepAtEveryLevel)
{
    using T = TypeParam;
    const auto dry = word<T>(2, 0.1, 1), wet = word<T>(2, 0.475, 2, 2);
    const auto loud = ducked(dry, wet, 12, 0.3);
    for (const auto& [level, bar] : {std::pair{0.0316, 0.001}, {0.001, 0.005}}) {
        auto a = dry, b = wet;
        for (auto* x : {&a, &b})
            for (auto& v : *x) v *= T(level);
        const auto soft = ducked(a, b, 12, 0.3);
        for (const double t : {0.2, 0.9, 1.05}) EXPECT_NEAR(soft.at(t), loud.at(t), bar) << t;
    }
}

TYPED_TEST(Duckers, SpareTheOnsetOfTheEchoOfAFinishedWord)
{
    using T = TypeParam;
    for (const double length : {0.005, 0.02, 0.1, 0.3, 0.4})
        for (const double recovery : {0.1, 0.3, 1.0}) {
            const double echo = 0.1 + length + 0.275;
            const auto y = ducked(word<T>(2, 0.1, 0.1 + length), word<T>(2, echo, echo + length, 2),
                                  12, recovery);
            const double before = y.at(echo - 0.001);
            for (double t = echo; t < echo + 0.01; t += 0.001)
                EXPECT_GT(y.at(t), before - 0.05) << length << " " << recovery;
            if (length == 0.1 && recovery == 0.3) {
                EXPECT_NEAR(before, -2.7, 0.3);
            }
        }
}

TYPED_TEST(Duckers, NeitherBlocksNorFaultsMatterAndNoDepthLeavesTheEchoesAlone)
{
    using T = TypeParam;
    auto dry = word<T>(4, 0.1, 4), wet = word<T>(4, 0.475, 4, 2);
    EXPECT_EQ(ducked(dry, wet, 0, 0.3).wet, as<double>(wet));
    dry[9999] = T(1e30);
    dry[20000] = std::numeric_limits<T>::infinity();
    wet[25000] = std::numeric_limits<T>::quiet_NaN();
    const auto y = ducked(dry, wet, 12, 0.3);
    EXPECT_LT(y.at(3.9), -8);  // the fault is being forgotten
    for (const double g : y.gains) ASSERT_TRUE(g <= 0 && g >= -12);
    dry[9999] = dry[20000] = wet[25000] = 0;
    const auto whole = ducked(dry, wet, 12, 0.3);
    // Ramps within the sub-blocks: no step but the echo's own.
    EXPECT_LT(largestStep(ducked(dry, constant<T>(dry.size(), 0.5), 24, 0.05).wet), 0.04);
    for (const int block : {1, 7, 1000}) EXPECT_EQ(ducked(dry, wet, 12, 0.3, block).wet, whole.wet);
}

}  // namespace
}  // namespace quillworks
