// SPDX-License-Identifier: ISC
// What a host hands an editor of a plug-in: its own functions, and the way to the effect.
#pragma once

#include <cstdint>
#include <string>

#include <lv2/core/lv2.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>

#include "adapters/lv2/editor_access.h"

namespace quillworks::lv2 {

/// The features of the host that an editor knows; null or 0 where it lacks one.
struct UiFeatures {
    LV2_URID_Map* map = nullptr;
    std::uint32_t parent = 0;  // window
    const LV2UI_Resize* resize = nullptr;
    const LV2UI_Touch* touch = nullptr;
    LV2_Handle instance = nullptr;
    double scale = 0;

    static UiFeatures of(const LV2_Feature* const* features);
};

/// The functions of the binary with the plug-ins in this bundle; null where it is not there or of
/// another version.
const EditorAccess* findAccess(const std::string& bundle);

}  // namespace quillworks::lv2
