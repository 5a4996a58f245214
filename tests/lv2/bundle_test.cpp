// SPDX-License-Identifier: ISC
// What hosts read of the bundle, and that every plug-in sounds like the effect it is made of.
#include <set>

#include <lv2/port-props/port-props.h>

#include "tests/lv2/lv2_under_test.h"

namespace quillworks::test {
namespace {

using lilv::Port;

TEST(Lv2Bundle, LilvFindsEveryPlugInOfTheCatalogueAndNoOther)
{
    std::vector<std::string> uris;
    for (const auto& plugin : catalogue().plugins()) uris.push_back(plugin.uri);
    ASSERT_GE(uris.size(), 31u);
    std::sort(uris.begin(), uris.end());
    EXPECT_EQ(world().plugins("urn:quillworks:"), uris);
    for (const auto& uri : uris) EXPECT_TRUE(lilv_plugin_verify(world().plugin(uri))) << uri;
}

TEST(Lv2Bundle, PortsInTurtleAreThoseOfTheBinary)
{
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        Lv2UnderTest running(plugin.uri);
        const auto& ports = running.instance().ports();
        ASSERT_EQ(ports.size(), plugin.ports.size());
        std::set<std::string> symbols, names;
        for (std::size_t i = 0; i < ports.size(); ++i) {
            SCOPED_TRACE(ports[i].symbol);
            EXPECT_EQ(ports[i].symbol, plugin.ports[i].symbol);
            EXPECT_TRUE(symbols.insert(ports[i].symbol).second);
            LilvNode* name =
                lilv_port_get_name(running.instance().plugin(),
                                   lilv_plugin_get_port_by_index(running.instance().plugin(),
                                                                 static_cast<std::uint32_t>(i)));
            EXPECT_TRUE(names.insert(lilv_node_as_string(name)).second) << "shares its name";
            lilv_node_free(name);
            if (ports[i].type == Port::Type::Control && ports[i].isInput) {
                EXPECT_LT(ports[i].minimum, ports[i].maximum);
                EXPECT_LE(ports[i].minimum, ports[i].def);
                EXPECT_GE(ports[i].maximum, ports[i].def);
            }
        }
        for (const char* role :
             {LV2_CORE__enabled, LV2_CORE__latency, LV2_CORE__freeWheeling, LV2_CORE__control})
            EXPECT_GE(running.instance().designated(role), 0) << role;
        EXPECT_TRUE(lilv_plugin_has_latency(running.instance().plugin()));
        EXPECT_EQ(lilv_nodes_size(lilv_plugin_get_required_features(running.instance().plugin())),
                  0u);
    }
}

TEST(Lv2Bundle, RangesAndDefaultsAreThoseOfTheEffect)
{
    for (const auto& plugin : catalogue().plugins()) {
        Lv2UnderTest running(plugin.uri);
        auto effect = effectOf(plugin);
        VNK::ParameterInfo p;
        for (int i = 0; effect.component().getParameter(i, p); ++i) {
            const int at = portOf(plugin, i);
            if (at < 0) continue;
            const auto& port = running.instance().ports()[static_cast<std::size_t>(at)];
            EXPECT_EQ(port.minimum, p.minimum) << plugin.uri << " " << p.key;
            EXPECT_EQ(port.maximum, p.maximum) << plugin.uri << " " << p.key;
            if (port.isInput) {
                EXPECT_EQ(port.def, p.defaultValue) << plugin.uri << " " << p.key;
            }
        }
    }
}

// A panel that a host makes by itself shows one switch, "enabled".
TEST(Lv2Bundle, HidesTheEffectsOwnBypassFromGenericPanels)
{
    LilvNode* const hidden = lilv_new_uri(world().get(), LV2_PORT_PROPS__notOnGUI);
    for (const auto& plugin : catalogue().plugins()) {
        const LilvPlugin* const found = world().plugin(plugin.uri);
        LilvNode* const symbol = lilv_new_string(world().get(), "bypass");
        const LilvPort* const port = lilv_plugin_get_port_by_symbol(found, symbol);
        EXPECT_TRUE(port && lilv_port_has_property(found, port, hidden)) << plugin.uri;
        lilv_node_free(symbol);
    }
    lilv_node_free(hidden);
}

TEST(Lv2Bundle, SoundsAndMeasuresLikeTheEffectAtAnySettingAndBlockLength)
{
    const auto blocks = kIsSanitised ? std::vector{17, 1500} : std::vector{1, 17, 512, 1500};
    for (const auto& plugin : catalogue().plugins())
        for (const int block : blocks) {
            SCOPED_TRACE(plugin.uri + ", blocks of " + std::to_string(block));
            const auto seed = kSeed + static_cast<std::uint32_t>(block);
            Lv2UnderTest running(plugin.uri);
            auto effect = effectOf(plugin);
            if (isTooSlowHere(effect, plugin)) continue;
            running.set("freewheel", 1);  // it waits for what is under way on another thread
            if (running.hasSideChain() && block != 17) {
                const auto side = noiseChannels(running.sideChannels(), 9000, seed + 100);
                running.sideChain(side);
                effect.sideChain(side);
            }
            auto in = noiseChannels(plugin.input.channels, 3000, seed);
            auto a = laidOut(plugin, in), b = a;
            for (int turn = 0; turn < 2; ++turn) {  // parameters change while it runs
                randomise(effect, running, seed + static_cast<std::uint32_t>(turn));
                for (int at = 0; at < 3000; at += block) {
                    const int n = std::min(block, 3000 - at);
                    waitUntilReady(effect.component());
                    effect.processBlock(in, a, at, n);
                    running.runBlock(in, b, static_cast<std::size_t>(at), n);
                }
                EXPECT_TRUE(isSame(a, b));
                EXPECT_EQ(running.latency(), int(effect.algorithm().getLatency()));
            }
            if (block > kMaxFrames) continue;  // cut in pieces, of which meters show the last
            VNK::MeterInfo m;
            for (int i = 0; effect.component().getMeter(i, m); ++i) {
                const float value = effect.component().readMeter(i);
                const float shown = running.instance().get(m.key);
                if (value >= m.minimum && value <= m.maximum) {
                    EXPECT_EQ(shown, value) << m.key;
                } else {
                    EXPECT_TRUE(shown == m.minimum || shown == m.maximum) << m.key;
                }
            }
        }
}

TEST(Lv2Bundle, RunsForTheBarestHostInOneBufferForEverything)
{
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        Lv2UnderTest bare(plugin.uri, lilv::Features::None);
        auto& instance = bare.instance();
        Signal<float> buffer = noise<float>(6000);
        for (std::size_t i = 0; i < instance.ports().size(); ++i) {
            const auto& port = instance.ports()[i];
            if (port.isOptional) instance.connect(static_cast<std::uint32_t>(i), nullptr);
            if (port.type == Port::Type::Audio)
                instance.connect(static_cast<std::uint32_t>(i), buffer.data());
        }
        const AudioThreadGuard guard;
        for (const int n : {0, 1, 3, 6000, 512}) instance.run(n);
        EXPECT_TRUE(isFinite(buffer));
    }
}

