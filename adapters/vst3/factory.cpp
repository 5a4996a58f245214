// SPDX-License-Identifier: ISC
#include "adapters/vst3/factory.h"

#include <algorithm>
#include <new>
#include <optional>

#include "adapters/vst3/instance.h"
#include "adapters/vst3/text.h"

namespace quillworks::vst3 {
namespace {

template <auto member> constexpr auto* call = &Call<member>::call;

const v3_plugin_factory_cpp kCalls{
    {call<&Factory::queryInterface>, call<&Factory::ref>, call<&Factory::unref>},
    {call<&Factory::getFactoryInfo>, call<&Factory::countClasses>, call<&Factory::getClassInfo>,
     call<&Factory::createInstance>},
    {call<&Factory::getClassInfo2>},
    {call<&Factory::getClassInfo3>, call<&Factory::setHostContext>}};

}  // namespace

Factory::Factory() : plugins_(std::make_shared<const Plugins>()), face_{&kCalls, this} {}

void* Factory::get() noexcept
{
    // Lives as long as the process: hosts ask for it, give it up and ask again.
    static Factory* const factory = []() noexcept -> Factory* {
        try {
            return new Factory;
        } catch (...) {
            return nullptr;
        }
    }();
    if (!factory || factory->plugins_->list().empty()) return nullptr;
    factory->ref();
    return &factory->face_;
}

v3_result Factory::queryInterface(const std::uint8_t* iid, void** object) noexcept
{
    if (!iid || !object) return V3_INVALID_ARG;
    *object = nullptr;
    for (const auto* known :
         {v3_funknown_iid, v3_plugin_factory_iid, v3_plugin_factory_2_iid, v3_plugin_factory_3_iid})
        if (v3_tuid_match(known, iid)) {
            *object = &face_;
            ref();
            return V3_OK;
        }
    return V3_NO_INTERFACE;
}

std::uint32_t Factory::ref() noexcept
{
    return references_.fetch_add(1, std::memory_order_relaxed) + 1;
}

std::uint32_t Factory::unref() noexcept
{
    return references_.fetch_sub(1, std::memory_order_relaxed) - 1;
}

const Plugin* Factory::at(std::int32_t index) const noexcept
{
    const auto& list = plugins_->list();
    const bool isThere = index >= 0 && index < static_cast<std::int32_t>(list.size());
    return isThere ? &list[static_cast<std::size_t>(index)] : nullptr;
}

v3_result Factory::getFactoryInfo(v3_factory_info* info) noexcept
{
    if (!info) return V3_INVALID_ARG;
    const auto& module = plugins_->catalogue().factory().moduleInformation();
    *info = {};
    writeText(info->vendor, module.vendor);
    writeText(info->url, module.webAddress);
    info->flags = kUnicode;
    return V3_OK;
}

std::int32_t Factory::countClasses() noexcept
{
    return static_cast<std::int32_t>(plugins_->list().size());
}

/// What all three forms have.
template <class Info> void Factory::describe(const Plugin& plugin, Info& info) const noexcept
{
    info = {};
    std::copy_n(plugin.id(), sizeof(v3_tuid), info.class_id);
    info.cardinality = kManyInstances;
    writeText(info.category, kAudioClass);
    writeText(info.name, plugin.title);
    if constexpr (!std::is_same_v<Info, v3_class_info>) {
        const auto& module = plugins_->catalogue().factory().moduleInformation();
        writeText(info.sub_categories, plugin.categories);
        writeText(info.vendor, module.vendor);
        writeText(info.version, module.version);
        writeText(info.sdk_version, kFormatVersion);
    }
}

v3_result Factory::getClassInfo(std::int32_t index, v3_class_info* info) noexcept
{
    const auto* const plugin = at(index);
    if (!plugin || !info) return V3_INVALID_ARG;
    describe(*plugin, *info);
    return V3_OK;
}

v3_result Factory::getClassInfo2(std::int32_t index, v3_class_info_2* info) noexcept
{
    const auto* const plugin = at(index);
    if (!plugin || !info) return V3_INVALID_ARG;
    describe(*plugin, *info);
    return V3_OK;
}

v3_result Factory::getClassInfo3(std::int32_t index, v3_class_info_3* info) noexcept
{
    const auto* const plugin = at(index);
    if (!plugin || !info) return V3_INVALID_ARG;
    describe(*plugin, *info);
    return V3_OK;
}

v3_result Factory::setHostContext(v3_funknown**) noexcept
{
    return V3_OK;
}

v3_result Factory::createInstance(const std::uint8_t* id, const std::uint8_t* iid,
                                  void** object) noexcept
{
    if (!object) return V3_INVALID_ARG;
    *object = nullptr;
    const auto* const plugin = plugins_->find(id);
    if (!plugin) return V3_NO_INTERFACE;
    try {
        auto* const instance = new Instance(plugins_, *plugin);
        const auto result = instance->queryInterface(iid, object);
        instance->unref();
        return result;
    } catch (...) {
        return V3_NOMEM;
    }
}

}  // namespace quillworks::vst3
