// SPDX-License-Identifier: ISC
#include "vnk/module_component.h"

#include "vnk/debug.h"
#include "vnk/file.h"

namespace VNK {
namespace {

constexpr std::size_t kLargestSkin = 4u << 20;  // bytes

bool loadSkin(const std::string& file, IClassFactory& factory, Skin& skin, std::string& reason)
{
    std::string text;
    return readFile(file.c_str(), kLargestSkin, text, reason) &&
           readSkin(text.data(), text.size(), skin, reason) && checkSkin(skin, factory, reason);
}

}  // namespace

bool ModuleComponent::loadTheme(const std::string& resourcesFolder, IClassFactory& factory) noexcept
{
    try {
        const std::string file = resourcesFolder + "/skins/" + moduleId_ + "/skin.xml";
        Skin skin;
        std::string reason;
        if (loadSkin(file, factory, skin, reason)) {
            skin_ = std::move(skin);
            return true;
        }
        debugMessage((file + ": " + reason + "\n").c_str());
    } catch (...) {  // out of memory: the message below says enough
    }
    debugMessage("ModuleComponent::loadTheme failed\n");
    return false;
}

}  // namespace VNK
