// SPDX-License-Identifier: ISC
// Numbers that cross the border to LV2: the song's position, and the version.
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <lv2/atom/forge.h>
#include <lv2/port-props/port-props.h>
#include <lv2/time/time.h>

#include "adapters/lv2/instance.h"
#include "adapters/lv2/song_position.h"
#include "adapters/lv2/version.h"
#include "tests/framework/probe_effect.h"
#include "tests/lv2/lv2_under_test.h"

namespace quillworks::test {
namespace {

class Lv2Song : public ::testing::Test {
protected:
    Lv2Song()
    {
        const auto mono = VNK::SpeakerArrangement::withChannels(1);
        algorithm->setSpeakerArrangement(mono, mono);
        algorithm->setSampleRate(4096, 48000);
        position.map(world().urids().feature(), 48000);
    }
    void send(const std::vector<std::pair<const char*, double>>& properties)
    {
        alignas(8) std::uint8_t buffer[1024];
        auto& urids = world().urids();
        LV2_Atom_Forge forge;
        lv2_atom_forge_init(&forge, urids.feature());
        lv2_atom_forge_set_buffer(&forge, buffer, sizeof buffer);
        LV2_Atom_Forge_Frame frame;
        lv2_atom_forge_object(&forge, &frame, 0, urids.map(LV2_TIME__Position));
        for (const auto& [key, value] : properties) {
            lv2_atom_forge_key(&forge, urids.map(key));
            lv2_atom_forge_double(&forge, value);
        }
        lv2_atom_forge_pop(&forge, &frame);
        position.read(*reinterpret_cast<const LV2_Atom*>(buffer));
    }
    void advance(int frames, int block)
    {
        for (int done = 0; done < frames; done += block) position.advance(block);
    }
    /// What the effect is told.
    VNK::Transport told()
    {
        position.tell(*algorithm);
        Signal<float> x(1);
        const void* in[] = {x.data()};
        void* out[] = {x.data()};
        algorithm->process({in, 1, out, 1, nullptr, 0, 1});
        VNK::Transport transport;
        algorithm->core([&](auto& core) { transport = core.transport; });
        return transport;
    }

    VNK::Ref<ProbeAlgorithm> algorithm = VNK::Ref<ProbeAlgorithm>::adopt(new ProbeAlgorithm);
    lv2::SongPosition position;
};

TEST_F(Lv2Song, RunsAtItsSpeedHoweverBlocksAreCut)
{
    for (const double speed : {1.0, 0.5, 0.3, -1.0, 0.0})
        for (const int block : {1, 3, 4800}) {
            SCOPED_TRACE(std::to_string(speed) + ", blocks of " + std::to_string(block));
            send({{LV2_TIME__speed, speed},
                  {LV2_TIME__frame, 96000},
                  {LV2_TIME__beat, 4},
                  {LV2_TIME__beatsPerMinute, 120}});
            advance(4800, block);
            EXPECT_EQ(told().frame, 96000 + std::lround(4800 * speed));
            EXPECT_EQ(told().quarterNotes, 4 + 4800 * speed / 48000 * 120 / 60);
            EXPECT_EQ(told().playing, speed != 0);
            send({{LV2_TIME__speed, 0}});  // what it does not tell stays where it has come to
            advance(4800, block);
            EXPECT_EQ(told().frame, 96000 + std::lround(4800 * speed));
            EXPECT_EQ(told().quarterNotes, 4 + 4800 * speed / 48000 * 120 / 60);
        }
}

TEST_F(Lv2Song, ABeatThatCannotBeCountedOnIsUnknownRatherThanStale)
{
    send({{LV2_TIME__speed, 1}, {LV2_TIME__frame, 0}, {LV2_TIME__beat, 8}});
    EXPECT_EQ(told().quarterNotes, 8);
    advance(4800, 480);
    EXPECT_FALSE(told().positionKnown) << "it runs at nobody knows what tempo";
    send({{LV2_TIME__frame, 4800}, {LV2_TIME__beatsPerMinute, 60}});
    EXPECT_FALSE(told().positionKnown) << "and has run so";
    send({{LV2_TIME__frame, 4800}, {LV2_TIME__beat, 9}});
    advance(4800, 480);
    EXPECT_DOUBLE_EQ(told().quarterNotes, 9.1);
    send({{LV2_TIME__frame, 9601}});  // where it has come to, but for the host's rounding
    EXPECT_TRUE(told().positionKnown);
    send({{LV2_TIME__frame, 480000}});
    EXPECT_FALSE(told().positionKnown) << "a jump that tells no beat";
    EXPECT_EQ(told().frame, 480000);
}

TEST_F(Lv2Song, NumbersThatNoSongHasAreUnknown)
{
    for (const double wild : {1e300, -1e300, 0x1p63, 1e17}) {
        send({{LV2_TIME__speed, 1}, {LV2_TIME__frame, wild}, {LV2_TIME__beat, 0}});
        EXPECT_FALSE(told().frameKnown) << wild;
        EXPECT_TRUE(told().positionKnown) << wild;
        send({{LV2_TIME__speed, wild}, {LV2_TIME__frame, 5}});
        advance(480, 48);
        EXPECT_FALSE(told().frameKnown) << wild;
        send({{LV2_TIME__speed, 1}, {LV2_TIME__frame, -5}});
        EXPECT_TRUE(told().frameKnown);
        EXPECT_EQ(told().frame, -5);
    }
}

TEST(Lv2Version, LaterVersionsAreGreaterAndAllAreReleases)
{
    int before = 0, microBefore = -1;
    for (const char* text : {"0.1", "5.0.0", "5.0.1", "5.1.0", "5.9.99", "5.10.0", "5.10.10", "6",
                             "6.0.1", "10.0.0", "1000000.0.0"}) {
        const auto version = lv2::Version::of(text);
        EXPECT_GT(std::pair(version.minor, version.micro), std::pair(before, microBefore)) << text;
        EXPECT_EQ(version.minor % 2 + version.micro % 2, 0) << text;
        before = version.minor;
        microBefore = version.micro;
    }
}

TEST(Lv2Ports, ThatCannotBeAutomatedSaySoAndStillSetTheirParameter)
{
    LilvNode* mark = lilv_new_uri(world().get(), LV2_PORT_PROPS__notAutomatic);
    int marked = 0;
    for (const auto& plugin : catalogue().plugins()) {
        auto effect = effectOf(plugin);
        Lv2UnderTest running(plugin.uri);
        VNK::ParameterInfo p;
        for (int i = 0; effect.component().getParameter(i, p); ++i) {
            const int at = running.portOf(p.key);
            if (at < 0 || p.has(VNK::isReadOnly)) continue;
            const auto* lilv = running.instance().plugin();
            const auto* port = lilv_plugin_get_port_by_index(lilv, static_cast<std::uint32_t>(at));
            EXPECT_EQ(lilv_port_has_property(lilv, port, mark), !p.isAutomatable()) << p.key;
            if (p.isAutomatable()) continue;
            ++marked;
            lv2::Instance instance(catalogue().create(plugin), plugin, 48000, nullptr);
            instance.connect(static_cast<std::uint32_t>(at), &p.maximum);
            instance.run(16);
            EXPECT_EQ(instance.effect().getValue(i), p.maximum) << p.key;
        }
    }
    lilv_node_free(mark);
    EXPECT_GT(marked, 0);
}

}  // namespace
}  // namespace quillworks::test
