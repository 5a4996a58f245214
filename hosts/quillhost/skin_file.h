// SPDX-License-Identifier: ISC
// The skin of the editors, read from the module's data.
#pragma once

#include <string>

#include "vnk/skin.h"

namespace quillhost {

/// WorkError where it cannot be read.
VNK::Skin skinOf(const std::string& resources);

}  // namespace quillhost
