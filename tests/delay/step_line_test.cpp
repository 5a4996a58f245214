// SPDX-License-Identifier: ISC
// Echoes on the sample, frozen loops that repeat bit by bit, bounds, and times that change unheard.
#include "delay/step_line.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "delay/permutation.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

constexpr int kStay[] = {0, 1}, kCross[] = {1, 0};

/// A pair of lines that feed themselves or each other, as an echo effect has them.
template <typename T> struct Echo {
    StepLine<T> line;
    Permutation feed;
    double feedback = 0.5;
    T damping = 0;  // a first-order average in the loop: 0 .. 1
    T last[2]{};

    explicit Echo(double rate, double longest = 1)
    {
        line.prepare(2, 1, {rate, longest});
        feed.prepare(2, rate);
    }
    void process(const T* const* in, T* const* out, GridSlice slice)
    {
        line.inRuns(slice, [&](GridSlice run, int offset) {
            const int n = run.frames;
            feed.next(run);
            T filtered[2][kSubBlock], room[2][kSubBlock], gain[kSubBlock];
            T *const f[] = {filtered[0], filtered[1]}, *const more[] = {room[0], room[1]};
            T* const raw[] = {out[0] + offset, out[1] + offset};
            const T* const x[] = {in[0] + offset, in[1] + offset};
            line.read(0, raw, run);
            for (int c = 0; c < 2; ++c)
                for (int i = 0; i < n; ++i) {
                    f[c][i] = raw[c][i] + damping / 2 * (last[c] - raw[c][i]);
                    last[c] = raw[c][i];
                }
            line.unfilter(f, raw, n);
            const T* fed[2];
            feed.process(fed, f, more, n);
            vec::set(gain, T(feedback), n);
            line.write(x, fed, gain, n);
            feed.advance(n);
        });
    }
    /// What is read, while `act` is told each frame that begins a slice.
    Channels<T> run(const Channels<T>& x, int block, const std::function<void(int)>& act = {})
    {
        Channels<T> y = x;
        const int frames = int(x[0].size());
        for (int at = 0; at < frames;) {
            if (act) act(at);
            const int phase = at % kSubBlock;
            const int n = std::min({block - at % block, kSubBlock - phase, frames - at});
            const T* const in[] = {x[0].data() + at, x[1].data() + at};
            T* const out[] = {y[0].data() + at, y[1].data() + at};
            AudioThreadGuard guard;
            process(in, out, {n, phase});
            at += n;
        }
        return y;
    }
};

template <typename T> class StepLines : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(StepLines, Precisions);

TYPED_TEST(StepLines, EchoesComeOnTheSampleAndTimesThatDoNotFitAreHalved)
{
    using T = TypeParam;
    struct Row {
        double rate, left, right;
        int dLeft, dRight;
    };
    for (const Row& row : {Row{48000, 0.02, 0.0301, 960, 1445}, Row{44100, 0.0125, 0.5, 551, 22050},
                           Row{8000, 0.0, 1e-3, 8, 8}, Row{48000, 6.0, 1.00001, 36000, 48000},
                           Row{48000, 1.0001, 0.001, 24002, 48}}) {
        Echo<T> echo(row.rate);
        echo.line.setTime(0, 0, row.left);
        echo.line.setTime(0, 1, row.right);
        echo.line.reset();
        echo.feed.target(kCross);
        echo.feed.snap();
        ASSERT_EQ(echo.line.delay(0, 0), row.dLeft);
        ASSERT_EQ(echo.line.delay(0, 1), row.dRight);
        EXPECT_EQ(echo.line.longest(), std::max(row.dLeft, row.dRight));
        const auto frames = std::size_t(3 * (row.dLeft + row.dRight) + 100);
        const auto y = echo.run({impulse<T>(frames, 5), Signal<T>(frames)}, 1000);
        Channels<T> wanted(2, Signal<T>(frames));
        T height = 1;
        for (std::size_t at = 5, c = 0;; c = 1 - c, height /= 2) {
            at += std::size_t(c == 0 ? row.dLeft : row.dRight);
            if (at >= frames) break;
            wanted[c][at] = height;
        }
        EXPECT_EQ(y, wanted) << row.rate << " " << row.dLeft;
    }
}

TYPED_TEST(StepLines, AFrozenLoopRepeatsBitByBitWhateverComesInUntilItIsReleased)
{
    using T = TypeParam;
    for (const bool crosses : {false, true}) {
        Echo<T> echo(8000);
        echo.line.setTime(0, 0, 0.1);
        echo.line.setTime(0, 1, 0.15);
        echo.line.reset();
        echo.damping = T(0.7);
        echo.feed.target(crosses ? kCross : kStay);
        echo.feed.snap();
        Channels<T> x{noise<T>(30000, 1, 0.4), noise<T>(30000, 2, 0.4)};
        for (std::size_t i = 3300; i < 15000; i += 50)
            x[i % 100 / 50][i] = i % 3 ? std::numeric_limits<T>::quiet_NaN() : T(1e30);
        const auto y = echo.run(x, 32, [&](int at) {
            echo.line.freeze(at >= 3008 && at < 16000);
            EXPECT_EQ(echo.line.isFrozen(), at >= 3008 + 160 && at <= 16000) << at;
        });
        // The loop is closed at 3168: from one round later on what is read has gone round.
        for (std::size_t c = 0; c < 2; ++c) {
            const std::size_t round = crosses ? 2000 : c ? 1200 : 800;
            for (std::size_t i = 3168; i + round < 16000; ++i)
                ASSERT_EQ(y[c][i + round], y[c][i]) << crosses << c << " " << i;
            EXPECT_GT(rms(y[c], 14000, 16000), 0.1);
            EXPECT_GT(std::abs(y[c][29000 - round] - y[c][29000]), 0) << "released";
            EXPECT_TRUE(isFinite(y[c]));
        }
    }
}

