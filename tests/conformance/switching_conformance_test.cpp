// SPDX-License-Identifier: ISC
// What every effect owes while it is switched and automated, in every pair of layouts it takes, and
// how evenly it spreads its work.
#include <chrono>
#include <cstdio>

#include "tests/support/effect_under_test.h"
#include "tests/support/every_effect.h"

namespace quillworks::test {
namespace {

constexpr double kRate = 48000;
constexpr std::size_t kSecond = 48000;

class EverySwitch : public ::testing::TestWithParam<std::string> {
protected:
    using Effect = EffectUnderTest<float>;

    Effect effect(std::uint32_t seed = 0)
    {
        Effect fx(GetParam(), kRate, 2);
        if (seed != 0) fx.randomise(seed);
        return fx;
    }
    static std::vector<VNK::ParameterInfo> automatable(Effect& fx)
    {
        std::vector<VNK::ParameterInfo> rows;
        VNK::ParameterInfo p;
        for (int i = 0; fx.component().getParameter(i, p); ++i)
            if (p.isAutomatable() && !p.has(VNK::isBypass) && !p.has(VNK::isTrigger) &&
                p.index <= 0)
                rows.push_back(p);
        return rows;
    }
    static Channels<float> both(const Signal<float>& x) { return {x, x}; }
};

/// A path that comes in starts from what is heard now, never from what it held when it went out.
TEST_P(EverySwitch, WhatIsSwitchedOnAgainSoundsAsIfItHadNeverBeenLoud)
{
    // Levels, after a longer wait, are the plain build's.
    constexpr std::size_t kPiece = kIsSanitised ? kSecond / 10 : kSecond / 2;
    const auto quiet = both(noise<float>(kPiece, 3, 0.01));
    const auto loud = both(noise<float>(kPiece, 4, 1));
    const auto silence = both(Signal<float>(kPiece));
    const std::uint32_t seeds = countSeeds(GetParam());
    for (std::uint32_t turn = 0; turn < 2 * seeds; ++turn) {
        const std::uint32_t seed = turn / 2;
        const bool on = turn % 2 != 0;  // what is a path of its own while off goes out while on
        auto described = effect(seed);
        for (const auto& p : automatable(described)) {
            if (p.kind != VNK::ValueKind::Toggle) continue;
            const auto play = [&](const Channels<float>& first) {
                auto fx = effect(seed);
                fx.set(p.key, on).prepare(2, 512);
                fx.play(first);
                fx.set(p.key, !on).play(first);
                // Until all else has forgotten; what rings on for longer cannot be waited for.
                const auto tail = std::size_t{fx.algorithm().getTailLength()};
                bool isEndless = tail > 12 * kSecond;
                const std::size_t wait = isEndless      ? 0
                                         : kIsSanitised ? 2 * kPiece
                                                        : std::max(4 * kSecond, tail);
                // Silence first: what stays open for a level that would not open it forgets too.
                for (std::size_t done = 0; done < wait; done += kPiece)
                    fx.play(done < wait / 2 ? silence : quiet);
                fx.set(p.key, on);
                auto y = fx.play(quiet);
                const auto more = fx.play(quiet);
                for (std::size_t c = 0; c < y.size(); ++c)
                    y[c].insert(y[c].end(), more[c].begin(), more[c].end());
                isEndless |= fx.algorithm().getTailLength() == VNK::kEndlessTail;
                return std::pair(y, isEndless);
            };
            const auto [y, endless] = play(loud);
            if (kIsSanitised) continue;
            const auto [expected, isEndless] = play(quiet);
            if (isEndless) continue;  // what was loud may go on for ever
            constexpr std::size_t kWindow = kSecond / 20;
            for (std::size_t at = 3 * kSecond / 10; at + kWindow <= y[0].size(); at += kWindow)
                for (std::size_t c = 0; c < y.size(); ++c) {
                    const double is = db(rms(y[c], at, at + kWindow));
                    const double should = db(rms(expected[c], at, at + kWindow));
                    ASSERT_NEAR(std::max(is, -100.0), std::max(should, -100.0), 3)
                        << p.key << (on ? " on, " : " off, ") << double(at) / kRate << " s, seed "
                        << seed;
                }
        }
    }
}

/// Lag within +-64 frames of `expected` at which y resembles x most, and how much.
std::pair<int, double> lagNear(int expected, const Signal<float>& y, const Signal<float>& x)
{
    std::pair<int, double> best{0, 0};
    for (int lag = std::max(0, expected - 64); lag <= expected + 64; ++lag) {
        double xy = 0, xx = 0, yy = 1e-30;
        for (std::size_t i = x.size() / 2; i < x.size(); ++i) {
            const double in = x[i - static_cast<std::size_t>(lag)];
            xy += in * y[i];
            xx += in * in;
            yy += double(y[i]) * y[i];
        }
        if (const double r = std::abs(xy) / std::sqrt(xx * yy); r > best.second) best = {lag, r};
    }
    return best;
}

TEST_P(EverySwitch, AutomationOfAnyParameterKeepsTheLatencyItReports)
{
    const auto x = both(noise<float>(kSecond / 2, 5, 0.05));
    auto described = effect();
    for (const auto& p : automatable(described))
        for (const float value : {p.minimum, p.maximum}) {
            auto fx = effect();
            fx.prepare(2, 480);
            auto y = x;
            for (int at = 0; at < int(x[0].size()); at += 480) {
                if (at == 4800) fx.component().automate(fx.indexOf(p.key), value);
                fx.processBlock(x, y, at, 480);
            }
            const auto latency = static_cast<int>(fx.algorithm().getLatency());
            const auto [lag, coefficient] = lagNear(latency, y[0], x[0]);
            if (coefficient > 0.8) {  // what is mainly the input, only later
                EXPECT_NEAR(lag, latency, phaseLag(GetParam())) << p.key << " = " << value;
            }
        }
}

/// Plays noise from one layout to another; true if every output sample is written and finite.
template <typename T>
bool plays(VNK::IEffectAlgorithm& algorithm, const VNK::SpeakerArrangement& input,
           const VNK::SpeakerArrangement& output)
{
    constexpr int kFrames = 480;
    constexpr T unwritten = std::numeric_limits<T>::quiet_NaN();
    VNK::EffectRunner runner(algorithm);
    const auto precision =
        std::is_same_v<T, float> ? VNK::Precision::Float : VNK::Precision::Double;
    if (!runner.prepare({input, output, precision, kRate, 256})) return false;
    Channels<T> x, y(std::size_t(output.channels), Signal<T>(kFrames, unwritten));
    for (int c = 0; c < input.channels; ++c) x.push_back(noise<T>(kFrames, std::uint32_t(c)));
    const AudioThreadGuard guard;
    runner.process<T>({x, input.channels}, {y, output.channels}, kFrames);
    return std::all_of(y.begin(), y.end(), [](const auto& s) { return isFinite(s); });
}

TEST_P(EverySwitch, PlaysEveryPairOfLayoutsItAccepts)
{
    std::vector<VNK::SpeakerArrangement> layouts;
    for (const char* name : {"mono", "stereo", "lcr", "quad", "5.0", "5.1", "7.0", "7.1", "5.1.4",
                             "7.1.2", "7.1.4", "9.1.6", "3", "8", "16", "17", "32"}) {
        VNK::SpeakerArrangement layout;
        ASSERT_TRUE(VNK::SpeakerArrangement::named(name, layout)) << name;
        layouts.push_back(layout);
    }
    auto fx = effect();
    int accepted = 0;
    for (const auto& input : layouts)
        for (const auto& output : layouts) {
            const bool accepts = fx.algorithm().acceptsArrangement(input, output);
            EXPECT_EQ(fx.algorithm().setSpeakerArrangement(input, output), accepts);
            if (!accepts) continue;
            ++accepted;
            EXPECT_TRUE(plays<float>(fx.algorithm(), input, output))
                << input.names() << " to " << output.names();
            EXPECT_TRUE(plays<double>(fx.algorithm(), input, output))
                << input.names() << " to " << output.names();
        }
    EXPECT_GE(accepted, 2) << "mono and stereo at least";
}

/// Worst time of a block over the median, over ten runs the best: what is left is the effect's own.
double unevenness(EffectUnderTest<float>& fx, int frames)
{
    using Clock = std::chrono::steady_clock;
    Channels<float> x(2, noise<float>(std::size_t(frames) * 200, 6, 0.25));
    double best = 1e9;
    for (int run = 0; run < 10; ++run) {
        std::vector<double> times;
        Channels<float> y = x;
        for (int at = 0; at < int(x[0].size()); at += frames) {
            const auto start = Clock::now();
            fx.processBlock(x, y, at, frames);
            times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
        std::sort(times.begin(), times.end());
        best = std::min(best, times.back() / times[times.size() / 2]);
    }
    return best;
}

TEST_P(EverySwitch, ReportsTheWorstBlockOverTheMedian)
{
    if (kIsSanitised) GTEST_SKIP() << "instrumented code has other times";
    double worst[2];
    for (int i = 0; i < 2; ++i) {
        auto fx = effect();
        fx.prepare(2, 512);
        worst[i] = unevenness(fx, i == 0 ? 32 : 512);
    }
    std::printf("[ blocks   ] %s: worst over median %.1f at 32 frames, %.1f at 512\n",
                GetParam().c_str(), worst[0], worst[1]);
    RecordProperty("worstOverMedian32", std::to_string(worst[0]));
    RecordProperty("worstOverMedian512", std::to_string(worst[1]));
}

INSTANTIATE_TEST_SUITE_P(Pack, EverySwitch, ::testing::ValuesIn(registeredClasses()), className);

}  // namespace
}  // namespace quillworks::test
