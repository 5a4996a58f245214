// SPDX-License-Identifier: ISC
#include "vnk/module_component.h"

#include <charconv>
#include <cstdint>

#include "vnk/debug.h"
#include "vnk/file.h"

namespace VNK {
namespace {

constexpr std::size_t kLargestSkin = 4u << 20;  // bytes
constexpr const char* kStamp = ".checked";      // behind the skin's file name

bool readAndCheck(const std::string& document, IClassFactory& factory, Skin& skin,
                  std::string& reason)
{
    return readSkin(document.data(), document.size(), skin, reason) &&
           checkSkin(skin, factory, reason);
}

}  // namespace

std::string ModuleComponent::skinFile(const std::string& resourcesFolder) const
{
    return resourcesFolder + "/skins/" + moduleId_ + "/skin.xml";
}

/// The document by its 64-bit FNV-1a hash, and the version of the module.
std::string ModuleComponent::stampOf(const std::string& document) const
{
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : document) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    char text[20];
    const auto end = std::to_chars(text, text + sizeof text, hash, 16).ptr;
    return std::string(text, end) + " " + information_.version + "\n";
}

bool ModuleComponent::loadTheme(const std::string& resourcesFolder, IClassFactory& factory) noexcept
{
    try {
        const std::string file = skinFile(resourcesFolder);
        std::string document, stamp, reason, none;
        if (readFile(file.c_str(), kLargestSkin, document, reason)) {
            const bool isStamped = readFile((file + kStamp).c_str(), 1u << 10, stamp, none) &&
                                   stamp == stampOf(document);
            Skin skin;
            if (isStamped || readAndCheck(document, factory, skin, reason)) {
                skin_ = std::move(skin);
                if (isStamped) document_ = std::move(document);
                return true;
            }
        }
        debugMessage((file + ": " + reason + "\n").c_str());
    } catch (...) {  // out of memory: the message below says enough
    }
    debugMessage("ModuleComponent::loadTheme failed\n");
    return false;
}

bool ModuleComponent::stampTheme(const std::string& resourcesFolder, IClassFactory& factory,
                                 std::string& reason)
{
    const std::string file = skinFile(resourcesFolder);
    std::string document;
    Skin skin;
    if (!readFile(file.c_str(), kLargestSkin, document, reason) ||
        !readAndCheck(document, factory, skin, reason))
        return false;
    const std::string stamp = stampOf(document);
    return writeFile((file + kStamp).c_str(), stamp.data(), stamp.size(), reason);
}

const Skin& ModuleComponent::skin() noexcept
{
    if (document_.empty()) return skin_;
    try {
        std::string reason;
        Skin skin;
        if (readSkin(document_.data(), document_.size(), skin, reason)) skin_ = std::move(skin);
        document_.clear();
    } catch (...) {  // out of memory: the next who asks may have more
    }
    return skin_;
}

}  // namespace VNK
