// SPDX-License-Identifier: ISC
// What VST3 hosts read of the plug-ins, that each sounds like the effect it is made of, and what
// hosts do to them beside playing them.
#include <bit>
#include <map>
#include <set>
#include <thread>

#include "adapters/common/state.h"
#include "adapters/vst3/instance.h"
#include "tests/support/every_effect.h"
#include "tests/vst3/vst3_under_test.h"

namespace quillworks::test {
namespace {

std::size_t countEffects()
{
    return catalogue().effects().size();
}

std::size_t indexOf(const std::string& fileName)
{
    for (std::size_t i = 0; i < countEffects(); ++i)
        if (catalogue().effects()[i].fileName == fileName) return i;
    throw std::runtime_error("no effect " + fileName);
}

template <typename T> v3_param_id bypassOf(Vst3UnderTest<T>& plugin)
{
    for (const auto& info : plugin.parameters())
        if (info.flags & V3_PARAM_IS_BYPASS) return info.param_id;
    throw std::runtime_error("no bypass");
}

/// Every automatable parameter but the bypass at random.
template <typename T> void randomise(Vst3UnderTest<T>& plugin, std::uint32_t seed)
{
    std::mt19937 random(seed);
    for (const auto& info : plugin.parameters()) {
        const double position = std::uniform_real_distribution<float>(0, 1)(random);
        if (info.flags & V3_PARAM_CAN_AUTOMATE && !(info.flags & V3_PARAM_IS_BYPASS))
            plugin.changes.set(info.param_id, position);
    }
}

TEST(Vst3Factory, OffersEveryClassWithAnIdAndACategory)
{
    auto** const factory = vst3Factory();
    auto** const first = reinterpret_cast<v3_plugin_factory**>(factory);
    ASSERT_EQ(std::size_t(v3_cpp_obj(first)->num_classes(first)), registeredClasses().size());
    std::set<std::string> ids;
    for (std::size_t i = 0; i < registeredClasses().size(); ++i) {
        v3_class_info_3 info{};
        ASSERT_EQ(v3_cpp_obj(factory)->get_class_info_utf16(factory, int(i), &info), V3_OK);
        EXPECT_EQ(vst3::readText(info.name), "Quillworks " + registeredClasses()[i]);
        EXPECT_STREQ(info.category, "Audio Module Class");
        EXPECT_EQ(std::string(info.sub_categories).rfind("Fx|", 0), 0u) << info.sub_categories;
        EXPECT_TRUE(
            ids.insert(std::string(std::begin(info.class_id), std::end(info.class_id))).second);
    }
    void* object = nullptr;
    EXPECT_NE(
        v3_cpp_obj(first)->create_instance(first, v3_component_iid, v3_component_iid, &object),
        V3_OK);
    EXPECT_EQ(object, nullptr);
}

TEST(Vst3Parameters, AreTheEffectsByTheirTagsWithOneBypassUnitsAndPrograms)
{
    for (std::size_t e = 0; e < countEffects(); ++e) {
        Vst3UnderTest<float> plugin(e);
        SCOPED_TRACE(plugin.effect().fileName);
        EffectUnderTest<float> reference(plugin.effect().description->name->text());
        std::set<v3_param_id> tags, ids;
        VNK::ParameterInfo p{};
        for (int i = 0; reference.component().getParameter(i, p); ++i)
            if (!p.has(VNK::isReadOnly)) tags.insert(p.tag);
        const int unitCount = plugin.call(plugin.units)->get_unit_count(plugin.units);
        int bypasses = 0, programs = 0;
        for (const auto& info : plugin.parameters()) {
            SCOPED_TRACE(vst3::readText(info.title));
            EXPECT_LT(info.unit_id, unitCount);
            if (info.flags & V3_PARAM_PROGRAM_CHANGE) {
                programs = info.step_count + 1;
                continue;
            }
            EXPECT_TRUE(ids.insert(info.param_id).second);
            bypasses += (info.flags & V3_PARAM_IS_BYPASS) != 0;
            EXPECT_EQ(plugin.value(info.param_id), info.default_normalised_value);
            for (const double position : {0.0, 0.3, 1.0}) {
                const auto text = plugin.text(info.param_id, position);
                v3_str_128 typed{};
                vst3::writeText(typed, text);
                double read = NAN;
                EXPECT_EQ(plugin.call(plugin.controller)
                              ->get_parameter_value_for_string(plugin.controller, info.param_id,
                                                               typed, &read),
                          V3_OK)
                    << text;
                EXPECT_EQ(plugin.text(info.param_id, read), text);
            }
        }
        EXPECT_EQ(bypasses, 1);
        EXPECT_EQ(ids, tags);
        EXPECT_EQ(programs, reference.component().countPrograms());
        for (int i = 0; i < programs; ++i) {
            v3_str_128 name{};
            EXPECT_EQ(plugin.call(plugin.units)
                          ->get_program_name(plugin.units, vst3::kProgramList, i, name),
                      V3_OK);
            EXPECT_EQ(vst3::readText(name), reference.component().programTitle(i));
        }
    }
}

TEST(Vst3Programs, AreLoadedByTheControllerAndShownToTheHost)
{
    Vst3UnderTest<float> plugin(indexOf("compressor"));
    EffectUnderTest<float> reference("Compressor");
    const int last = reference.component().countPrograms() - 1;
    ASSERT_TRUE(reference.component().loadProgram(last));
    plugin.call(plugin.controller)
        ->set_parameter_normalised(plugin.controller, vst3::kProgramParameter, 1);
    EXPECT_TRUE(plugin.handler.restarts & V3_RESTART_PARAM_VALUES_CHANGED);
    VNK::ParameterInfo p{};
    for (int i = 0; reference.component().getParameter(i, p); ++i)
        if (p.isStored() && !p.has(VNK::isBypass)) {
            EXPECT_EQ(plugin.value(p.tag),
                      reference.component().toNormalized(i, reference.component().getValue(i)))
                << p.key;
        }
}

/// A host that keeps edits together.
struct GroupHandler {
    const void* table = &kCalls;
    std::string course;

