// SPDX-License-Identifier: ISC
// A small VST3 host: loads the bundle as workstations do, and plays its plug-ins beside the effects
// they are made of.
#pragma once

#include "adapters/vst3/plugins.h"
#include "adapters/vst3/speakers.h"
#include "adapters/vst3/text.h"
#include "tests/clap/clap_under_test.h"
#include "tests/support/build_paths.h"
#include "tests/vst3/host_objects.h"

namespace quillworks::test {

/// The bundle's factory.
inline v3_plugin_factory_3** vst3Factory()
{
    static auto** const factory = [] {
        void* const file = dlopen(paths::vst3File.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!file) throw std::runtime_error(dlerror());
        const auto entry = reinterpret_cast<bool (*)(void*)>(dlsym(file, "ModuleEntry"));
        if (!entry(file)) throw std::runtime_error("the entry refuses");
        const auto get = reinterpret_cast<void* (*)()>(dlsym(file, "GetPluginFactory"));
        auto** const first = static_cast<v3_plugin_factory**>(get());
        void* third = nullptr;
        v3_cpp_obj_query_interface(first, v3_plugin_factory_3_iid,
                                   reinterpret_cast<v3_funknown***>(&third));
        return static_cast<v3_plugin_factory_3**>(third);
    }();
    return factory;
}

inline v3_speaker_arrangement placesNamed(const char* name)
{
    VNK::SpeakerArrangement layout;
    VNK::SpeakerArrangement::named(name, layout);
    return vst3::placesOf(layout).value();
}

/// A plug-in by the number of its class.
template <typename T> class Vst3UnderTest {
public:
    explicit Vst3UnderTest(std::size_t index) : effect_(catalogue().effects()[index])
    {
        void* object = nullptr;
        v3_cpp_obj(reinterpret_cast<v3_plugin_factory**>(vst3Factory()))
            ->create_instance(vst3Factory(), effect_.description->classId.bytes, v3_component_iid,
                              &object);
        if (!object) throw std::runtime_error("no " + effect_.fileName);
        component = static_cast<v3_component**>(object);
        EXPECT_EQ(v3_cpp_obj_initialize(component, nullptr), V3_OK);
        processor = as<v3_audio_processor>(v3_audio_processor_iid);
        controller = as<v3_edit_controller>(v3_edit_controller_iid);
        units = as<v3_unit_information>(v3_unit_information_iid);
        call(controller)
            ->set_component_handler(controller, reinterpret_cast<v3_component_handler**>(&handler));
    }
    ~Vst3UnderTest()
    {
        // In an order that not every host keeps to: still active, the component first.
        v3_cpp_obj_terminate(component);
        v3_cpp_obj_unref(component);
        v3_cpp_obj_unref(units);
        v3_cpp_obj_unref(controller);
        v3_cpp_obj_unref(processor);
    }
    Vst3UnderTest(const Vst3UnderTest&) = delete;

    template <class I> static I* call(I** object) { return v3_cpp_obj(object); }

    bool arrange(v3_speaker_arrangement in, v3_speaker_arrangement out)
    {
        v3_speaker_arrangement inputs[] = {in, V3_SPEAKER_L | V3_SPEAKER_R}, outputs[] = {out};
        const bool isSet =
            call(processor)->set_bus_arrangements(processor, inputs, effect_.hasSideChain ? 2 : 1,
                                                  outputs, 1) == V3_OK;
        if (isSet) input_ = *vst3::layoutOf(in), output_ = *vst3::layoutOf(out);
        return isSet;
    }
    Vst3UnderTest& activate(double rate = 48000, int maxFrames = kMaxFrames)
    {
        rate_ = rate;
        v3_process_setup setup{V3_REALTIME, sizeof(T) == 8 ? V3_SAMPLE_64 : V3_SAMPLE_32, maxFrames,
                               rate};
        EXPECT_EQ(call(processor)->setup_processing(processor, &setup), V3_OK);
        EXPECT_EQ(call(component)->activate_bus(component, V3_AUDIO, V3_INPUT, 1, !side.empty()),
                  effect_.hasSideChain ? V3_OK : V3_INVALID_ARG);
        EXPECT_EQ(call(component)->set_active(component, true), V3_OK);
        EXPECT_EQ(call(processor)->set_processing(processor, true), V3_OK);
        settle();
        return *this;
    }
    /// Waits for files and tables, as a host that renders does.
    void settle()
    {
        v3_process_data data{};
        data.process_mode = V3_OFFLINE;
        data.symbolic_sample_size = sizeof(T) == 8 ? V3_SAMPLE_64 : V3_SAMPLE_32;
        EXPECT_EQ(call(processor)->process(processor, &data), V3_OK);
    }
    void deactivate() { call(component)->set_active(component, false); }

    std::vector<v3_param_info> parameters()
    {
        std::vector<v3_param_info> all(
            std::size_t(call(controller)->get_parameter_count(controller)));
        for (std::size_t i = 0; i < all.size(); ++i)
            EXPECT_EQ(call(controller)->get_parameter_info(controller, int(i), &all[i]), V3_OK);
        return all;
    }
    double value(v3_param_id id)
    {
        return call(controller)->get_parameter_normalised(controller, id);
    }
    std::string text(v3_param_id id, double position)
    {
        v3_str_128 shown{};
        EXPECT_EQ(call(controller)->get_parameter_string_for_value(controller, id, position, shown),
                  V3_OK);
        return vst3::readText(shown);
    }
    std::string save()
    {
        Stream stream;
        stream.most = 1000;
        EXPECT_EQ(call(component)->get_state(component, stream.get()), V3_OK);
        return stream.bytes;
    }
    bool load(const std::string& bytes)
    {
        Stream stream;
        stream.bytes = bytes;
        stream.most = 1000;
        return call(component)->set_state(component, stream.get()) == V3_OK;
    }

    /// One block under the guard of the audio thread; frames at .. at + n of both.
    v3_result run(const Channels<T>& in, Channels<T>& out, int at, int n)
    {
        std::array<T*, VNK::kMaxChannels> pointers[3]{};
        const auto bus = [&](int b, auto& channels) {
            for (std::size_t c = 0; c < channels.size(); ++c)
                pointers[b][c] = const_cast<T*>(channels[c].data()) + at;
            v3_audio_bus_buffers buffers{std::int32_t(channels.size()), 0, {}};
            if constexpr (sizeof(T) == 8)
                buffers.channel_buffers_64 = pointers[b].data();
            else
                buffers.channel_buffers_32 = pointers[b].data();
            return buffers;
        };
        v3_audio_bus_buffers inputs[] = {bus(0, in), bus(1, side)}, outputs[] = {bus(2, out)};
        v3_process_data data{};
        data.symbolic_sample_size = sizeof(T) == 8 ? V3_SAMPLE_64 : V3_SAMPLE_32;
        data.nframes = n;
        data.num_input_buses = side.empty() ? 1 : 2;
        data.num_output_buses = 1;
        data.inputs = inputs;
        data.outputs = outputs;
        data.input_params = changes.get();
        data.output_params = told.get();
        data.ctx = context;
        v3_result result;
        {
            const AudioThreadGuard guard;
            result = call(processor)->process(processor, &data);
        }
        changes.queues.clear();
        return result;
    }
    Channels<T> play(const Channels<T>& in, int block = kMaxFrames)
    {
        const int frames = int(in.front().size());
        Channels<T> out(std::size_t(output_.channels), Signal<T>(in.front().size()));
        for (int at = 0; at < frames; at += block)
            EXPECT_EQ(run(in, out, at, std::min(block, frames - at)), V3_OK);
        return out;
    }
    /// The effect inside, prepared alike.
    EffectUnderTest<T> reference(int maxFrames = kMaxFrames)
    {
        EffectUnderTest<T> effect(effect_.description->name->text(), rate_);
        effect.layouts(input_, output_).prepare(input_.channels, maxFrames);
        return effect;
    }
    const adapters::OfferedEffect& effect() const { return effect_; }
    int latency() { return int(call(processor)->get_latency_samples(processor)); }

    v3_component** component = nullptr;
    v3_audio_processor** processor = nullptr;
    v3_edit_controller** controller = nullptr;
    v3_unit_information** units = nullptr;
    Handler handler;
    Changes changes, told;  // for the next block; from the plug-in
    v3_process_context* context = nullptr;
    Channels<T> side;

private:
    template <class I> I** as(const v3_tuid iid)
    {
        void* object = nullptr;
        EXPECT_EQ(
            v3_cpp_obj_query_interface(component, iid, reinterpret_cast<v3_funknown***>(&object)),
            V3_OK);
        return static_cast<I**>(object);
    }

    const adapters::OfferedEffect& effect_;
    VNK::SpeakerArrangement input_ = VNK::SpeakerArrangement::withChannels(2), output_ = input_;
    double rate_ = 48000;
};

}  // namespace quillworks::test
