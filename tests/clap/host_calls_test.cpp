// SPDX-License-Identifier: ISC
// What hosts do to plug-ins beside playing them: switches, songs, states, threads, and calls in an
// order that the format does not allow.
#include <map>

#include <lv2/atom/atom.h>

#include "adapters/clap/instance.h"
#include "adapters/common/state.h"
#include "adapters/lv2/instance.h"
#include "hosts/lilv/lilv_host.h"
#include "tests/clap/clap_under_test.h"

namespace quillworks::test {
namespace {

const adapters::OfferedEffect& effectNamed(const std::string& fileName)
{
    for (const auto& effect : catalogue().effects())
        if (effect.fileName == fileName) return effect;
    throw std::runtime_error("no effect " + fileName);
}

clap_id bypassOf(const ClapUnderTest& plugin)
{
    for (const auto& info : plugin.parameters())
        if (info.flags & CLAP_PARAM_IS_BYPASS) return info.id;
    throw std::runtime_error("no bypass");
}

/// Every automatable parameter but the bypass at random.
void randomise(ClapUnderTest& plugin, std::uint32_t seed)
{
    std::mt19937 random(seed);
    for (const auto& info : plugin.parameters()) {
        const double position = std::uniform_real_distribution<double>(0, 1)(random);
        if (info.flags & CLAP_PARAM_IS_AUTOMATABLE && !(info.flags & CLAP_PARAM_IS_BYPASS) &&
            info.id != adapters::kSideChainSwitch)
            plugin.events.set(info.id,
                              info.min_value + position * (info.max_value - info.min_value));
    }
}

// While it is off the effect goes on working and its latency stands, as delay compensation needs.
TEST(ClapBypass, IsTheInputAtTheLatencyAndFadesFromItsFrameOn)
{
    for (const auto& effect : catalogue().effects()) {
        SCOPED_TRACE(effect.fileName);
        const auto in = noiseChannels(2, 3000);
        ClapUnderTest off(effect), later(effect), on(effect);
        for (auto* plugin : {&off, &later, &on}) {
            randomise(*plugin, kSeed);
            plugin->params->flush(plugin->get(), plugin->events.in(), plugin->told.out());
            plugin->deactivate();
            plugin->activate();
            plugin->events.clear();
        }
        off.events.set(bypassOf(off), 1);
        const auto latency = std::size_t(off.latency());
        const auto out = off.play(in);
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = latency; i < 3000; ++i)
                ASSERT_EQ(out[c][i], in[c][i - latency]) << i;
        EXPECT_EQ(off.latency(), int(latency));
        later.events.set(bypassOf(later), 1, 100);
        const auto switched = later.play(in), untouched = on.play(in);
        for (std::size_t i = 0; i < 100; ++i) ASSERT_EQ(switched[0][i], untouched[0][i]) << i;
        for (std::size_t i = 700 + 2 * latency; i < 3000; ++i)
            ASSERT_EQ(switched[0][i], in[0][i - latency]) << i;
    }
}

TEST(ClapDelays, ALatencyThatChangesAsksForARestartAndATailIsTold)
{
    ClapUnderTest plugin(effectNamed("limiter"));
    const int before = plugin.latency();
    for (const auto& info : plugin.parameters()) {
        if (plugin.host.restarts > 0 || info.flags & CLAP_PARAM_IS_BYPASS) break;
        plugin.events.set(info.id, info.max_value);
        plugin.play(noiseChannels(2, 100));
    }
    plugin.play(noiseChannels(2, 100));
    EXPECT_EQ(plugin.host.restarts, 1) << "asked for once";
    EXPECT_EQ(plugin.latency(), before) << "it stands while the plug-in is active";
    const int told = plugin.host.latencies;
    plugin.deactivate();
    plugin.activate();
    EXPECT_NE(plugin.latency(), before);
    EXPECT_EQ(plugin.host.latencies, told + 1);

    ClapUnderTest echo(effectNamed("beat-delay"));
    const auto* tail = echo.extension<clap::PluginTail>(clap::kTailExtension);
    const auto first = tail->get(echo.get());
    randomise(echo, kSeed);
    echo.play(noiseChannels(2, 100));
    EXPECT_NE(tail->get(echo.get()), first);
    EXPECT_EQ(echo.host.tails, 1);
}

TEST(ClapSong, IsTheTransportsOfTheBlockAndOfEventsWithinIt)
{
    const auto& effect = effectNamed("wobbla");
    const auto at = [](int frame, double quarters) {
        Events::Event event{};
        event.transport = {};
        event.transport.header = {sizeof event.transport, std::uint32_t(frame), 0,
                                  CLAP_EVENT_TRANSPORT, 0};
        event.transport.flags = CLAP_TRANSPORT_HAS_TEMPO | CLAP_TRANSPORT_HAS_BEATS_TIMELINE |
                                CLAP_TRANSPORT_IS_PLAYING;
        event.transport.tempo = 90;
        event.transport.song_pos_beats = std::llround(quarters * CLAP_BEATTIME_FACTOR);
        return event;
    };
    const auto in = noiseChannels(2, 2000);
    ClapUnderTest plugin(effect);
    auto reference = plugin.reference(2000);
    const auto start = at(0, 8);
    plugin.transport = &start.transport;
    plugin.events.add(at(1000, 3.5));
    Channels<float> a(2, Signal<float>(2000)), b = a;
    plugin.run(in, a, 0, 2000);
    for (const auto& [frame, quarters] : {std::pair{0, 8.}, {1000, 3.5}}) {
        for (int done = 0; done < 1000; done += kMaxFrames) {  // as the plug-in cuts
            reference.algorithm().setTransport({.playing = true,
                                                .positionKnown = true,
                                                .quarterNotes = quarters + done / 48000. * 90 / 60,
                                                .tempo = 90});
            reference.tempo(90).processBlock(in, b, frame + done,
                                             std::min(kMaxFrames, 1000 - done));
        }
    }
    EXPECT_TRUE(a == b) << peakDifferenceDb(a, b);
}

TEST(ClapMeters, AreToldAsParametersThatOnlyThePlugInMoves)
{
    ClapUnderTest plugin(effectNamed("level-meter"));
    auto reference = plugin.reference();
    reference.component().setEditorOpen(true);
    const auto in = noiseChannels(2, 5 * kMaxFrames);
    plugin.play(in);
    reference.play(in, kMaxFrames);
    std::map<clap_id, double> told;
    for (const auto& event : plugin.told.all()) told[event.value.param_id] = event.value.value;
    VNK::MeterInfo m{};
    int moved = 0;
    for (int i = 0; reference.component().getMeter(i, m); ++i) {
        const float value = reference.component().readMeter(i);
        if (!(value > m.minimum && value < m.maximum)) continue;
        EXPECT_EQ(plugin.value(m.tag), value) << m.key;
        moved += told.contains(m.tag);
    }
    EXPECT_GT(moved, 4);
    EXPECT_LT(plugin.told.all().size(), 3 * told.size()) << "not with every block";
    plugin.events.set(told.begin()->first, 0);
    plugin.play(noiseChannels(2, 10));
}

TEST(ClapGestures, FrameTheValuesThatAPersonSets)
{
    const clap::Plugins plugins;
    const clap::Plugin& compressor = *plugins.find("example.quillworks.compressor");
    ClapHost host;
    clap::Instance instance(std::make_shared<const clap::Plugins>(), compressor, &host.host);
    ASSERT_TRUE(instance.init());
    const int index = compressor.parameters[1].index;
    instance.editBegun(index);
    instance.editEnded(index);
    EXPECT_EQ(host.flushes, 2);
    Events in, out;
    instance.flush(in.in(), out.out());
    ASSERT_EQ(out.all().size(), 2u);
    EXPECT_EQ(out.all()[0].header.type, CLAP_EVENT_PARAM_GESTURE_BEGIN);
    EXPECT_EQ(out.all()[1].header.type, CLAP_EVENT_PARAM_GESTURE_END);
    EXPECT_EQ(out.all()[1].gesture.param_id, compressor.parameters[1].id);
}

TEST(ClapGestures, FrameASwitchToAnotherSetAndBack)
{
    const clap::Plugins plugins;
    const clap::Plugin& mixtool = *plugins.find("example.quillworks.mixtool");
    ClapHost host;
    clap::Instance instance(std::make_shared<const clap::Plugins>(), mixtool, &host.host);
    ASSERT_TRUE(instance.init());
    const auto& effect = instance.effect();
    Events in, out;
    instance.flush(in.in(), out.out());
    out.clear();
    ASSERT_TRUE(effect.selectSet(1));
    EXPECT_EQ(host.dirt, 1) << "songs hold which one is heard";
    VNK::ParameterInfo p{};
    int moved = 0;
    for (int i = 0; effect.getParameter(i, p); ++i)
        if (p.isStored() && !p.has(VNK::isBypass) &&
            effect.setValue(i, p.defaultValue == p.minimum ? p.maximum : p.minimum))
            ++moved;
    EXPECT_GT(moved, 60) << "many, for the queue";
    instance.flush(in.in(), out.out());
    out.clear();
    ASSERT_TRUE(effect.selectSet(0) && effect.selectSet(1));
    instance.flush(in.in(), out.out());
    std::map<clap_id, int> begun, ended;
    for (const auto& event : out.all()) {
        if (event.header.type == CLAP_EVENT_PARAM_GESTURE_BEGIN) ++begun[event.gesture.param_id];
        if (event.header.type == CLAP_EVENT_PARAM_GESTURE_END) ++ended[event.gesture.param_id];
    }
    EXPECT_GE(int(begun.size()), moved - 10) << "all but what the effect itself derives";
    EXPECT_EQ(begun, ended);
    EXPECT_EQ(host.dirt, 3);
    VNK::StringSink song;
    ASSERT_TRUE(effect.saveState(song));
}

/// What LV2 stores of a state and gives back.
struct Lv2Chunk {
    LV2_URID key, type;
    std::string bytes;