    static GroupHandler& of(void* self) { return *static_cast<GroupHandler*>(self); }
    struct First : v3_funknown {
        v3_component_handler handler;
    };
    struct Second : v3_funknown {
        v3_component_handler2 handler;
    };
    struct Face2 {
        const Second* table;
        GroupHandler* owner;
    };
    static GroupHandler& of2(void* self) { return *static_cast<Face2*>(self)->owner; }
    static v3_result ask(void* self, const std::uint8_t* iid, void** object)
    {
        const bool isKnown = v3_tuid_match(iid, v3_component_handler2_iid);
        *object = isKnown ? &of(self).second : nullptr;
        return isKnown ? V3_OK : V3_NO_INTERFACE;
    }
    static const First kCalls;
    static const Second kCalls2;
    Face2 second{&kCalls2, this};
};
const GroupHandler::First GroupHandler::kCalls{
    {GroupHandler::ask, kHostObject.ref, kHostObject.unref},
    {[](void* self, v3_param_id) -> v3_result { return of(self).course += "begin ", V3_OK; },
     [](void* self, v3_param_id, double) -> v3_result { return of(self).course += "set ", V3_OK; },
     [](void* self, v3_param_id) -> v3_result { return of(self).course += "end ", V3_OK; },
     [](void*, std::int32_t) -> v3_result { return V3_OK; }}};
const GroupHandler::Second GroupHandler::kCalls2{
    kHostObject,
    {[](void* self, v3_bool) -> v3_result { return of2(self).course += "dirty ", V3_OK; },
     [](void*, const char*) -> v3_result { return V3_OK; },
     [](void* self) -> v3_result { return of2(self).course += "( ", V3_OK; },
     [](void* self) -> v3_result { return of2(self).course += ") ", V3_OK; }}};

TEST(Vst3Gestures, ASwitchOfSetsIsOneGroupAndAProgramOfTheHostsIsNone)
{
    auto plugins = std::make_shared<const vst3::Plugins>();
    GroupHandler handler;
    auto* const instance = new vst3::Instance(plugins, plugins->list()[indexOf("compressor")]);
    instance->setComponentHandler(reinterpret_cast<v3_component_handler**>(&handler));
    const auto& effect = instance->effect();
    ASSERT_TRUE(effect.selectSet(1));
    effect.setValue(effect.findParameter("threshold"), -30);
    effect.setValue(effect.findParameter("attack"), 1);
    handler.course.clear();
    ASSERT_TRUE(effect.selectSet(0));
    EXPECT_EQ(handler.course, "( begin begin dirty set set end end ) ");
    handler.course.clear();
    instance->setParameter(vst3::kProgramParameter, 1);
    EXPECT_EQ(handler.course, "") << "it is told by a restart";
    instance->unref();
}

/// Each automatable parameter once, at a frame of its own.
template <typename T>
std::vector<std::tuple<int, v3_param_id, int, float>>
randomChanges(EffectUnderTest<T>& effect, int frames, std::mt19937& random)
{
    std::vector<std::tuple<int, v3_param_id, int, float>> all;
    VNK::ParameterInfo p{};
    for (int i = 0; effect.component().getParameter(i, p); ++i)
        if (p.isAutomatable() && !p.has(VNK::isBypass))
            all.emplace_back(int(random() % unsigned(frames)), p.tag, i,
                             std::uniform_real_distribution<float>(0, 1)(random));
    std::stable_sort(all.begin(), all.end(),
                     [](auto& a, auto& b) { return std::get<0>(a) < std::get<0>(b); });
    return all;
}

template <typename T> class Vst3Sound : public ::testing::Test {};
TYPED_TEST_SUITE(Vst3Sound, Precisions);

// In layouts up to 9.1.6, with and without a side-chain, in place, at rates from end to end.
TYPED_TEST(Vst3Sound, IsTheEffectsWithEveryChangeAtItsFrameAndTheHostIsToldWhatMoved)
{
    using T = TypeParam;
    constexpr int kFrames = 2000;
    std::mt19937 random(kSeed);
    const std::pair<const char*, const char*> layouts[] = {
        {"stereo", "stereo"}, {"mono", "mono"},   {"5.1", "5.1"},    {"7.1.4", "7.1.4"},
        {"9.1.6", "9.1.6"},   {"mono", "stereo"}, {"stereo", "7.1"}, {"mono", "9.1.6"}};
    std::map<std::string, int> played;
    int moved = 0;
    for (std::size_t e = 0; e < countEffects(); ++e)
        for (std::size_t at = 0; at < std::size(layouts); ++at) {
            Vst3UnderTest<T> plugin(e);
            const auto [in, out] = layouts[at];
            // What is read beside the sound comes when it comes, for the plug-in and for its
            // effect.
            if (plugin.effect().fileName == "vaulter") continue;
            if (!plugin.arrange(placesNamed(in), placesNamed(out))) continue;
            ++played[out];
            SCOPED_TRACE(plugin.effect().fileName + ", " + in + " to " + out);
            v3_speaker_arrangement arranged = 0;
            plugin.call(plugin.processor)
                ->get_bus_arrangement(plugin.processor, V3_OUTPUT, 0, &arranged);
            EXPECT_EQ(arranged, placesNamed(out));
            const bool hasSide = plugin.effect().hasSideChain && at % 2 == 0;
            if (hasSide) plugin.side = {noise<T>(kFrames, 7), noise<T>(kFrames, 8)};
            plugin.activate(std::array{48000., 8000., 44100., 192000.}[at % 4]);
            auto reference = plugin.reference();
            if (hasSide) reference.sideChain(plugin.side);
            std::map<v3_param_id, double> known;  // to the host
            for (const auto& info : plugin.parameters())
                known[info.param_id] = info.default_normalised_value;
            Channels<T> x;
            for (int c = 0; c < vst3::layoutOf(placesNamed(in))->channels; ++c)
                x.push_back(noise<T>(kFrames, std::uint32_t(c)));
            Channels<T> b(std::size_t(std::popcount(arranged)), Signal<T>(kFrames));
            const bool isInPlace = x.size() == b.size() && at % 2 == 0;
            Channels<T> a = isInPlace ? x : b;
            const int block = std::array{1000, 17, 512, 1}[at % 4];
            const auto changes = randomChanges(reference, kFrames, random);
            auto change = changes.begin();
            for (int from = 0; from < kFrames; from += block) {
                const int n = std::min(block, kFrames - from);
                int done = from;
                for (; change != changes.end() && std::get<0>(*change) < from + n; ++change) {
                    const auto [frame, id, index, position] = *change;
                    reference.processBlock(x, b, done, frame - done);
                    done = frame;
                    plugin.changes.set(id, position, frame - from);
                    known[id] = position;
                    auto& effect = reference.component();
                    if (effect.toNormalized(index, effect.getValue(index)) != position)
                        effect.setValue(index, effect.fromNormalized(index, position));
                }
                reference.processBlock(x, b, done, from + n - done);
                ASSERT_EQ(plugin.run(isInPlace ? a : x, a, from, n), V3_OK);
                for (const auto& queue : plugin.told.queues) {
                    known[queue.id] = queue.points[std::size_t(queue.count - 1)].second;
                    ++moved;
                }
                plugin.told.queues.clear();
            }
            EXPECT_TRUE(a == b) << peakDifferenceDb(a, b) << " dB apart";
            VNK::ParameterInfo p{};
            for (int i = 0; reference.component().getParameter(i, p); ++i)
                if (p.isAutomatable() && !p.has(VNK::isTrigger)) {
                    const float now = reference.component().getValue(i);
                    EXPECT_EQ(plugin.text(p.tag, known[p.tag]),
                              plugin.text(p.tag, reference.component().toNormalized(i, now)))
                        << p.key;
                }
        }
    EXPECT_GT(moved, 0);
    for (const char* name : {"stereo", "mono", "5.1", "7.1.4", "9.1.6", "7.1"})
        EXPECT_GT(played[name], 0) << name;
}

TEST(Vst3Bypass, IsTheInputAtTheLatencyFromItsFrameOn)
{
    for (std::size_t e = 0; e < countEffects(); ++e) {
        Vst3UnderTest<double> plugin(e);
        SCOPED_TRACE(plugin.effect().fileName);
        plugin.activate();
        const Channels<double> x{noise<double>(4000, 1), noise<double>(4000, 2)};
        plugin.changes.set(bypassOf(plugin), 1);
        const auto latency = std::size_t(plugin.latency());
        const auto y = plugin.play(x);
        for (std::size_t i = 700 + 2 * latency; i < 4000; ++i)
            ASSERT_EQ(y[0][i], x[0][i - latency]) << i;
    }
}

TEST(Vst3State, IsTheChunkOfTheOtherFormatsAndSoundsTheSame)
{
    for (std::size_t e = 0; e < countEffects(); ++e) {
        Vst3UnderTest<float> first(e), again(e);
        const auto& effect = catalogue().effects()[e];
        SCOPED_TRACE(effect.fileName);
        const Channels<float> x = noiseChannels(2, 3000);
        first.activate();
        randomise(first, kSeed);
        first.play(x);
        const auto chunk = first.save();
        ASSERT_TRUE(again.load(chunk));
        EXPECT_EQ(again.save(), chunk);
        again.activate();
        auto reference = again.reference();
        adapters::Switches switches;
        ASSERT_TRUE(
            adapters::loadState(reference.component(), chunk.data(), chunk.size(), switches));
        reference.algorithm().reset();
        const auto expected = reference.play(x);  // waits for tables
        again.deactivate();
        again.activate();
        EXPECT_TRUE(again.play(x) == expected);
        ClapUnderTest clap(effect);
        ASSERT_TRUE(clap.load(chunk));
        EXPECT_EQ(clap.save(), chunk);
        clap.deactivate();
        clap.activate();
        if (effect.fileName != "vaulter") {  // this host of CLAP does not wait for files
            EXPECT_TRUE(clap.play(x) == expected);
        }

        EXPECT_FALSE(again.load(""));
        EXPECT_FALSE(again.load(chunk.substr(0, chunk.size() / 2)));
        EXPECT_EQ(again.save(), chunk) << "what is refused changes nothing";
    }
}

TEST(Vst3Calls, InAnOrderThatIsNotAllowedAreRefused)
{
    Vst3UnderTest<float> plugin(indexOf("compressor"));
    Channels<float> x = noiseChannels(2, 100), y = x;
    EXPECT_NE(plugin.run(x, y, 0, 100), V3_OK) << "not active";
    EXPECT_FALSE(plugin.arrange(placesNamed("stereo"), placesNamed("mono")));
    plugin.activate();
    EXPECT_FALSE(plugin.arrange(placesNamed("mono"), placesNamed("mono"))) << "while active";
    v3_process_setup setup{V3_REALTIME, V3_SAMPLE_64, 64, 48000};
    EXPECT_NE(plugin.call(plugin.processor)->setup_processing(plugin.processor, &setup), V3_OK);
    v3_process_data data{};
    data.symbolic_sample_size = V3_SAMPLE_64;
    EXPECT_NE(plugin.call(plugin.processor)->process(plugin.processor, &data), V3_OK)
        << "the other sample size";
    // Parameters alone, without a frame or a bus.
    EffectUnderTest<float> described("Compressor");
    VNK::ParameterInfo p{};
    described.component().getParameter(described.indexOf("threshold"), p);
    plugin.changes.set(p.tag, 0.25);
    data.symbolic_sample_size = V3_SAMPLE_32;
    data.input_params = plugin.changes.get();
    EXPECT_EQ(plugin.call(plugin.processor)->process(plugin.processor, &data), V3_OK);
    EXPECT_TRUE(plugin.load(plugin.save()));
    EXPECT_EQ(plugin.value(p.tag), 0.25);
    void* object = &data;
    EXPECT_NE(v3_cpp_obj_query_interface(plugin.component, v3_component_handler_iid,
                                         reinterpret_cast<v3_funknown***>(&object)),
              V3_OK);
    EXPECT_EQ(object, nullptr);
}

TEST(Vst3Latency, IsToldWhenAutomationChangesIt)
{
    Vst3UnderTest<float> plugin(indexOf("limiter"));
    plugin.activate();
    const int before = plugin.latency();
    for (const auto& info : plugin.parameters())
        if (!(info.flags & (V3_PARAM_IS_BYPASS | V3_PARAM_PROGRAM_CHANGE)))
            plugin.changes.set(info.param_id, 1);
    plugin.play(noiseChannels(2, 100));
    plugin.call(plugin.controller)->set_parameter_normalised(plugin.controller, 1, 0);
    EXPECT_TRUE(plugin.handler.restarts & V3_RESTART_LATENCY_CHANGED);
    EXPECT_NE(plugin.latency(), before);
}

TEST(Vst3Threads, ControllerAndStateAreUsedWhileThePlugInRuns)
{
    for (const char* name : {"compressor", "analog-delay", "tone-generator"}) {
        Vst3UnderTest<float> plugin(indexOf(name));
        plugin.activate();
        std::atomic<bool> isDone{false};
        std::thread audio([&] {
            for (std::uint32_t seed = 0; !isDone; ++seed) {
                if (seed % 8 == 0) randomise(plugin, seed);
                plugin.play(noiseChannels(2, 256), 64);
            }
        });
        const auto state = plugin.save();
        for (int turn = 0; turn < 30; ++turn) {
            for (const auto& info : plugin.parameters())
                plugin.call(plugin.controller)
                    ->set_parameter_normalised(plugin.controller, info.param_id, turn % 2);
            plugin.save();
            EXPECT_TRUE(plugin.load(state));
        }
        isDone = true;
        audio.join();
    }
}

}  // namespace
}  // namespace quillworks::test
