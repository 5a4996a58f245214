// SPDX-License-Identifier: ISC
// The two threads of an effect at once, and two effects at once. Meant for the thread sanitizer.
#include <atomic>
#include <thread>

#include "tests/support/counting_sink.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/every_effect.h"

namespace quillworks::test {
namespace {

class EveryEffectOnTwoThreads : public ::testing::TestWithParam<std::string> {};

/// Runs f(round) until `stop`.
template <class F> std::thread repeating(std::atomic<bool>& stop, F f)
{
    return std::thread([&stop, f] {
        for (std::uint32_t round = 0; !stop.load(); ++round) f(round);
    });
}

TEST_P(EveryEffectOnTwoThreads, ParametersMetersAndStateWhileProcessing)
{
    EffectUnderTest<float> fx(GetParam());
    fx.prepare(2, 64);
    auto& component = fx.component();
    std::atomic<bool> stop{false};
    auto mainThread = repeating(stop, [&](std::uint32_t round) {
        fx.randomise(round);
        if (round % 8 == 0) component.setEditorOpen(round % 16 == 0);
        fx.algorithm().setWetOnly(round % 3 == 0);
        for (int i = 0; i < component.countMeters(); ++i) component.readMeter(i);
        VNK::StringSink state;
        component.saveState(state);
        if (round % 16 == 5) component.loadState(state.text().data(), state.text().size());
        std::this_thread::yield();
    });
    const Channels<float> x(2, noise<float>(64));
    Channels<float> y = x;
    for (int block = 0; block < 1500; ++block) {
        const int i = block % component.countParameters();
        component.automate(i, component.fromNormalized(i, float(block % 7) / 6));
        fx.processBlock(x, y, 0, 64);
    }
    stop = true;
    mainThread.join();
    EXPECT_TRUE(isFinite(y[0]));
}

TEST_P(EveryEffectOnTwoThreads, DisplaysWhileProcessingAndBeingPreparedAnew)
{
    EffectUnderTest<float> fx(GetParam());
    const auto displays = fx.component().queryInterface<VNK::IEffectDisplays>();
    if (!displays) return;
    fx.prepare(2, 64);
    std::atomic<bool> stop{false};
    std::atomic<std::uint32_t> rounds{0};
    std::int64_t values = 0;
    auto viewer = repeating(stop, [&](std::uint32_t round) {
        if (round % 64 == 0) displays->setDisplaysOpen(true);
        displays->updateDisplays();
        values += valuesOf(*displays);
        if (round % 64 == 63) displays->setDisplaysOpen(false);
        rounds = round;
        std::this_thread::yield();
    });
    const Channels<float> x(2, noise<float>(64));
    Channels<float> y = x;
    for (int turn = 0; turn < 8 || rounds < 200; ++turn) {
        fx.prepare(1 + turn % 2, 64);
        for (int block = 0; block < 200; ++block) fx.processBlock(x, y, 0, 64);
    }
    stop = true;
    viewer.join();
    EXPECT_GT(values, 0);
}

TEST_P(EveryEffectOnTwoThreads, InstancesShareNothing)
{
    const auto run = [&](Channels<float>& y) {
        EffectUnderTest<float> fx(GetParam());
        y = fx.randomise(kSeed).prepare(2, 64).play(Channels<float>(2, noise<float>(9600)), 64);
    };
    Channels<float> first, second;
    std::thread other([&] { run(first); });
    run(second);
    other.join();
    EXPECT_EQ(first, second);
}

INSTANTIATE_TEST_SUITE_P(Pack, EveryEffectOnTwoThreads, ::testing::ValuesIn(registeredClasses()),
                         className);

}  // namespace
}  // namespace quillworks::test