    static LV2_State_Status store(LV2_State_Handle handle, LV2_URID key, const void* data,
                                  std::size_t size, LV2_URID, std::uint32_t)
    {
        auto& it = *static_cast<Lv2Chunk*>(handle);
        if (key == it.key) it.bytes.assign(static_cast<const char*>(data), size);
        return LV2_STATE_SUCCESS;
    }
    static const void* retrieve(LV2_State_Handle handle, LV2_URID key, std::size_t* size,
                                LV2_URID* type, std::uint32_t* flags)
    {
        auto& it = *static_cast<Lv2Chunk*>(handle);
        *size = it.bytes.size();
        *type = it.type;
        *flags = LV2_STATE_IS_POD;
        return key == it.key ? it.bytes.data() : nullptr;
    }
};

TEST(ClapState, CrossesToLv2AndBackWithEqualSound)
{
    lilv::UridMap urids;
    const LV2_Feature map =
        urids.feature() ? LV2_Feature{LV2_URID__map, urids.feature()} : LV2_Feature{};
    const LV2_Feature* features[] = {&map, nullptr};
    const lv2::Catalogue lv2;
    for (const auto& effect : catalogue().effects()) {
        SCOPED_TRACE(effect.fileName);
        const auto in = noiseChannels(2, 2000);
        ClapUnderTest before(effect), after(effect);
        randomise(before, kSeed);
        before.play(in);
        const auto state = before.save(7);  // a host that takes little at a time
        before->reset(before.get());

        const auto plugin = std::find_if(lv2.plugins().begin(), lv2.plugins().end(),
                                         [&](auto& p) { return p.fileName == effect.fileName; });
        lv2::Instance instance(lv2.create(*plugin), *plugin, 48000, features);
        Lv2Chunk chunk{urids.map(lv2::kStateChunk), urids.map(LV2_ATOM__Chunk), state};
        ASSERT_EQ(instance.restore(Lv2Chunk::retrieve, &chunk, features), LV2_STATE_SUCCESS);
        Channels<float> heard(2, Signal<float>(2000));
        for (std::size_t i = 0; i < plugin->ports.size(); ++i)
            if (plugin->ports[i].role == lv2::Port::Role::AudioIn)
                instance.connect(
                    std::uint32_t(i),
                    const_cast<float*>(in[std::size_t(plugin->ports[i].index)].data()));
            else if (plugin->ports[i].role == lv2::Port::Role::AudioOut)
                instance.connect(std::uint32_t(i),
                                 heard[std::size_t(plugin->ports[i].index)].data());
        instance.activate();
        instance.run(2000);
        ASSERT_EQ(instance.save(Lv2Chunk::store, &chunk, features), LV2_STATE_SUCCESS);
        EXPECT_EQ(chunk.bytes, state);

        ASSERT_TRUE(after.load(chunk.bytes, 5));
        EXPECT_EQ(after.host.rescans, 1);
        VNK::ParameterInfo p{};
        const auto table = lv2.create(*plugin);
        for (int i = 0; table.getParameter(i, p); ++i)
            if (p.isStored()) {
                EXPECT_EQ(after.value(p.tag), before.value(p.tag)) << p.key;
            }
        after.deactivate();
        after.activate();
        EXPECT_TRUE(after.play(in) == heard);
        for (const auto& event : after.told.all())
            EXPECT_TRUE(after.isMeter(event.value.param_id)) << "the host has read the others";

        EXPECT_FALSE(after.load(state.substr(0, state.size() - 3)));
        EXPECT_EQ(after.save(), state) << "what is refused changes nothing";
    }
}

TEST(ClapState, KeepsTheSwitchesAndTakesABypassOfTheEffectForItsOwn)
{
    const auto& effect = effectNamed("compressor");
    ClapUnderTest plugin(effect), again(effect);
    plugin.events.set(bypassOf(plugin), 1).set(adapters::kSideChainSwitch, 1);
    plugin.play(noiseChannels(2, 10));
    const auto state = plugin.save();
    ASSERT_TRUE(again.load(state));
    EXPECT_EQ(again.value(bypassOf(again)), 1);
    EXPECT_EQ(again.value(adapters::kSideChainSwitch), 1);
    EXPECT_EQ(again.save(), state);

    auto own = plugin.reference();  // as a song of another format may have stored it
    own.set("bypass", 1);
    VNK::StringSink chunk;
    ASSERT_TRUE(own.component().saveState(chunk));
    ASSERT_TRUE(again.load(chunk.text()));
    EXPECT_EQ(again.value(bypassOf(again)), 1);
    again.events.set(bypassOf(again), 0);
    again.deactivate();
    again.activate();
    const auto in = noiseChannels(2, 2000);
    EXPECT_FALSE(again.play(in) == in) << "one switch undoes it";
}

TEST(ClapHosts, MayPassLessThanIsDeclared)
{
    for (const auto& effect : catalogue().effects()) {
        SCOPED_TRACE(effect.fileName);
        ClapUnderTest plugin(effect);
        Signal<float> x(kMaxFrames, 0.25f);
        float* one[] = {x.data(), nullptr};
        clap_audio_buffer_t half{one, nullptr, 1, 0, 0}, holed{one, nullptr, 2, 0, 0}, none{};
        double* wide[2] = {};
        clap_audio_buffer_t doubles{nullptr, wide, 2, 0, 0};
        const auto play = [&](const clap_audio_buffer_t* in, clap_audio_buffer_t* out, int frames) {
            const clap_process_t process{-1,     std::uint32_t(frames), nullptr,        in,
                                         out,    in != nullptr,         out != nullptr, nullptr,
                                         nullptr};
            const AudioThreadGuard guard;
            return plugin->process(plugin.get(), &process);
        };
        for (auto* buffer : {&half, &holed, &none})
            for (const int frames : {0, 1, kMaxFrames})
                EXPECT_NE(play(buffer, buffer, frames), CLAP_PROCESS_ERROR);
        EXPECT_NE(play(nullptr, nullptr, kMaxFrames), CLAP_PROCESS_ERROR);
        EXPECT_EQ(play(&doubles, &half, 1), CLAP_PROCESS_ERROR) << "which was not offered";
        EXPECT_TRUE(isFinite(x));
    }
}

TEST(ClapHosts, CallInTheWrongOrderOrOnTheWrongThreadAndDoNoHarm)
{
    const auto& effect = effectNamed("gate");
    ClapUnderTest plugin(effect, 0, 0);
    Channels<float> x(2, Signal<float>(100));
    EXPECT_EQ(plugin.run(x, x, 0, 100), CLAP_PROCESS_ERROR) << "not active";
    EXPECT_FALSE(plugin->start_processing(plugin.get()));
    plugin->reset(plugin.get());
    EXPECT_FALSE(plugin->activate(plugin.get(), -1, 1, 512));
    EXPECT_TRUE(plugin->activate(plugin.get(), 48000, 1, 512));
    EXPECT_FALSE(plugin->activate(plugin.get(), 48000, 1, 512)) << "twice";
    EXPECT_NE(plugin.run(x, x, 0, 100), CLAP_PROCESS_ERROR);
    EXPECT_EQ(plugin->get_extension(plugin.get(), "clap.not-there"), nullptr);
    std::thread([&] {
        EXPECT_FALSE(plugin.load("anything"));
        EXPECT_EQ(plugin.host.complaints, 1);
    }).join();
    plugin.host.isAudioAnywhere = false;
    for (int i = 0; i < 3; ++i) EXPECT_NE(plugin.run(x, x, 0, 100), CLAP_PROCESS_ERROR);
    EXPECT_EQ(plugin.host.complaints, 2) << "told once, and played";
}  // and is destroyed while it is active

TEST(ClapThreads, AreSavedLoadedAndReadWhileThePlugInRuns)
{
    for (const auto& effect : catalogue().effects()) {
        SCOPED_TRACE(effect.fileName);
        ClapUnderTest plugin(effect);
        const auto parameters = plugin.parameters();
        const auto state = plugin.save();
        const auto in = noiseChannels(2, 64);
        std::atomic<bool> isDone{false};
        std::thread audio([&] {
            Channels<float> out = in;
            std::mt19937 random(kSeed);
            for (std::uint32_t turn = 0; !isDone || turn < 8; ++turn) {
                for (const auto& info : parameters)
                    if (random() % 8 == 0)
                        plugin.events.set(info.id, random() % 2 ? info.min_value : info.max_value,
                                          int(random() % 64));
                plugin.run(in, out, 0, 64);
                plugin.told.clear();
            }
        });
        for (int i = 0; i < 5; ++i) {
            plugin.save();
            EXPECT_TRUE(plugin.load(state));
            for (const auto& info : parameters) {
                char text[64];
                plugin.params->value_to_text(plugin.get(), info.id, plugin.value(info.id), text,
                                             64);
            }
            plugin.latency();
        }
        isDone = true;
        audio.join();
    }
}

}  // namespace
}  // namespace quillworks::test