TEST(Lv2Bundle, EveryInstanceIsItsOwnAndComesAndGoesInAnyOrder)
{
    std::vector<std::unique_ptr<Lv2UnderTest>> all;
    for (int round = 0; round < 2; ++round)
        for (const auto& plugin : catalogue().plugins())
            all.push_back(std::make_unique<Lv2UnderTest>(plugin.uri));
    std::shuffle(all.begin(), all.end(), std::mt19937(kSeed));
    for (auto& plugin : all) plugin.reset();
    Lv2UnderTest again(catalogue().plugins().front().uri);
    EXPECT_EQ(lilv_instance_get_extension_data(again.instance().get(), "urn:not:there"), nullptr);
}

TEST(Lv2Bundle, TheGuardSeesIntoLoadedLibraries)
{
    // Else every test above would be blind to what a plug-in does on the audio thread.
    LilvNode* node = nullptr;
    const char* seen = nullptr;
    {
        const AudioThreadGuard guard;
        node = lilv_new_string(world().get(), "allocates within liblilv");
        seen = AudioThreadGuard::takeViolation();
    }
    lilv_node_free(node);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    EXPECT_EQ(seen, nullptr);  // the sanitizers have these calls to themselves
#else
    EXPECT_NE(seen, nullptr);
#endif
}

}  // namespace
}  // namespace quillworks::test
