// SPDX-License-Identifier: ISC
// The function that hosts call first for an editor, and the plain C functions they call after it.
#include <cstring>

#include "adapters/lv2/ui/plugin_editor.h"

namespace quillworks::lv2 {
namespace {

PluginEditor& at(LV2UI_Handle handle)
{
    return *static_cast<PluginEditor*>(handle);
}

LV2UI_Handle instantiate(const LV2UI_Descriptor*, const char* plugin, const char* bundle,
                         LV2UI_Write_Function write, LV2UI_Controller controller,
                         LV2UI_Widget* widget, const LV2_Feature* const* features)
{
    try {
        std::string folder = bundle;
        if (!folder.ends_with('/')) folder += '/';
        auto editor =
            PluginEditor::open(plugin, folder, {write, controller, UiFeatures::of(features)});
        if (!editor) return nullptr;
        *widget = reinterpret_cast<LV2UI_Widget>(static_cast<std::uintptr_t>(editor->window()));
        return editor.release();
    } catch (...) {  // a host takes null for "cannot be had"
        return nullptr;
    }
}

void portEvent(LV2UI_Handle handle, std::uint32_t port, std::uint32_t size, std::uint32_t format,
               const void* data)
{
    float value = 0;
    if (format != 0 || size != sizeof value) return;
    std::memcpy(&value, data, sizeof value);
    at(handle).portChanged(port, value);
}

/// Exceptions, which only a lack of memory throws, end here.
int idle(LV2UI_Handle handle)
{
    try {
        return at(handle).idle() ? 0 : 1;
    } catch (...) {
        return 1;
    }
}

int resize(LV2UI_Feature_Handle handle, int width, int height)
{
    try {
        at(handle).resize(width, height);
        return 0;
    } catch (...) {
        return 1;
    }
}

const void* extensionData(const char* uri)
{
    static constexpr LV2UI_Idle_Interface idling{idle};
    static constexpr LV2UI_Resize resizing{nullptr, resize};
    if (std::strcmp(uri, LV2_UI__idleInterface) == 0) return &idling;
    if (std::strcmp(uri, LV2_UI__resize) == 0) return &resizing;
    return nullptr;
}

constexpr LV2UI_Descriptor kEditor{
    "urn:quillworks:editor",
    instantiate,
    [](LV2UI_Handle handle) { delete &at(handle); },
    portEvent,
    extensionData,
};

}  // namespace
}  // namespace quillworks::lv2

LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(std::uint32_t index)
{
    return index == 0 ? &quillworks::lv2::kEditor : nullptr;
}
