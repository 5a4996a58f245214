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
    /// of the factory, unless a stamp beside it says that this has been done with this document and
    /// this version of the module: then it is read when it is first asked for. Where the theme
    /// cannot be had it writes the reason and "ModuleComponent::loadTheme failed\n" as debug
    /// messages and returns false.
    bool loadTheme(const std::string& resourcesFolder, IClassFactory& factory) noexcept;
    /// Holds the skin of the folder against the classes, whatever is said beside it, and stamps it.
    /// For the build, after the module and its resources are there. False with a reason.
    bool stampTheme(const std::string& resourcesFolder, IClassFactory& factory,
                    std::string& reason);

    const std::string& moduleId() const noexcept { return moduleId_; }
    const ModuleInformation& information() const noexcept { return information_; }
    const Skin& skin() noexcept;

private:
    std::string skinFile(const std::string& resourcesFolder) const;
    std::string stampOf(const std::string& document) const;

    std::string moduleId_;
    ModuleInformation information_;
    std::string document_;  // of a skin that has not been read yet
    Skin skin_;
};

}  // namespace VNK
