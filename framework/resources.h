// SPDX-License-Identifier: ISC
// Where the pack's data lies: skins, controller pages, factory presets.
#pragma once

#include <string>

namespace quillworks {

/// The folder named by QUILLWORKS_RESOURCES, else `resources/` beside the binary that this code
/// lives in, else where the install put it relative to that binary. Never a path fixed at build
/// time, so that a copied tree works. Empty if there is none. Asked anew at each call.
std::string resourcesFolder();

}  // namespace quillworks
