// SPDX-License-Identifier: ISC
// The editor of an effect as what windows show: all that plug-in formats know of editors.
#pragma once

#include <memory>
#include <string>

#include "editors/effect_model.h"
#include "editors/surface.h"
#include "vnk/object.h"
#include "vnk/skin.h"

namespace quillworks::editors {

/// The view of a component by its name ("Compressor/Editor"), from the skin's form or, where the
/// skin has none, made from the parameters. The component and the skin outlive it, and must be
/// called on one thread only while it lives. `resourcesFolder` holds the fonts ("skins/fonts").
/// What a hand sets goes to the writer; without one to the component. Null for what is no effect
/// and without fonts. [main thread]
std::unique_ptr<Surface> makeEditorSurface(VNK::IObject* component, const VNK::Skin& skin,
                                           const std::string& viewName,
                                           const std::string& resourcesFolder,
                                           std::unique_ptr<ParameterWriter> writer = nullptr);

}  // namespace quillworks::editors
