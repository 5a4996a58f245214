// SPDX-License-Identifier: ISC
// What songs and tools hold on to: the URIs of the plug-ins and the indices of their ports.
#include <fstream>
#include <map>
#include <sstream>

#include "adapters/lv2/instance.h"
#include "tests/framework/probe_effect.h"
#include "tests/lv2/lv2_under_test.h"
#include "tests/support/build_paths.h"

namespace quillworks::test {
namespace {

using Lists = std::map<std::string, std::vector<std::string>>;

Lists published()
{
    std::ifstream file(paths::source + "/tests/lv2/published_ports.txt");
    Lists lists;
    std::vector<std::string>* current = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("#") || line.empty()) continue;
        if (line.starts_with("urn:")) {
            EXPECT_FALSE(lists.contains(line)) << line << " stands twice";
            current = &lists[line];
            continue;
        }
        std::istringstream words(line);
        for (std::string word; words >> word;) current->push_back(word);
    }
    return lists;
}

std::vector<std::string> symbolsOf(const std::vector<lv2::Port>& ports)
{
    std::vector<std::string> symbols;
    for (const auto& port : ports) symbols.push_back(port.symbol);
    return symbols;
}

/// As it stands in the file.
std::string paragraph(const std::string& uri, const std::vector<std::string>& symbols)
{
    std::string text = uri + "\n ", line = " ";
    for (const auto& symbol : symbols) {
        if (line.size() + 1 + symbol.size() > 98) {
            text += "\n ";
            line = " ";
        }
        text += " " + symbol;
        line += " " + symbol;
    }
    return text;
}

TEST(PublishedPorts, KeepTheirIndexAndNewOnesStandInTheListAtItsEnd)
{
    auto lists = published();
    for (const auto& plugin : catalogue().plugins()) {
        const auto now = symbolsOf(plugin.ports);
        const auto before = lists[plugin.uri];
        lists.erase(plugin.uri);
        std::int64_t isPassThrough = 0;
        catalogue().create(plugin)->getInteger("passThrough", isPassThrough);
        if (isPassThrough) {
            for (const auto& symbol : before)
                EXPECT_NE(std::find(now.begin(), now.end(), symbol), now.end())
                    << plugin.uri << " has lost " << symbol;
            EXPECT_FALSE(before.empty()) << "not listed:\n" << paragraph(plugin.uri, now);
        } else {
            EXPECT_EQ(now, before) << "the list, if nothing but its end differs:\n"
                                   << paragraph(plugin.uri, now);
        }
    }
    for (const auto& gone : lists) ADD_FAILURE() << gone.first << " is no more";
}

TEST(NoSideChain, VariantsHaveTheSamePortsButThoseOfTheBusAndSoundAlike)
{
    int variants = 0;
    for (const auto& plugin : catalogue().plugins()) {
        if (!plugin.uri.ends_with("-nosc")) continue;
        SCOPED_TRACE(plugin.uri);
        ++variants;
        const auto fullUri = plugin.uri.substr(0, plugin.uri.size() - 5);
        Lv2UnderTest bare(plugin.uri), full(fullUri);
        ASSERT_TRUE(full.hasSideChain());
        EXPECT_FALSE(bare.hasSideChain());
        EXPECT_FALSE(bare.has("sidechain"));
        std::vector<std::string> expected;
        for (const auto& port : full.instance().ports())
            if (!port.symbol.starts_with("sidechain_in") && port.symbol != "sidechain")
                expected.push_back(port.symbol);
        EXPECT_EQ(symbolsOf(plugin.ports), expected);
        auto effect = effectOf(plugin);
        randomise(effect, bare, kSeed);
        auto other = effectOf(plugin);
        randomise(other, full, kSeed);
        const auto in = noiseChannels(plugin.input.channels, 6000);
        EXPECT_TRUE(isSame(bare.play(in), full.play(in)));
    }
    EXPECT_GE(variants, 4);
}

