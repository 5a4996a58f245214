// SPDX-License-Identifier: ISC
// What CLAP hosts hand to a plug-in: the stream of a stored state, or the events of some blocks.
// First a byte for the effect and one for which of the two.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "adapters/clap/instance.h"
#include "tests/fuzz/fuzz_target.h"

namespace quillworks::fuzz {
namespace {

using clap::Instance;

std::string saved(Instance& plugin)
{
    std::string bytes;
    const clap_ostream_t stream{&bytes, [](const auto* s, const void* data, std::uint64_t size) {
                                    static_cast<std::string*>(s->ctx)->append(
                                        static_cast<const char*>(data), size);
                                    return std::int64_t(size);
                                }};
    require(plugin.save(stream), "a state can be saved");
    return bytes;
}

bool load(Instance& plugin, std::string_view bytes)
{
    const clap_istream_t stream{&bytes, [](const auto* s, void* data, std::uint64_t size) {
                                    auto& left = *static_cast<std::string_view*>(s->ctx);
                                    size = std::min<std::uint64_t>(size, left.size());
                                    std::memcpy(data, left.data(), size);
                                    left.remove_prefix(size);
                                    return std::int64_t(size);
                                }};
    return plugin.load(stream);
}

void valuesAreInRange(Instance& plugin)
{
    clap_param_info_t info;
    for (std::uint32_t i = 0; plugin.getParameter(i, info); ++i) {
        double value = 0;
        require(plugin.getValue(info.id, value), "a parameter has a value");
        require(value >= info.min_value && value <= info.max_value, "values are in their ranges");
        char text[32];
        plugin.valueToText(info.id, value, text, sizeof text);
    }
}

/// Events of 20 bytes: size, time, space, type, and a value of the parameter that a byte names, or
/// whatever other types find in the last 12. Each lies in memory of its own size, so that a byte
/// read beyond it is seen.
class EventList {
public:
    EventList(Instance& plugin, std::string_view bytes)
    {
        for (; bytes.size() >= 20; bytes.remove_prefix(20)) {
            clap_event_param_value_t event{};
            const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[i]); };
            event.header = {std::max<std::uint32_t>(byte(0), sizeof event.header), byte(1),
                            static_cast<std::uint16_t>(byte(2) / 128), byte(3), 0};
            clap_param_info_t info{};
            plugin.getParameter(byte(4), info);
            event.param_id = info.id;
            std::memcpy(&event.value, bytes.data() + 8, sizeof event.value);
            auto& copy = events_.emplace_back(std::make_unique<char[]>(event.header.size));
            std::memcpy(copy.get(), &event, std::min<std::size_t>(event.header.size, sizeof event));
        }
    }
    clap_input_events_t list() const
    {
        return {const_cast<EventList*>(this),
                [](const auto* l) { return std::uint32_t(of(l).events_.size()); },
                [](const auto* l, std::uint32_t i) {
                    return reinterpret_cast<const clap_event_header_t*>(of(l).events_[i].get());
                }};
    }

private:
    static const EventList& of(const clap_input_events_t* l)
    {
        return *static_cast<const EventList*>(l->ctx);
    }
    std::vector<std::unique_ptr<char[]>> events_;
};

void plays(Instance& plugin, std::string_view bytes)
{
    float x[2][kFrames];
    for (auto& channel : x) std::fill_n(channel, kFrames, 0.5f);
    float* channels[] = {x[0], x[1]};
    clap_audio_buffer_t buffer{channels, nullptr, 2, 0, 0};
    const EventList events(plugin, bytes);
    const auto list = events.list();
    const clap_process_t process{-1, kFrames, nullptr, &buffer, &buffer, 1, 1, &list, nullptr};
    plugin.reset();
    require(plugin.process(process) != CLAP_PROCESS_ERROR, "a block is processed");
    for (const auto& channel : x)
        for (const float y : channel) require(std::isfinite(y), "the output is finite");
}

}  // namespace
}  // namespace quillworks::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks::fuzz;
    static const auto plugins = std::make_shared<const quillworks::clap::Plugins>();
    static std::vector<std::unique_ptr<Instance>> instances(plugins->list().size());
    if (size < 2) return 0;
    auto& plugin = instances[data[0] % instances.size()];
    if (!plugin) {
        plugin = std::make_unique<Instance>(plugins, plugins->list()[data[0] % instances.size()],
                                            nullptr);
        require(plugin->init() && plugin->activate(8000, kFrames), "a plug-in can be activated");
    }
    const auto bytes = textOf(data + 2, size - 2);
    const auto before = saved(*plugin);
    if (data[1] % 2 != 0)
        plays(*plugin, bytes);
    else if (!load(*plugin, bytes))
        require(saved(*plugin) == before, "a refusal changes nothing");
    else
        plays(*plugin, {});
    valuesAreInRange(*plugin);
    const auto after = saved(*plugin);
    require(load(*plugin, after) && saved(*plugin) == after, "a saved state comes back");
    return 0;
}
