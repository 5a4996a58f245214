// SPDX-License-Identifier: ISC
// The one function that hosts call first, and the plain C functions they call after it.
#include <cstring>
#include <deque>
#include <exception>

#include "adapters/lv2/instance.h"

namespace quillworks::lv2 {
namespace {

Instance* at(LV2_Handle handle)
{
    return static_cast<Instance*>(handle);
}

/// The plug-ins with a descriptor each; lives as long as the binary is loaded.
struct Library {
    Catalogue catalogue;
    std::deque<LV2_Descriptor> descriptors;

    Library();
};

Library* library() noexcept
{
    try {
        static Library one;
        return &one;
    } catch (...) {  // no memory: no plug-ins
        return nullptr;
    }
}

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double sampleRate, const char*,
                       const LV2_Feature* const* features)
{
    try {
        const auto& catalogue = library()->catalogue;
        for (const auto& plugin : catalogue.plugins())
            if (plugin.uri == descriptor->URI)
                return new Instance(catalogue.create(plugin), plugin, sampleRate, features);
    } catch (...) {  // a host takes null for "cannot be had"
    }
    return nullptr;
}

LV2_State_Status save(LV2_Handle handle, LV2_State_Store_Function store, LV2_State_Handle state,
                      std::uint32_t, const LV2_Feature* const* features)
{
    try {
        return at(handle)->save(store, state, features);
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

LV2_State_Status restore(LV2_Handle handle, LV2_State_Retrieve_Function retrieve,
                         LV2_State_Handle state, std::uint32_t, const LV2_Feature* const* features)
{
    try {
        return at(handle)->restore(retrieve, state, features);
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

LV2_Worker_Status work(LV2_Handle handle, LV2_Worker_Respond_Function respond,
                       LV2_Worker_Respond_Handle host, std::uint32_t size, const void* data)
{
    try {
        at(handle)->texts().work(respond, host, data, size);
        return LV2_WORKER_SUCCESS;
    } catch (...) {
        return LV2_WORKER_ERR_UNKNOWN;
    }
}

LV2_Worker_Status workResponse(LV2_Handle handle, std::uint32_t size, const void* data)
{
    at(handle)->texts().take(data, size);
    return LV2_WORKER_SUCCESS;
}

const void* extensionData(const char* uri)
{
    static constexpr LV2_State_Interface state{save, restore};
    static constexpr LV2_Worker_Interface worker{work, workResponse, nullptr};
    if (std::strcmp(uri, LV2_STATE__interface) == 0) return &state;
    if (std::strcmp(uri, LV2_WORKER__interface) == 0) return &worker;
    return nullptr;
}

Library::Library()
{
    for (const auto& plugin : catalogue.plugins())
        descriptors.push_back(
            {plugin.uri.c_str(), instantiate,
             [](LV2_Handle h, std::uint32_t port, void* data) { at(h)->connect(port, data); },
             [](LV2_Handle h) { at(h)->activate(); },
             [](LV2_Handle h, std::uint32_t frames) { at(h)->run(frames); },
             nullptr,  // deactivate: activate starts afresh
             [](LV2_Handle h) { delete at(h); }, extensionData});
}

}  // namespace
}  // namespace quillworks::lv2

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    const auto* library = quillworks::lv2::library();
    return library && index < library->descriptors.size() ? &library->descriptors[index] : nullptr;
}
