// SPDX-License-Identifier: ISC
// A small CLAP host: loads the file as workstations do, and plays its plug-ins beside the effects
// they are made of.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <dlfcn.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "adapters/clap/abi.h"
#include "adapters/common/catalogue.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/build_paths.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/signals.h"

namespace quillworks::test {

inline constexpr int kMaxFrames = 512;  // that plug-ins are prepared for

/// The file's factory.
inline const clap_plugin_factory_t& clapFactory()
{
    static const auto* const factory = [] {
        void* const file = dlopen(paths::clapFile.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!file) throw std::runtime_error(dlerror());
        const auto* entry = static_cast<const clap_plugin_entry_t*>(dlsym(file, "clap_entry"));
        if (!entry->init(paths::clapFile.c_str())) throw std::runtime_error("the entry refuses");
        return static_cast<const clap_plugin_factory_t*>(
            entry->get_factory(CLAP_PLUGIN_FACTORY_ID));
    }();
    return *factory;
}

inline const adapters::Catalogue& catalogue()
{
    static const adapters::Catalogue one;
    return one;
}

/// Events in the order in which they were added.
class Events {
public:
    Events()
    {
        in_ = {this, [](const auto* list) { return std::uint32_t(self(list).all_.size()); },
               [](const auto* list, std::uint32_t i) { return &self(list).all_[i].header; }};
        out_ = {this, [](const auto* list, const clap_event_header_t* event) {
                    Events& it = *static_cast<Events*>(list->ctx);
                    if (it.all_.size() == it.all_.capacity()) return false;
                    std::memcpy(static_cast<void*>(&it.all_.emplace_back()), event,
                                std::min<std::size_t>(event->size, sizeof(Event)));
                    return true;
                }};
        all_.reserve(4096);
    }
    Events(const Events&) = delete;

    union Event {
        clap_event_header_t header;
        clap_event_param_value_t value;
        clap_event_param_gesture_t gesture;
        clap_event_transport_t transport;
    };
    Events& set(clap_id id, double value, int frame = 0)
    {
        Event event{};
        event.value = {};
        event.value.header = {sizeof event.value, std::uint32_t(frame), 0, CLAP_EVENT_PARAM_VALUE,
                              0};
        event.value.param_id = id;
        event.value.note_id = event.value.port_index = event.value.channel = event.value.key = -1;
        event.value.value = value;
        return add(event);
    }
    Events& add(const Event& event) { return all_.push_back(event), *this; }
    void clear() { all_.clear(); }
    const std::vector<Event>& all() const { return all_; }
    const clap_input_events_t* in() const { return &in_; }
    const clap_output_events_t* out() const { return &out_; }

private:
    static const Events& self(const clap_input_events_t* list)
    {
        return *static_cast<const Events*>(list->ctx);
    }
    std::vector<Event> all_;
    clap_input_events_t in_;
    clap_output_events_t out_;
};

/// What the plug-in asks of its host, counted.
struct ClapHost {
    clap_host_t host{};
    std::thread::id mainThread = std::this_thread::get_id();
    std::atomic<bool> isAudioAnywhere{true};  // else no thread is one
    std::atomic<int> restarts{0}, flushes{0}, rescans{0}, latencies{0}, tails{0}, complaints{0},
        dirt{0};

