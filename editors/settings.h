// SPDX-License-Identifier: ISC
// What a person has set of all views, as a file in the user's folder of settings.
#pragma once

#include "editors/view.h"

namespace quillworks::editors {

/// $XDG_CONFIG_HOME/quillworks/settings.json; defaults stand for what is not there, cannot be read
/// or makes no sense. A view reads it once, when it is opened.
ViewSettings readSettings() noexcept;
/// Keeps what else the file holds, which another version may know. False with the reason.
bool writeSettings(const ViewSettings& settings, std::string& reason) noexcept;

}  // namespace quillworks::editors
