// SPDX-License-Identifier: ISC
// Songs and presets: what comes back, and what is refused.
#include <atomic>
#include <thread>

#include "adapters/lv2/instance.h"
#include "tests/lv2/lv2_under_test.h"

namespace quillworks::test {
namespace {

struct StateDeleter {
    void operator()(LilvState* state) const noexcept { lilv_state_free(state); }
};
using State = std::unique_ptr<LilvState, StateDeleter>;

std::string text(Lv2UnderTest& plugin)
{
    const State state(plugin.instance().save());
    char* turtle =
        lilv_state_to_string(world().get(), world().urids().feature(),
                             world().urids().unmapFeature(), state.get(), "urn:state", nullptr);
    const std::string out = turtle;
    lilv_free(turtle);
    return out;
}

bool hasSomethingToTurn(EffectUnderTest<float>& effect)
{
    VNK::ParameterInfo p;
    for (int i = 0; effect.component().getParameter(i, p); ++i)
        if (p.kind == VNK::ValueKind::Continuous && p.isAutomatable()) return true;
    return false;
}

TEST(Lv2State, ASongGivesEveryPlugInBackAsItWas)
{
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        const auto in = noiseChannels(plugin.input.channels, 2000);
        Lv2UnderTest before(plugin.uri), after(plugin.uri);
        auto effect = effectOf(plugin);
        randomise(effect, before, kSeed);
        before.play(in);
        // Parameters that move others do so without the host's ports following.
        VNK::ParameterInfo p;
        for (int i = 0; effect.component().getParameter(i, p); ++i)
            if (p.kind == VNK::ValueKind::Toggle && before.has(p.key) && p.isStored()) {
                before.set(p.key, 1 - before.instance().get(p.key));
                before.play(in);
            }
        const State stored(before.instance().save());
        after.instance().restore(stored.get());
        after.play(in);
        EXPECT_EQ(text(after), text(before));
        before.instance().activate();
        after.instance().activate();
        EXPECT_TRUE(isSame(after.play(in), before.play(in)));
    }
}

TEST(Lv2State, PresetsAreThoseOfTheModuleAndStandInThePorts)
{
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        auto effect = effectOf(plugin);
        if (isTooSlowHere(effect, plugin)) continue;
        const auto presets = world().presets(world().plugin(plugin.uri));
        ASSERT_EQ(static_cast<int>(presets.size()), effect.component().countPrograms());
        EXPECT_GE(presets.size(), hasSomethingToTurn(effect) ? 6u : 0u);
        std::vector<std::string> left;
        for (int i = 0; i < effect.component().countPrograms(); ++i)
            left.emplace_back(effect.component().programTitle(i));
        // The layouts' presets are those of one class: where each reads a response anew, mono and
        // stereo play all of them, wider layouts the first. Under sanitizers they do too: there the
        // sweep over all classes loads them all.
        const bool takesLong =
            effect.component().countTexts() > 0 && (kIsSanitised || plugin.input.channels > 2);
        for (const auto& uri : presets) {
            if (takesLong && uri != presets.front()) break;
            SCOPED_TRACE(uri);
            Lv2UnderTest running(plugin.uri);
            ASSERT_TRUE(running.instance().loadPreset(uri));
            // The title in the Turtle file says which of the module's programs it must be.
            LilvNode* node = lilv_new_uri(world().get(), uri.c_str());
            LilvNode* label = lilv_new_uri(world().get(), LILV_NS_RDFS "label");
            LilvNode* title = lilv_world_get(world().get(), node, label, nullptr);
            const auto at = std::find(left.begin(), left.end(), lilv_node_as_string(title));
            for (LilvNode* n : {node, label, title}) lilv_node_free(n);
            ASSERT_NE(at, left.end());

            auto reference = effectOf(plugin);
            ASSERT_TRUE(reference.component().loadProgram(static_cast<int>(at - left.begin())));
            VNK::ParameterInfo p;
            for (int i = 0; reference.component().getParameter(i, p); ++i)
                if (running.has(p.key) && p.isStored()) {
                    EXPECT_EQ(running.instance().get(p.key), reference.component().getValue(i))
                        << p.key;
                }
            const auto in = noiseChannels(plugin.input.channels, 2000);
            running.set("freewheel", 1)
                .instance()
                .run(0);  // waits for what is made beside the sound
            running.set("freewheel", 0);
            const auto a = running.play(in), b = reference.play(in, kMaxFrames);
            EXPECT_TRUE(isSame(a, b));
        }
    }
}

