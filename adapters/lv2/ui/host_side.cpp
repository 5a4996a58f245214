// SPDX-License-Identifier: ISC
#include "adapters/lv2/ui/host_side.h"

#include <dlfcn.h>

#include <cstring>

#include <lv2/atom/atom.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/options/options.h>

namespace quillworks::lv2 {

UiFeatures UiFeatures::of(const LV2_Feature* const* features)
{
    UiFeatures found;
    const LV2_Options_Option* options = nullptr;
    for (; features && *features; ++features) {
        const auto is = [&](const char* uri) { return !std::strcmp((*features)->URI, uri); };
        void* const data = (*features)->data;
        if (is(LV2_URID__map)) found.map = static_cast<LV2_URID_Map*>(data);
        if (is(LV2_UI__parent))
            found.parent = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(data));
        if (is(LV2_UI__resize)) found.resize = static_cast<const LV2UI_Resize*>(data);
        if (is(LV2_UI__touch)) found.touch = static_cast<const LV2UI_Touch*>(data);
        if (is(LV2_INSTANCE_ACCESS_URI)) found.instance = data;
        if (is(LV2_OPTIONS__options)) options = static_cast<const LV2_Options_Option*>(data);
    }
    if (!found.map || !options) return found;
    const auto id = [&](const char* uri) { return found.map->map(found.map->handle, uri); };
    for (; options->key; ++options)
        if (options->key == id(LV2_UI__scaleFactor) && options->type == id(LV2_ATOM__Float) &&
            options->size == sizeof(float))
            found.scale = double(*static_cast<const float*>(options->value));
    return found;
}

const EditorAccess* findAccess(const std::string& bundle)
{
    // Where the host has it loaded, as it has with a plug-in that runs, this is the same one; it
    // stays for as long as the process does.
    void* const binary = dlopen((bundle + "quillworks.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!binary) return nullptr;
    const auto descriptorAt =
        reinterpret_cast<const LV2_Descriptor* (*)(std::uint32_t)>(dlsym(binary, "lv2_descriptor"));
    const auto* const first = descriptorAt ? descriptorAt(0) : nullptr;
    const auto* const access =
        first ? static_cast<const EditorAccess*>(first->extension_data(kEditorAccess)) : nullptr;
    return access && access->version == EditorAccess::kVersion ? access : nullptr;
}

}  // namespace quillworks::lv2
