// SPDX-License-Identifier: ISC
// What CLAP hosts read of the plug-ins, and that each sounds like the effect it is made of.
#include <map>
#include <set>

#include "adapters/common/parameters.h"
#include "tests/clap/clap_under_test.h"
#include "tests/support/every_effect.h"

namespace quillworks::test {
namespace {

TEST(ClapFactory, OffersEveryClassWithAnIdAndFeaturesOfItsOwn)
{
    const auto& factory = clapFactory();
    ASSERT_EQ(factory.get_plugin_count(&factory), registeredClasses().size());
    std::set<std::string> ids;
    for (std::uint32_t i = 0; i < factory.get_plugin_count(&factory); ++i) {
        const auto& d = *factory.get_plugin_descriptor(&factory, i);
        EXPECT_EQ(d.name, "Quillworks " + registeredClasses()[i]);
        EXPECT_TRUE(ids.insert(d.id).second) << d.id;
        std::set<std::string> features;
        for (const char* const* f = d.features; *f; ++f) features.insert(*f);
        EXPECT_TRUE(features.contains("audio-effect") && features.contains("stereo")) << d.id;
    }
    EXPECT_EQ(factory.get_plugin_descriptor(&factory, 31), nullptr);
    const ClapHost host;
    EXPECT_EQ(factory.create_plugin(&factory, &host.host, "example.quillworks.none"), nullptr);
}

TEST(ClapParameters, AreTheEffectsByTheirTagsWithOneBypassAndTextsBothWays)
{
    for (const auto& effect : catalogue().effects()) {
        SCOPED_TRACE(effect.fileName);
        ClapUnderTest plugin(effect, 0, 0);
        auto reference = EffectUnderTest<float>(effect.description->name->text());
        std::map<clap_id, int> indices;
        VNK::ParameterInfo p{};
        for (int i = 0; reference.component().getParameter(i, p); ++i)
            if (!p.has(VNK::isReadOnly)) indices[p.tag] = i;
        int bypasses = 0, meters = 0;
        std::set<clap_id> ids;
        for (const auto& info : plugin.parameters()) {
            SCOPED_TRACE(info.name);
            EXPECT_TRUE(ids.insert(info.id).second);
            EXPECT_LT(info.min_value, info.max_value);
            if (info.flags & CLAP_PARAM_IS_READONLY) {
                ++meters;
                plugin.text(info.id, plugin.value(info.id));
                continue;
            }
            EXPECT_EQ(plugin.value(info.id), info.default_value);
            EXPECT_TRUE(info.default_value >= info.min_value &&
                        info.default_value <= info.max_value);
            bypasses += (info.flags & CLAP_PARAM_IS_BYPASS) != 0;
            for (const double at : {0.0, 0.3, 1.0}) {
                const double value = info.min_value + at * (info.max_value - info.min_value);
                const auto text = plugin.text(info.id, value);
                double read = NAN;
                EXPECT_TRUE(
                    plugin.params->text_to_value(plugin.get(), info.id, text.c_str(), &read))
                    << text;
                EXPECT_EQ(plugin.text(info.id, read), text);
            }
        }
        EXPECT_EQ(bypasses, 1);
        EXPECT_EQ(ids.size(), indices.size() + effect.hasSideChain + std::size_t(meters));
        EXPECT_GE(meters, reference.component().countMeters());
        for (const auto& [tag, index] : indices) EXPECT_TRUE(ids.contains(tag)) << index;
        double v = 0;
        EXPECT_FALSE(plugin.params->get_value(plugin.get(), 1, &v));
    }
}

TEST(ClapPorts, FollowTheConfigurationThatIsSelected)
{
    for (const auto& effect : catalogue().effects()) {
        SCOPED_TRACE(effect.fileName);
        for (std::size_t at = 0; at < effect.layouts.size(); ++at) {
            ClapUnderTest plugin(effect, at);
            const auto* ports = plugin.extension<clap_plugin_audio_ports_t>(CLAP_EXT_AUDIO_PORTS);
            ASSERT_EQ(plugin.configs->count(plugin.get()), effect.layouts.size());
            clap::AudioPortsConfig config{};
            EXPECT_TRUE(plugin.configs->get(plugin.get(), std::uint32_t(at), &config));
            EXPECT_EQ(config.name, effect.layouts[at].title);
            EXPECT_EQ(ports->count(plugin.get(), true), effect.hasSideChain ? 2u : 1u);
            EXPECT_EQ(config.inputPorts, ports->count(plugin.get(), true));
            clap_audio_port_info_t in{}, out{};
            EXPECT_TRUE(ports->get(plugin.get(), 0, true, &in));
            EXPECT_TRUE(ports->get(plugin.get(), 0, false, &out));
            EXPECT_EQ(in.channel_count, config.mainInputChannels);
            EXPECT_EQ(out.channel_count, config.mainOutputChannels);
            EXPECT_EQ(int(out.channel_count), effect.layouts[at].output.channels);
            EXPECT_EQ(out.in_place_pair == 0, in.channel_count == out.channel_count);
            EXPECT_FALSE(plugin.configs->select(plugin.get(), 0)) << "while active";
        }
    }
}

/// What both sides of a comparison are told: parameter `index` of the effect at a frame.
struct Change {
    clap_id id;
    int index, frame;
    double value;
    float own;  // in the effect's unit
};

/// Each automatable parameter once, at a frame of its own.
std::vector<Change> randomChanges(ClapUnderTest& plugin, EffectUnderTest<float>& effect, int frames,
                                  std::mt19937& random)
{
    std::vector<Change> changes;
    std::map<clap_id, clap_param_info_t> infos;
    for (const auto& info : plugin.parameters()) infos[info.id] = info;
    VNK::ParameterInfo p{};
    for (int i = 0; effect.component().getParameter(i, p); ++i) {
        if (!p.isAutomatable() || p.has(VNK::isBypass)) continue;
        const auto& info = infos.at(p.tag);
        const float position = std::uniform_real_distribution<float>(0, 1)(random);
        const float own = effect.component().fromNormalized(i, position);
        const bool isOwn = info.min_value == p.minimum && info.max_value == p.maximum;
        changes.push_back(
            {p.tag, i, int(random() % unsigned(frames)), isOwn ? own : position, own});
    }
    std::stable_sort(changes.begin(), changes.end(),
                     [](auto& a, auto& b) { return a.frame < b.frame; });
    return changes;
}

// In every layout, with and without a side-chain, in place, at rates from end to end.
TEST(ClapSound, IsTheEffectsWithEveryChangeAtItsFrameAndTheHostIsToldWhatMoved)
{
    constexpr int kFrames = 3000;
    std::mt19937 random(kSeed);
    int moved = 0;
    for (const auto& effect : catalogue().effects())
        for (std::size_t at = 0; at < effect.layouts.size(); ++at) {
            SCOPED_TRACE(effect.fileName + ", " + effect.layouts[at].name);
            const int block = std::array{1500, 17, 512, 1}[at % 4];
            ClapUnderTest plugin(effect, at, std::array{48000., 8000., 44100., 384000.}[at % 4]);
            auto reference = plugin.reference();
            std::map<clap_id, double> known;  // to the host
            for (const auto& info : plugin.parameters()) known[info.id] = info.default_value;
            if (effect.hasSideChain && at == 0) {
                const auto bus = adapters::sideChainOf(effect.layouts[at].output);
                plugin.side = noiseChannels(bus.channels, kFrames, 7);
                reference.sideChain(plugin.side);
                plugin.events.set(adapters::kSideChainSwitch, 1);
            }
            const auto in = noiseChannels(effect.layouts[at].input.channels, kFrames);
            const bool isInPlace = !effect.layouts[at].isPair() && at % 2 == 0;
            const Signal<float> silence(kFrames);
            Channels<float> b(std::size_t(effect.layouts[at].output.channels), silence);
            Channels<float> a = isInPlace ? in : b;
            const auto changes = randomChanges(plugin, reference, kFrames, random);
            auto change = changes.begin();
            for (int from = 0; from < kFrames; from += block) {
                const int n = std::min(block, kFrames - from);
                int done = from;
                for (; change != changes.end() && change->frame < from + n; ++change) {
                    reference.processBlock(in, b, done, change->frame - done);
                    done = change->frame;
                    plugin.events.set(change->id, change->value, change->frame - from);
                    known[change->id] = change->value;
                    if (reference.component().getValue(change->index) != change->own)
                        reference.component().setValue(change->index, change->own);
                }
                reference.processBlock(in, b, done, from + n - done);
                EXPECT_NE(plugin.run(isInPlace ? a : in, a, from, n), CLAP_PROCESS_ERROR);
                for (const auto& event : plugin.told.all()) {
                    known[event.value.param_id] = event.value.value;
                    moved += !plugin.isMeter(event.value.param_id);
                }
                plugin.told.clear();
            }
            EXPECT_TRUE(a == b) << peakDifferenceDb(a, b) << " dB apart";
            VNK::ParameterInfo p{};
            for (int i = 0; reference.component().getParameter(i, p); ++i)
                if (p.isAutomatable() && !p.has(VNK::isTrigger)) {
                    EXPECT_EQ(plugin.text(p.tag, known[p.tag]),
                              plugin.text(p.tag, plugin.value(p.tag)))
                        << p.key;
                }
        }
    EXPECT_GT(moved, 0);
}

}  // namespace
}  // namespace quillworks::test