/// The probe in pairs of layouts, with a row of a later generation.
class PairComponent final : public AudioEffectComponent {
public:
    explicit PairComponent(AudioEffectAlgorithm& a)
        : AudioEffectComponent(a, {.viewPrefix = "Pair", .layouts = "stereo;mono;mono>stereo"})
    {}
};
constexpr Parameter<ProbeSettings> kPair[] = {
    {.key = "gain",
     .tag = "Gain"_tag,
     .title = "Gain",
     .min = -60,
     .max = 12,
     .unit = "dB",
     .field = &ProbeSettings::gain,
     .dirty = ProbeCore<float>::Gain,
     .forward = conversion::decibels},
    {.key = "later", .tag = "Late"_tag, .title = "Later", .notes = {.generation = 1}},
    {"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
    {.key = "level",
     .tag = "Leve"_tag,
     .title = "Level",
     .kind = Kind::Reading,
     .notes = {.generation = 2}},
};
class PairAlgorithm final : public PrecisionAlgorithm<ProbeCore> {
public:
    PairAlgorithm() : PrecisionAlgorithm(kPair) {}
    bool acceptsArrangement(const VNK::SpeakerArrangement& in,
                            const VNK::SpeakerArrangement& out) const noexcept override
    {
        return in.channels <= out.channels;
    }
};

class Pairs : public ::testing::Test {
protected:
    Pairs()
    {
        const auto algorithm = VNK::Ref<PairAlgorithm>::adopt(new PairAlgorithm);
        component = VNK::HostedEffect::adopt(
            static_cast<VNK::IEffectComponent*>(new PairComponent(*algorithm)));
        description.name = VNKGetConstantString("Pair Pan");
        plugins = lv2::pluginsOf(description, *component);
    }
    VNK::ClassDescription description;
    VNK::HostedEffect component;
    std::vector<lv2::Plugin> plugins;
};

TEST_F(Pairs, HaveAUriOfTheirOwnAndPortsOfBothSidesLaterGenerationsLast)
{
    ASSERT_EQ(plugins.size(), 3u);
    EXPECT_EQ(plugins[0].uri, "urn:quillworks:pair-pan");
    EXPECT_EQ(plugins[1].uri, "urn:quillworks:pair-pan-mono");
    EXPECT_EQ(plugins[2].uri, "urn:quillworks:pair-pan-mono-stereo");
    EXPECT_EQ(plugins[2].title, "Quillworks Pair Pan Mono to Stereo");
    EXPECT_EQ(symbolsOf(plugins[2].ports),
              (std::vector<std::string>{"in", "out_l", "out_r", "control", "enabled", "gain",
                                        "bypass", "latency", "freewheel", "later", "level"}));
}

TEST_F(Pairs, RunAndAreSwitchedOffAsBypassPlaysThem)
{
    lv2::Instance instance(component, plugins[2], 48000, nullptr);
    Signal<float> in = noise<float>(3000), left(3000), right(3000);
    float gain = -20, on = 1;
    const auto connect = [&](const char* symbol, void* data) {
        const auto symbols = symbolsOf(plugins[2].ports);
        const auto at = std::find(symbols.begin(), symbols.end(), symbol) - symbols.begin();
        instance.connect(static_cast<std::uint32_t>(at), data);
    };
    connect("in", in.data());
    connect("out_l", left.data());
    connect("out_r", right.data());
    connect("gain", &gain);
    connect("enabled", &on);
    instance.activate();
    instance.run(3000);
    EXPECT_EQ(right, Signal<float>(3000, 0.f));
    EXPECT_NEAR(left[100], in[100] * 0.1f, 1e-6);
    on = 0;
    instance.activate();
    instance.run(3000);
    EXPECT_EQ(left, in);
    EXPECT_EQ(right, in);
}

}  // namespace
}  // namespace quillworks::test
