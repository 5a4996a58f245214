// SPDX-License-Identifier: ISC
// The five strings and the id of the module.
#pragma once

#include "vnk/class_factory.h"

namespace quillworks {

inline constexpr const char* kModuleId = "quillworks";

inline constexpr VNK::ModuleInformation kModuleInformation{
    .title = "Quillworks Pack",
    .version = QUILLWORKS_VERSION,  // of the project in CMakeLists.txt
    .vendor = "Quillworks Audio",
    .legalNotice = "Copyright (c) Quillworks Audio. All rights reserved.",
    .webAddress = "https://quillworks.example",
};

}  // namespace quillworks
