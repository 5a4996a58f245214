// SPDX-License-Identifier: ISC
// The one symbol that hosts look for: how they find the plug-ins and make them.
#include <memory>
#include <mutex>
#include <string_view>

#include "adapters/clap/instance.h"

namespace quillworks::clap {
namespace {

/// Lives from the first init to the last deinit; hosts may call from any thread.
struct Library {
    std::mutex mutex;
    int users = 0;
    std::shared_ptr<const Plugins> plugins;
};

Library& library()
{
    static Library one;
    return one;
}

bool init(const char*)
{
    auto& it = library();
    const std::lock_guard lock(it.mutex);
    try {
        if (!it.plugins) it.plugins = std::make_shared<const Plugins>();
    } catch (...) {
        return false;
    }
    if (it.plugins->list().empty()) return it.plugins.reset(), false;
    ++it.users;
    return true;
}

void deinit()
{
    auto& it = library();
    const std::lock_guard lock(it.mutex);
    if (it.users > 0 && --it.users == 0) it.plugins.reset();
}

std::uint32_t count(const clap_plugin_factory_t*)
{
    const auto& plugins = library().plugins;
    return plugins ? static_cast<std::uint32_t>(plugins->list().size()) : 0;
}

const clap_plugin_descriptor_t* descriptor(const clap_plugin_factory_t* factory,
                                           std::uint32_t index)
{
    return index < count(factory) ? &library().plugins->list()[index].descriptor : nullptr;
}

const clap_plugin_t* create(const clap_plugin_factory_t*, const clap_host_t* host, const char* id)
{
    const auto& plugins = library().plugins;
    const auto* const plugin = plugins ? plugins->find(id) : nullptr;
    const bool isUnderstood = host && clap_version_is_compatible(host->clap_version);
    if (!plugin || !isUnderstood) return nullptr;
    try {
        return (new Instance(plugins, *plugin, host))->handle();
    } catch (...) {
        return nullptr;
    }
}

constexpr clap_plugin_factory_t kFactory{
    .get_plugin_count = count, .get_plugin_descriptor = descriptor, .create_plugin = create};

const void* factory(const char* id)
{
    return id && std::string_view(id) == CLAP_PLUGIN_FACTORY_ID ? &kFactory : nullptr;
}

}  // namespace
}  // namespace quillworks::clap

extern "C" CLAP_EXPORT const clap_plugin_entry_t clap_entry = {.clap_version = CLAP_VERSION,
                                                               .init = quillworks::clap::init,
                                                               .deinit = quillworks::clap::deinit,
                                                               .get_factory =
                                                                   quillworks::clap::factory};