    ClapHost()
    {
        host = {CLAP_VERSION,
                this,
                "test",
                "",
                "",
                "1",
                extension,
                [](const clap_host_t* h) { ++of(h).restarts; },
                [](const clap_host_t*) {},
                [](const clap_host_t*) {}};
    }
    static ClapHost& of(const clap_host_t* h) { return *static_cast<ClapHost*>(h->host_data); }
    static const void* extension(const clap_host_t*, const char* id)
    {
        static constexpr clap_host_thread_check_t threads{
            [](const clap_host_t* h) { return std::this_thread::get_id() == of(h).mainThread; },
            [](const clap_host_t* h) { return of(h).isAudioAnywhere.load(); }};
        static constexpr clap_host_params_t params{
            [](const clap_host_t* h, clap_param_rescan_flags) { ++of(h).rescans; },
            [](const clap_host_t*, clap_id, clap_param_clear_flags) {},
            [](const clap_host_t* h) { ++of(h).flushes; }};
        static constexpr clap_host_latency_t latency{
            [](const clap_host_t* h) { ++of(h).latencies; }};
        static constexpr clap::HostTail tail{[](const clap_host_t* h) { ++of(h).tails; }};
        static constexpr clap::HostLog log{
            [](const clap_host_t* h, std::int32_t, const char*) { ++of(h).complaints; }};
        static constexpr clap_host_state_t state{[](const clap_host_t* h) { ++of(h).dirt; }};
        const std::string name = id;
        if (name == CLAP_EXT_STATE) return &state;
        if (name == CLAP_EXT_THREAD_CHECK) return &threads;
        if (name == CLAP_EXT_PARAMS) return &params;
        if (name == CLAP_EXT_LATENCY) return &latency;
        if (name == clap::kTailExtension) return &tail;
        return name == clap::kLogExtension ? &log : nullptr;
    }
};

class ClapUnderTest {
public:
    /// Active and ready to process, in a layout of the effect; at a rate of 0 not active.
    explicit ClapUnderTest(const adapters::OfferedEffect& effect, std::size_t layout = 0,
                           double sampleRate = 48000)
        : effect_(effect), layout_(effect.layouts[layout]), rate_(sampleRate)
    {
        const auto id = "example.quillworks." + effect.fileName;
        plugin_ = clapFactory().create_plugin(&clapFactory(), &host.host, id.c_str());
        if (!plugin_ || !plugin_->init(plugin_)) throw std::runtime_error("no " + id);
        params = extension<clap_plugin_params_t>(CLAP_EXT_PARAMS);
        configs = extension<clap::PluginAudioPortsConfig>(clap::kAudioPortsConfigExtension);
        EXPECT_TRUE(configs->select(plugin_, clap_id(layout)));
        if (rate_ > 0) activate();
    }
    ~ClapUnderTest() { plugin_->destroy(plugin_); }
    ClapUnderTest(const ClapUnderTest&) = delete;

    template <class E> const E* extension(const char* id) const
    {
        return static_cast<const E*>(plugin_->get_extension(plugin_, id));
    }
    ClapUnderTest& activate(int maxFrames = kMaxFrames)
    {
        EXPECT_TRUE(plugin_->activate(plugin_, rate_, 1, std::uint32_t(maxFrames)));
        EXPECT_TRUE(plugin_->start_processing(plugin_));
        return *this;
    }
    void deactivate()
    {
        plugin_->stop_processing(plugin_);
        plugin_->deactivate(plugin_);
    }
    const clap_plugin_t* operator->() const { return plugin_; }
    const clap_plugin_t* get() const { return plugin_; }

    std::vector<clap_param_info_t> parameters() const
    {
        std::vector<clap_param_info_t> all(params->count(plugin_));
        for (std::uint32_t i = 0; i < all.size(); ++i)
            EXPECT_TRUE(params->get_info(plugin_, i, &all[i]));
        return all;
    }
    bool isMeter(clap_id id) const
    {
        for (const auto& info : parameters())
            if (info.id == id) return (info.flags & CLAP_PARAM_IS_READONLY) != 0;
        return false;
    }
    double value(clap_id id) const
    {
        double v = NAN;
        EXPECT_TRUE(params->get_value(plugin_, id, &v));
        return v;
    }
    std::string text(clap_id id, double value) const
    {
        char s[CLAP_NAME_SIZE] = "";
        EXPECT_TRUE(params->value_to_text(plugin_, id, value, s, sizeof s));
        EXPECT_NE(s[0], 0);
        return s;
    }
    int latency() const
    {
        return int(extension<clap_plugin_latency_t>(CLAP_EXT_LATENCY)->get(plugin_));
    }
    std::string save(std::size_t most = SIZE_MAX) const
    {
        struct Stream {
            std::string bytes;
            std::size_t most;
        } stream{{}, most};
        const clap_ostream_t out{&stream, [](const auto* s, const void* data, std::uint64_t size) {
                                     auto& to = *static_cast<Stream*>(s->ctx);
                                     size = std::min<std::uint64_t>(size, to.most);
                                     to.bytes.append(static_cast<const char*>(data), size);
                                     return std::int64_t(size);
                                 }};
        EXPECT_TRUE(state()->save(plugin_, &out));
        return stream.bytes;
    }
    bool load(std::string bytes, std::size_t most = SIZE_MAX)
    {
        struct Stream {
            std::string bytes;
            std::size_t most;
        } stream{std::move(bytes), most};
        const clap_istream_t in{
            &stream, [](const auto* s, void* data, std::uint64_t size) {
                auto& from = *static_cast<Stream*>(s->ctx);
                size = std::min({size, std::uint64_t(from.bytes.size()), std::uint64_t(from.most)});
                std::copy_n(from.bytes.data(), size, static_cast<char*>(data));
                from.bytes.erase(0, size);
                return std::int64_t(size);
            }};
        return state()->load(plugin_, &in);
    }

