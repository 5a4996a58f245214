// SPDX-License-Identifier: ISC
// The one function that hosts call first, and the plain C functions they call after it.
#include <algorithm>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <set>

#include "adapters/lv2/editor_access.h"
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

/// Those that run: editors come with handles from hosts, which may hand out their own instead.
struct Running {
    std::mutex mutex;
    std::set<const void*> all;
};

Running& running()
{
    static Running one;
    return one;
}

const Plugin* find(const char* uri)
{
    const auto* const known = library();
    if (!known || !uri) return nullptr;
    const auto& all = known->catalogue.plugins();
    const auto at =
        std::find_if(all.begin(), all.end(), [&](const auto& plugin) { return plugin.uri == uri; });
    return at == all.end() ? nullptr : &*at;
}

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double sampleRate, const char*,
                       const LV2_Feature* const* features)
{
    try {
        const auto* const plugin = find(descriptor->URI);
        if (!plugin) return nullptr;
        auto instance = std::make_unique<Instance>(library()->catalogue.create(*plugin), *plugin,
                                                   sampleRate, features);
        const std::lock_guard lock(running().mutex);
        running().all.insert(instance.get());
        return instance.release();
    } catch (...) {  // a host takes null for "cannot be had"
    }
    return nullptr;
}

void cleanup(LV2_Handle handle)
{
    {
        const std::lock_guard lock(running().mutex);
        running().all.erase(handle);
    }
    delete at(handle);
}

// For editors.

bool isRunning(LV2_Handle handle)
{
    const std::lock_guard lock(running().mutex);
    return running().all.contains(handle);
}

VNK::IObject* componentOf(LV2_Handle handle)
{
    if (!isRunning(handle)) return nullptr;
    // It lives as long as the instance, which the host keeps longer than the editor.
    return at(handle)->effect().queryInterface<VNK::IEffectComponent>().get();
}

VNK::IObject* create(const char* uri)
{
    try {
        const auto* const plugin = find(uri);
        if (!plugin) return nullptr;
        const auto effect = library()->catalogue.create(*plugin);
        return effect ? effect.queryInterface<VNK::IEffectComponent>().detach() : nullptr;
    } catch (...) {
        return nullptr;
    }
}

std::int32_t portOf(const char* uri, std::int32_t parameter)
{
    const auto* const plugin = find(uri);
    if (!plugin) return -1;
    const auto at = std::find_if(plugin->ports.begin(), plugin->ports.end(), [&](const Port& port) {
        return port.role == Port::Role::Parameter && port.index == parameter;
    });
    return at == plugin->ports.end() ? -1 : static_cast<std::int32_t>(at - plugin->ports.begin());
}

std::int32_t parameterOf(const char* uri, std::uint32_t port)
{
    const auto* const plugin = find(uri);
    const bool isOne =
        plugin && port < plugin->ports.size() && plugin->ports[port].role == Port::Role::Parameter;
    return isOne ? plugin->ports[port].index : -1;
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
    static constexpr EditorAccess editors{EditorAccess::kVersion,
                                          componentOf,
                                          create,
                                          portOf,
                                          parameterOf,
                                          [](LV2_Handle handle) {
                                              if (isRunning(handle))
                                                  at(handle)->texts().mutex().lock();
                                          },
                                          [](LV2_Handle handle) {
                                              if (isRunning(handle))
                                                  at(handle)->texts().mutex().unlock();
                                          }};
    if (std::strcmp(uri, LV2_WORKER__interface) == 0) return &worker;
    if (std::strcmp(uri, kEditorAccess) == 0) return &editors;
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
             cleanup, extensionData});
}

}  // namespace
}  // namespace quillworks::lv2

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    const auto* library = quillworks::lv2::library();
    return library && index < library->descriptors.size() ? &library->descriptors[index] : nullptr;
}