TEST(Lv2State, IsSavedWhileThePlugInRuns)
{
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        Lv2UnderTest running(plugin.uri), after(plugin.uri);
        const auto in = noiseChannels(plugin.input.channels, 512);
        std::atomic<bool> isDone{false};
        std::thread audio([&] {
            auto effect = effectOf(plugin);
            for (std::uint32_t turn = 0; !isDone; ++turn) {
                randomise(effect, running, kSeed + turn % 50);
                running.play(in, 64);
            }
        });
        for (int i = 0; i < 5; ++i) {
            const auto* state = static_cast<const LV2_State_Interface*>(
                lilv_instance_get_extension_data(running.instance().get(), LV2_STATE__interface));
            const auto store = [](LV2_State_Handle, std::uint32_t, const void*, std::size_t size,
                                  std::uint32_t, std::uint32_t) {
                return size > 0 ? LV2_STATE_SUCCESS : LV2_STATE_ERR_UNKNOWN;
            };
            EXPECT_EQ(state->save(lilv_instance_get_handle(running.instance().get()), store,
                                  nullptr, 0, nullptr),
                      LV2_STATE_SUCCESS);
        }
        isDone = true;
        audio.join();
    }
}

struct Property {
    LV2_URID key, type;
    std::string value;
};

/// The plug-in's own answer to a host that offers these properties.
LV2_State_Status restore(Lv2UnderTest& plugin, const std::vector<Property>& properties)
{
    const auto* state = static_cast<const LV2_State_Interface*>(
        lilv_instance_get_extension_data(plugin.instance().get(), LV2_STATE__interface));
    const auto retrieve = [](LV2_State_Handle handle, std::uint32_t key, std::size_t* size,
                             std::uint32_t* type, std::uint32_t* flags) -> const void* {
        for (const auto& p : *static_cast<const std::vector<Property>*>(handle))
            if (p.key == key) {
                *size = p.value.size();
                *type = p.type;
                *flags = LV2_STATE_IS_POD;
                return p.value.data();
            }
        return nullptr;
    };
    return state->restore(lilv_instance_get_handle(plugin.instance().get()), retrieve,
                          const_cast<std::vector<Property>*>(&properties), 0, nullptr);
}

TEST(Lv2State, RefusesWhatIsDamagedForeignOrMissingAndChangesNothing)
{
    auto& urids = world().urids();
    const auto chunkKey = urids.map(lv2::kStateChunk), portsKey = urids.map(lv2::kStatePorts);
    const auto chunkType = urids.map(LV2_ATOM__Chunk), textType = urids.map(LV2_ATOM__String);
    std::string foreign;  // of the plug-in before
    for (const auto& plugin : catalogue().plugins()) {
        SCOPED_TRACE(plugin.uri);
        Lv2UnderTest running(plugin.uri);
        auto effect = effectOf(plugin);
        randomise(effect, running, kSeed);
        running.play(noiseChannels(plugin.input.channels, 600));
        const auto before = text(running);
        VNK::StringSink sink;
        ASSERT_TRUE(effect.component().saveState(sink));
        const std::string good = sink.text();

        EXPECT_NE(restore(running, {}), LV2_STATE_SUCCESS);
        EXPECT_NE(restore(running, {{chunkKey, textType, good}}), LV2_STATE_SUCCESS);
        for (std::size_t size = 0; size < good.size(); size += 1 + good.size() / 40)
            EXPECT_NE(restore(running, {{chunkKey, chunkType, good.substr(0, size)}}),
                      LV2_STATE_SUCCESS)
                << size;
        if (!foreign.empty() && foreign.substr(8, 16) != good.substr(8, 16)) {
            EXPECT_NE(restore(running, {{chunkKey, chunkType, foreign}}), LV2_STATE_SUCCESS);
        }
        EXPECT_EQ(text(running), before);
        // Nonsense about ports does no harm to the rest.
        for (const std::string ports : {"", "=", " = ==", "threshold", "threshold=", "x=1 =2 y"})
            EXPECT_EQ(restore(running, {{chunkKey, chunkType, good}, {portsKey, textType, ports}}),
                      LV2_STATE_SUCCESS);
        foreign = good;
    }
}

}  // namespace
}  // namespace quillworks::test
