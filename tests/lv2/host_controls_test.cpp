// SPDX-License-Identifier: ISC
// What hosts steer besides parameters: the switch of the plug-in, tempo, the side-chain.
#include <lv2/atom/forge.h>
#include <lv2/time/time.h>

#include "tests/lv2/lv2_under_test.h"

namespace quillworks::test {
namespace {

Channels<float> delayed(const Channels<float>& x, int frames)
{
    Channels<float> y(x.size(), Signal<float>(x.front().size()));
    for (std::size_t c = 0; c < x.size(); ++c)
        std::copy(x[c].begin(), x[c].end() - frames, y[c].begin() + frames);
    return y;
}

TEST(Lv2Enabled, OffIsTheInputAtTheReportedLatencyBitForBit)
{
    for (const auto& plugin : catalogue().plugins())
        for (const int block : {1, 100, 1500}) {
            SCOPED_TRACE(plugin.uri + ", blocks of " + std::to_string(block));
            Lv2UnderTest running(plugin.uri);
            auto effect = effectOf(plugin);
            randomise(effect, running, kSeed);
            running.set("enabled", 0);
            const auto in = noiseChannels(plugin.input.channels, 6000);
            const auto out = running.play(in, block);
            EXPECT_TRUE(isSame(out, delayed(laidOut(plugin, in), running.latency())));
        }
}

// The way to the input begins once it is known as far back as the effect is late: nothing is kept
// while the plug-in is on.
TEST(Lv2Enabled, SwitchingFadesWithinTenMillisecondsAndTheEffectKeepsRunning)
{
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        Lv2UnderTest running(plugin.uri), always(plugin.uri);
        auto effect = effectOf(plugin);
        randomise(effect, running, kSeed);
        auto other = effectOf(plugin);
        randomise(other, always, kSeed);
        const auto in = noiseChannels(plugin.input.channels, 4800);
        const auto input = laidOut(plugin, in);
        const auto dry = delayed(input, (running.play(in), running.latency()));
        always.play(in);
        const auto wet = always.play(in), wetAgain = always.play(in);
        running.set("enabled", 0);
        const auto off = running.play(in);
        running.set("enabled", 1);
        const auto on = running.play(in);
        const auto latency = static_cast<std::size_t>(running.latency());
        for (std::size_t c = 0; c < dry.size(); ++c) {
            for (std::size_t i = 0; i < latency; ++i) ASSERT_EQ(off[c][i], wet[c][i]) << i;
            for (std::size_t i = 0; i < 480; ++i) {  // between the two, in equal steps
                const float w = 1 - float(i + 1) / 480;
                const float old = i < latency ? input[c][4800 + i - latency] : dry[c][i];
                const float late = dry[c][latency + i];
                ASSERT_NEAR(off[c][latency + i], late + (wet[c][latency + i] - late) * w, 2e-4)
                    << i;
                ASSERT_NEAR(on[c][i], old + (wetAgain[c][i] - old) * (1 - w), 2e-4) << i;
            }
            for (std::size_t i = 481; i < 4800; ++i) {
                if (i >= latency + 481) {
                    ASSERT_EQ(off[c][i], dry[c][i]) << i;
                }
                ASSERT_EQ(on[c][i], wetAgain[c][i]) << i;  // nothing was reset meanwhile
            }
        }
    }
}

/// time:Position with a tempo in beats of the unit given.
std::vector<std::uint64_t> position(float beatsPerMinute, int beatUnit)
{
    std::vector<std::uint64_t> buffer(64);
    auto& urids = world().urids();
    LV2_Atom_Forge forge;
    lv2_atom_forge_init(&forge, urids.feature());
    lv2_atom_forge_set_buffer(&forge, reinterpret_cast<std::uint8_t*>(buffer.data()),
                              buffer.size() * 8);
    LV2_Atom_Forge_Frame frame;
    lv2_atom_forge_object(&forge, &frame, 0, urids.map(LV2_TIME__Position));
    lv2_atom_forge_key(&forge, urids.map(LV2_TIME__beatUnit));
    lv2_atom_forge_int(&forge, beatUnit);
    lv2_atom_forge_key(&forge, urids.map(LV2_TIME__beatsPerMinute));
    lv2_atom_forge_float(&forge, beatsPerMinute);
    lv2_atom_forge_pop(&forge, &frame);
    return buffer;
}

TEST(Lv2Tempo, ActsFromTheFrameOfTheEventAndStays)
{
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        Lv2UnderTest running(plugin.uri);
        auto effect = effectOf(plugin);
        auto in = noiseChannels(plugin.input.channels, 30000);
        auto a = laidOut(plugin, in), b = a;
        const auto play = [&](int at, int n) { effect.processBlock(in, a, at, n); };
        const auto at0 = position(372, 8), later = position(71.5f, 4);
        running.instance().send(0, reinterpret_cast<const LV2_Atom*>(at0.data()));
        effect.tempo(186);
        for (int at = 0; at < 30000; at += 500) {
            if (at == 20000) {
                running.instance().send(100, reinterpret_cast<const LV2_Atom*>(later.data()));
                play(at, 100);
                effect.tempo(71.5);
                play(at + 100, 400);
            } else {
                play(at, 500);
            }
            running.runBlock(in, b, static_cast<std::size_t>(at), 500);
        }
        EXPECT_TRUE(isSame(a, b));
    }
}

TEST(Lv2SideChain, IsHeardOnlyWhileItsSwitchIsOn)
{
    for (const auto& plugin : catalogue().plugins()) {
        Lv2UnderTest running(plugin.uri);
        if (!running.hasSideChain()) continue;
        SCOPED_TRACE(plugin.uri);
        Lv2UnderTest alone(plugin.uri);
        const auto in = noiseChannels(plugin.input.channels, 4800);
        running.sideChain(noiseChannels(running.sideChannels(), 4800, kSeed + 9));
        running.set("sidechain", 0);
        EXPECT_TRUE(isSame(running.play(in), alone.play(in)));
    }
}

}  // namespace
}  // namespace quillworks::test