TYPED_TEST(StepLines, AreLinearWithinFullScaleAndBendSmoothlyAbove)
{
    using T = TypeParam;
    Echo<T> echo(8000);
    const T in[] = {T(0.3), -1, -1.5, 2, 3, -7}, out[] = {T(0.3), -1, -1.4375, 1.75, 2, -2};
    echo.feedback = 0;
    Channels<T> x(2, Signal<T>(32));
    std::copy(std::begin(in), std::end(in), x[0].begin());
    const auto y = echo.run(x, 32);
    EXPECT_TRUE(std::equal(std::begin(out), std::end(out), y[0].begin() + 8));
}

/// What comes of a signal on the left whose time goes from 500 to 461.5 ms at 2 s, while noise on
/// the right keeps its own.
template <typename T> Signal<T> followed(const Signal<T>& x, double rampSeconds)
{
    Echo<T> echo(48000);
    echo.feedback = 0;
    echo.line.setTime(0, 0.5);
    echo.line.reset();
    const Channels<T> in{x, noise<T>(x.size(), 1, 1)};
    const auto y = echo.run(in, 32, [&](int at) {
        const double share = std::clamp((at / 48000.0 - 2) / rampSeconds, 0.0, 1.0);
        echo.line.setTime(0, 0, 60 / (120 + 10 * share));
    });
    EXPECT_EQ(echo.line.delay(0, 0), 22154);
    EXPECT_TRUE(std::equal(y[1].begin() + 24000, y[1].end(), in[1].begin()));
    return y[0];
}

TYPED_TEST(StepLines, TonesKeepTheirLevelAndShapeWhileTheTempoMoves)
{
    using T = TypeParam;
    constexpr std::size_t kFrames = 5 * 48000;
    Signal<T> chord(kFrames);
    for (const double f : {311.0, 441.0, 699.0, 997.0, 1175.0}) {
        const auto tone = sine<T>(kFrames, f, 48000, 0.1);
        for (std::size_t i = 0; i < kFrames; ++i) chord[i] += tone[i];
    }
    // Jumps and ramps. Linear gains dip by 1.8 dB here, equal-power gains lift by 1.6.
    for (const double ramp : {0.001, 2.0}) {
        const auto y = followed(chord, ramp);
        for (std::size_t at = 48000; at + 960 < kFrames; at += 96)
            ASSERT_NEAR(db(rms(y, at, at + 960) / (0.1 * std::sqrt(2.5))), 0, 0.9) << ramp;
        const auto tone = sine<T>(kFrames, 997.3, 48000);
        EXPECT_LT(largestStep(followed(tone, ramp), 48000), 1.06 * largestStep(tone)) << ramp;
    }
}

TYPED_TEST(StepLines, APermutationChangesInTwentyMillisecondsAddsNothingAndThenTakesTheLatest)
{
    using T = TypeParam;
    Permutation feed;
    feed.prepare(3, 48000);
    const int round[] = {1, 2, 0}, back[] = {2, 0, 1}, swap[] = {1, 0, 2};
    const Signal<T> x[] = {noise<T>(kSubBlock, 1), noise<T>(kSubBlock, 2), noise<T>(kSubBlock, 3)};
    const T* const in[] = {x[0].data(), x[1].data(), x[2].data()};
    T rooms[3][kSubBlock];
    T* const room[] = {rooms[0], rooms[1], rooms[2]};
    for (int k = 0; k < 90; ++k) {
        if (k == 10) feed.target(round);
        if (k == 20) feed.target(back);
        if (k == 25) feed.target(swap);
        EXPECT_EQ(feed.next(kWholeSubBlock), k == 10 || k == 40) << k;
        const T* out[3];
        feed.process(out, in, room, kSubBlock);
        feed.advance(kSubBlock);
        for (std::size_t i = 0; i < kSubBlock; ++i) {
            double before = 0, after = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                before += double(x[c][i]) * x[c][i];
                after += double(out[c][i]) * out[c][i];
            }
            ASSERT_LE(after, before * (1 + 1e-6)) << k;
        }
        const int* const to = k < 10 ? nullptr : k == 39 ? round : k >= 70 ? swap : nullptr;
        for (int j = 0; to && j < 3; ++j) ASSERT_EQ(out[to[j]][kSubBlock - 1], x[j].back()) << k;
        const bool isAtRest = k < 10 || k >= 70;
        ASSERT_EQ(out[2] == in[2], isAtRest) << k;
    }
}

}  // namespace
}  // namespace quillworks::test
