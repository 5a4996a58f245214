// SPDX-License-Identifier: ISC
// What the binary with the plug-ins offers the one with their editors. Both lie in one bundle and
// are built together; that they are is looked at before anything is called.
#pragma once

#include <cstdint>

#include <lv2/core/lv2.h>

#include "vnk/object.h"

namespace quillworks::lv2 {

/// Of the extension data that hold it.
inline constexpr const char* kEditorAccess = "urn:quillworks:editor-access";

/// [main thread]
struct EditorAccess {
    static constexpr std::uint32_t kVersion = 1;  // of this structure and of the interfaces

    std::uint32_t version;
    /// The component of a running plug-in, borrowed; null for whatever is none of this binary's.
    VNK::IObject* (*component)(LV2_Handle handle);
    /// A new effect of a plug-in in its layout, which the caller releases; null for an unknown URI.
    VNK::IObject* (*create)(const char* plugin);
    /// The control port of a parameter, and the other way; -1 without one.
    std::int32_t (*portOf)(const char* plugin, std::int32_t parameter);
    std::int32_t (*parameterOf)(const char* plugin, std::uint32_t port);
    /// Held while something calls the component: texts are set on the host's worker.
    void (*lock)(LV2_Handle handle);
    void (*unlock)(LV2_Handle handle);
};

}  // namespace quillworks::lv2
