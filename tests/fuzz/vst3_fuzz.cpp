// SPDX-License-Identifier: ISC
// What VST3 hosts hand to a plug-in: streams of stored states, and the value queues of a block.
// First a byte for the effect and one for which of them.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "adapters/vst3/instance.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/vst3/host_objects.h"

namespace quillworks::fuzz {
namespace {

using test::Changes;
using test::Stream;
using vst3::Instance;

std::string saved(Instance& plugin)
{
    Stream stream;
    require(plugin.getState(stream.get()) == V3_OK, "a state can be saved");
    return stream.bytes;
}

/// As the component's state, or as what the controller is shown of it.
bool load(Instance& plugin, std::string_view bytes, bool isShown = false)
{
    Stream stream;
    stream.bytes = bytes;
    return (isShown ? plugin.setComponentState(stream.get()) : plugin.setState(stream.get())) ==
           V3_OK;
}

void valuesAreInRange(Instance& plugin)
{
    v3_param_info info{};
    for (int i = 0; plugin.getParameterInfo(i, &info) == V3_OK; ++i) {
        const double position = plugin.getParameter(info.param_id);
        require(position >= 0 && position <= 1, "positions are in their range");
        v3_str_128 text{};
        plugin.getStringForValue(info.param_id, position, text);
    }
}

/// A block whose queues hold points of 16 bytes: a parameter, whether another ID takes its place,
/// the frame, and the position, whatever number that is.
void plays(Instance& plugin, std::string_view bytes)
{
    Changes changes, told;
    for (; bytes.size() >= 16 && changes.queues.size() < 100; bytes.remove_prefix(16)) {
        const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[i]); };
        v3_param_info info{};
        plugin.getParameterInfo(byte(0), &info);
        std::int32_t frame = 0;
        double position = 0;
        std::memcpy(&frame, bytes.data() + 4, sizeof frame);
        std::memcpy(&position, bytes.data() + 8, sizeof position);
        changes.set(byte(1) < 240 ? info.param_id : byte(1), position, frame);
    }
    float x[2][kFrames];
    for (auto& channel : x) std::fill_n(channel, kFrames, 0.5f);
    float* channels[] = {x[0], x[1]};
    v3_audio_bus_buffers in{2, 0, {}};
    in.channel_buffers_32 = channels;
    auto out = in;
    v3_process_data data{};
    data.symbolic_sample_size = V3_SAMPLE_32;
    data.nframes = kFrames;
    data.num_input_buses = data.num_output_buses = 1;
    data.inputs = &in;
    data.outputs = &out;
    data.input_params = changes.get();
    data.output_params = told.get();
    require(plugin.process(&data) == V3_OK, "a block is processed");
    for (const auto& channel : x)
        for (const float y : channel) require(std::isfinite(y), "the output is finite");
}

}  // namespace
}  // namespace quillworks::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks::fuzz;
    static const auto plugins = std::make_shared<const quillworks::vst3::Plugins>();
    static std::vector<std::unique_ptr<Instance>> instances(plugins->list().size());
    if (size < 2) return 0;
    const auto index = data[0] % instances.size();
    auto& plugin = instances[index];
    if (!plugin) {
        plugin = std::make_unique<Instance>(plugins, plugins->list()[index]);
        v3_process_setup setup{V3_REALTIME, V3_SAMPLE_32, kFrames, 8000};
        require(plugin->initialize(nullptr) == V3_OK && plugin->setupProcessing(&setup) == V3_OK &&
                    plugin->setActive(true) == V3_OK && plugin->setProcessing(true) == V3_OK,
                "a plug-in can be activated");
    }
    const auto bytes = textOf(data + 2, size - 2);
    const auto before = saved(*plugin);
    switch (data[1] % 3) {
    case 0:
        if (!load(*plugin, bytes)) require(saved(*plugin) == before, "a refusal changes nothing");
        plays(*plugin, {});
        break;
    case 1:
        plays(*plugin, bytes);
        break;
    default:
        load(*plugin, bytes, true);
        require(saved(*plugin) == before, "what the controller is shown changes no sound");
    }
    valuesAreInRange(*plugin);
    const auto after = saved(*plugin);
    require(load(*plugin, after) && saved(*plugin) == after, "a saved state comes back");
    return 0;
}
