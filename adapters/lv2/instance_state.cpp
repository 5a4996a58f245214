// SPDX-License-Identifier: ISC
// What a song holds of a plug-in: the component's chunk, and the port values that go with it.
#include <charconv>
#include <map>
#include <mutex>
#include <string_view>

#include "adapters/lv2/instance.h"
#include "vnk/buffer.h"

namespace quillworks::lv2 {
namespace {

constexpr std::uint32_t kFlags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;

/// "threshold=-20 ratio=4": independent of the order of ports and of the locale.
std::map<std::string, float, std::less<>> parsed(std::string_view text)
{
    std::map<std::string, float, std::less<>> values;
    while (!text.empty()) {
        const auto word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        const auto equals = word.find('=');
        if (equals == word.npos) continue;
        float value = 0;
        const auto* end = word.data() + word.size();
        if (std::from_chars(word.data() + equals + 1, end, value).ec == std::errc())
            values[std::string(word.substr(0, equals))] = value;
    }
    return values;
}

}  // namespace

LV2_State_Status Instance::save(LV2_State_Store_Function store, LV2_State_Handle handle,
                                const LV2_Feature* const* features)
{
    if (!map_) return LV2_STATE_ERR_NO_FEATURE;
    const std::lock_guard lock(texts_.mutex());
    const auto id = [&](const char* uri) { return map_->map(map_->handle, uri); };
    VNK::StringSink chunk;
    if (!effect_->saveState(chunk)) return LV2_STATE_ERR_UNKNOWN;
    // Paths within it are of this machine.
    const std::uint32_t flags = texts_.areThere() ? std::uint32_t{LV2_STATE_IS_POD} : kFlags;
    auto status = store(handle, id(kStateChunk), chunk.text().data(), chunk.text().size(),
                        id(LV2_ATOM__Chunk), flags);
    if (status != LV2_STATE_SUCCESS) return status;
    status = texts_.save(store, handle, features);
    if (status != LV2_STATE_SUCCESS) return status;

    std::string ports;
    for (std::size_t i = 0; i < plugin_.ports.size(); ++i) {
        if (plugin_.ports[i].role != Port::Role::Parameter) continue;
        const float seen = seenOf(plugin_.place[i]).load(std::memory_order_relaxed);
        char number[32];
        const auto end = std::to_chars(number, number + sizeof number, seen).ptr;
        ports += plugin_.ports[i].symbol + "=" + std::string(number, end) + " ";
    }
    return store(handle, id(kStatePorts), ports.c_str(), ports.size() + 1, id(LV2_ATOM__String),
                 kFlags);
}

LV2_State_Status Instance::restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                                   const LV2_Feature* const* features)
{
    if (!map_) return LV2_STATE_ERR_NO_FEATURE;
    const std::lock_guard lock(texts_.mutex());
    const auto id = [&](const char* uri) { return map_->map(map_->handle, uri); };
    std::size_t size = 0;
    std::uint32_t type = 0, flags = 0;
    const void* chunk = retrieve(handle, id(kStateChunk), &size, &type, &flags);
    if (!chunk) return LV2_STATE_ERR_NO_PROPERTY;
    if (type != id(LV2_ATOM__Chunk)) return LV2_STATE_ERR_BAD_TYPE;
    if (!effect_->loadState(chunk, size)) return LV2_STATE_ERR_UNKNOWN;
    texts_.restore(retrieve, handle, features);

    // The ports get back the values they had, which then are nothing new: where one parameter has
    // moved another, it is the chunk that knows.
    const void* ports = retrieve(handle, id(kStatePorts), &size, &type, &flags);
    if (!ports || type != id(LV2_ATOM__String) || size == 0) return LV2_STATE_SUCCESS;
    const auto* text = static_cast<const char*>(ports);
    const auto values = parsed(std::string_view(text, size - 1));
    for (std::size_t i = 0; i < plugin_.ports.size(); ++i) {
        if (plugin_.ports[i].role != Port::Role::Parameter) continue;
        const auto found = values.find(plugin_.ports[i].symbol);
        if (found != values.end())
            seenOf(plugin_.place[i]).store(found->second, std::memory_order_relaxed);
    }
    return LV2_STATE_SUCCESS;
}

}  // namespace quillworks::lv2
