// SPDX-License-Identifier: ISC
// The module as a component of the host: its identity and its theme.
#pragma once

#include <string>

#include "vnk/class_factory.h"
#include "vnk/skin.h"

namespace VNK {

/// [main thread]
class VNK_API ModuleComponent {
public:
    ModuleComponent(const char* moduleId, const ModuleInformation& information)
        : moduleId_(moduleId ? moduleId : ""), information_(information)
    {}

    /// Loads `skins/MODULEID/skin.xml` from the resources folder and holds it against the classes
    /// of the factory. Where that fails it writes the reason and "ModuleComponent::loadTheme
    /// failed\n" as debug messages and returns false.
    bool loadTheme(const std::string& resourcesFolder, IClassFactory& factory) noexcept;

    const std::string& moduleId() const noexcept { return moduleId_; }
    const ModuleInformation& information() const noexcept { return information_; }
    const Skin& skin() const noexcept { return skin_; }

private:
    std::string moduleId_;
    ModuleInformation information_;
    Skin skin_;
};

}  // namespace VNK