    /// One block under the guard of the audio thread; frames at .. at + n of both. Without a side
    /// the host passes one input port only.
    clap_process_status run(const Channels<float>& in, Channels<float>& out, int at, int n)
    {
        const auto pointers = [at](auto& channels) {
            std::vector<float*> all;
            for (auto& c : channels) all.push_back(const_cast<float*>(c.data()) + at);
            return all;
        };
        auto i = pointers(in), o = pointers(out), s = pointers(side);
        clap_audio_buffer_t inputs[2] = {{i.data(), nullptr, std::uint32_t(i.size()), 0, 0},
                                         {s.data(), nullptr, std::uint32_t(s.size()), 0, 0}};
        clap_audio_buffer_t output{o.data(), nullptr, std::uint32_t(o.size()), 0, 0};
        const clap_process_t process{-1,     std::uint32_t(n), transport,
                                     inputs, &output,          side.empty() ? 1u : 2u,
                                     1,      events.in(),      told.out()};
        clap_process_status status;
        {
            const AudioThreadGuard guard;
            status = plugin_->process(plugin_, &process);
        }
        events.clear();
        return status;
    }
    Channels<float> play(const Channels<float>& in, int block = kMaxFrames)
    {
        const auto frames = static_cast<int>(in.front().size());
        Channels<float> out(std::size_t(layout_.output.channels), Signal<float>(in.front().size()));
        for (int at = 0; at < frames; at += block)
            EXPECT_NE(run(in, out, at, std::min(block, frames - at)), CLAP_PROCESS_ERROR);
        return out;
    }
    /// The effect inside, prepared alike.
    EffectUnderTest<float> reference(int maxFrames = kMaxFrames) const
    {
        EffectUnderTest<float> effect(effect_.description->name->text(), rate_);
        effect.layouts(layout_.input, layout_.output).prepare(layout_.input.channels, maxFrames);
        return effect;
    }
    const adapters::Layout& layout() const { return layout_; }

    ClapHost host;
    Events events, told;  // for the next block; from the plug-in
    const clap_event_transport_t* transport = nullptr;
    Channels<float> side;
    const clap_plugin_params_t* params = nullptr;
    const clap::PluginAudioPortsConfig* configs = nullptr;

private:
    const clap_plugin_state_t* state() const
    {
        return extension<clap_plugin_state_t>(CLAP_EXT_STATE);
    }

    const adapters::OfferedEffect& effect_;
    const adapters::Layout& layout_;
    double rate_;
    const clap_plugin_t* plugin_ = nullptr;
};

inline Channels<float> noiseChannels(int channels, std::size_t frames, std::uint32_t seed = kSeed)
{
    Channels<float> x;
    for (int c = 0; c < channels; ++c)
        x.push_back(noise<float>(frames, seed + static_cast<std::uint32_t>(c)));
    return x;
}

}  // namespace quillworks::test
