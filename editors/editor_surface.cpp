// SPDX-License-Identifier: ISC
#include "editors/editor_surface.h"

#include "editors/settings.h"

namespace quillworks::editors {

std::unique_ptr<Surface> makeEditorSurface(VNK::IObject* component, const VNK::Skin& skin,
                                           const std::string& viewName,
                                           const std::string& resourcesFolder,
                                           std::unique_ptr<ParameterWriter> writer)
{
    ViewSetup setup;
    setup.effect = VNK::HostedEffect(component);
    if (!setup.effect) return nullptr;
    std::string reason;
    setup.fonts = Fonts::load(resourcesFolder + "/skins/fonts", reason);
    if (!setup.fonts) return nullptr;
    setup.skin = &skin;
    setup.name = viewName;
    setup.writer = std::move(writer);
    setup.settings = readSettings();
    setup.remember = [](const ViewSettings& settings) {
        std::string reason;  // nobody is there to read it: the view goes on as it was set
        writeSettings(settings, reason);
    };
    return std::make_unique<View>(std::move(setup));
}

}  // namespace quillworks::editors
