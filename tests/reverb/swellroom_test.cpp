// SPDX-License-Identifier: ISC
// Swellroom: dense at once, uncoloured, alike nowhere, and with the swell that is asked for.
#include "reverb/decay_analysis.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/reverberation.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;

struct Room : EffectUnderTest<float> {
    using Values = std::vector<std::pair<const char*, double>>;

    explicit Room(const Values& values = {}, int channels = 2)
        : EffectUnderTest<float>("Swellroom", kRate, channels), count_(channels)
    {
        set("predelay", 0).set("lowcut", 20).set("damp", 0).set("mix", 100);
        for (const auto& [key, value] : values) set(key, value);
    }
    /// Of an impulse in one channel.
    Channels<double> response(double seconds, std::size_t channel = 0)
    {
        prepare(0, 4800);
        const auto frames = static_cast<std::size_t>(seconds * kRate);
        Channels<float> in(static_cast<std::size_t>(count_), Signal<float>(frames));
        in[channel][0] = 1;
        Channels<double> out;
        for (const auto& row : play(in)) out.push_back(as<double>(row));
        return out;
    }

private:
    int count_;
};

double timeOfOctave(const Signal<double>& x, double centre, double from = 5, double to = 35)
{
    const auto line = BandDecay::ofOctave(x, centre, kRate).fit(0, from, to);
    return line ? line->t60 : 0;
}

TEST(Swellroom, IsDenseWithinMillisecondsOfItsFirstEchoAndStaysSo)
{
    for (const double size : {0.0, 45.0, 100.0}) {
        const auto x = Room({{"size", size}, {"decay", 2}}).response(2)[0];
        const auto measured = densening(x, firstSound(x, 40), kRate);
        EXPECT_LT(measured.onset, 12) << size;
        EXPECT_GT(measured.least, 0.7) << size;
    }
}

TEST(Swellroom, HasNoColourOfItsOwn)
{
    const struct {
        double size, bar;
    } rooms[] = {{100, 6.2}, {48, 6.3}, {0, 6.8}};
    for (const auto& room : rooms) {
        double sum = 0;
        for (std::size_t side = 0; side < 2; ++side)
            for (const auto& x : Room({{"size", room.size}, {"decay", 2}}).response(2.9, side))
                sum += spectralDeviation(x, firstSound(x, 40) + 4800, 1 << 17, kRate) / 4;
        EXPECT_LT(sum, room.bar) << room.size;
    }
}

TEST(Swellroom, OutputsAndInputsAreStrangers)
{
    const auto left = Room().response(1.5, 0), right = Room().response(1.5, 1);
    EXPECT_LT(std::abs(likeness(left[0], left[1], 3840)), 0.1);
    EXPECT_LT(std::abs(likeness(left[0], right[0], 3840)), 0.1);
    EXPECT_LT(largestLikeness(Room({}, 16).response(1.5, 0), 3840), 0.5);
}

TEST(Swellroom, DecaysAsAskedForAndFourTimesTheDecayIsThreeDecibelsLouder)
{
    for (const double size : {0.0, 45.0, 100.0}) {
        double levels[2]{};
        for (const double decay : {0.8, 3.2}) {
            double seconds = 0;
            for (std::size_t side = 0; side < 2; ++side)
                for (const auto& x :
                     Room({{"size", size}, {"decay", decay}}).response(2 * decay, side)) {
                    seconds += timeOfOctave(x, 500) / 4;
                    levels[decay > 1] += rms(x) * rms(x) * double(x.size());
                }
            EXPECT_NEAR(seconds / decay, 1, 0.06) << size << " %, " << decay << " s";
        }
        EXPECT_NEAR(10 * std::log10(levels[1] / levels[0]), 3, 0.7) << size;
    }
}

TEST(Swellroom, SwellsToAPeakWhereItIsAskedForAndFallsInTheEndAsLong)
{
    const double decay = 3;
    for (const double swell : {25.0, 50.0, 100.0}) {
        Room room({{"decay", decay}, {"swell", swell}});
        const auto left = room.response(9, 0);
        const auto right = room.response(9, 1);
        const auto power = [&](std::size_t i) {
            double sum = 0;
            for (const auto* paths : {&left, &right})
                for (const auto& x : *paths) sum += x[i] * x[i];
            return sum;
        };
        double most = 0, now = 0, peak = 0;
        for (std::size_t i = 0; i < 2 * 48000; ++i) {  // 50 ms mean
            now += power(i) - (i >= 2400 ? power(i - 2400) : 0);
            if (now > most) most = now, peak = (double(i) - 1200) / kRate;
        }
        const double first = decay * swell / 100;
        const double expected =
            swell == 100 ? decay / 13.8 : std::log(decay / first) / (13.8 / first - 13.8 / decay);
        double late = 0;
        for (const auto* paths : {&left, &right})
            for (const auto& x : *paths) late += timeOfOctave(x, 1000, 15, 32) / 4;
        EXPECT_NEAR(peak, expected, 0.4 * expected + 0.05) << swell;
        EXPECT_NEAR(late / decay, 1, 0.2) << swell;
        EXPECT_GE(room.algorithm().getTailLength(), (decay + first) * kRate);
    }
}

TEST(Swellroom, SmearsASteadyToneByLessThanTwoCents)
{
    for (const double frequency : {440.0, 2500.0}) {
        const auto x = sine<float>(96000 + (1 << 18), frequency, kRate, 0.5);
        const auto y = Room().set("decay", 2).play({x, x}, 4800);
        const double cents = smearInCents(y[0], 96000, 1 << 18, frequency, kRate);
        EXPECT_LT(cents, 2) << frequency;
    }
}

TEST(Swellroom, SizeSwellAndDecayMoveWithoutAClick)
{
    const auto x = sine<float>(2 * 48000, 437, kRate, 0.5);
    Signal<float> heard;
    Room room;
    for (const char* key : {"size", "swell", "decay", "damp", "warmth"})
        for (const double value : {100.0, 1.0}) {
            const auto y = room.set(key, value).play({x, x}, 480);
            heard.insert(heard.end(), y[0].begin(), y[0].end());
        }
    // What is above some kilohertz, in parts of 20 ms re the tone.
    for (int k = 0; k < 12; ++k)
        for (std::size_t i = heard.size() - 1; i > 0; --i) heard[i] = (heard[i] - heard[i - 1]) / 2;
    double worst = 0;
    for (std::size_t at = 24000; at + 960 < heard.size(); at += 960)
        worst = std::max(worst, rms(heard, at, at + 960));
    EXPECT_LT(db(worst), -60);
}

}  // namespace
}  // namespace quillworks::test
