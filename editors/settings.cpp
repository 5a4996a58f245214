// SPDX-License-Identifier: ISC
#include "editors/settings.h"

#include <filesystem>
#include <nlohmann/json.hpp>

#include "vnk/file.h"

namespace quillworks::editors {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kLargest = 1u << 16;           // bytes
constexpr double kLeastScale = 0.5, kMostScale = 4;  // as views take them

/// Empty where the user has no folder for it.
std::string settingsFile()
{
    const auto folder = VNK::userFolder(VNK::UserFolder::Config);
    return folder.empty() ? folder : folder + "/quillworks/settings.json";
}

/// An object in any case.
Json readDocument(const std::string& file)
{
    std::string text, reason;
    if (file.empty() || !VNK::readFile(file.c_str(), kLargest, text, reason)) return Json::object();
    auto document = Json::parse(text, nullptr, false);
    return document.is_object() ? document : Json::object();
}

}  // namespace

ViewSettings readSettings() noexcept
{
    ViewSettings settings;
    try {
        const auto document = readDocument(settingsFile());
        if (const auto at = document.find("scale"); at != document.end() && at->is_number()) {
            const double scale = at->get<double>();
            if (scale >= kLeastScale && scale <= kMostScale) settings.scale = scale;
        }
        if (const auto at = document.find("variant"); at != document.end() && *at == "contrast")
            settings.variant = "contrast";
        if (const auto at = document.find("tips"); at != document.end() && at->is_boolean())
            settings.tips = at->get<bool>();
    } catch (...) {  // out of memory: the defaults
    }
    return settings;
}

bool writeSettings(const ViewSettings& settings, std::string& reason) noexcept
try {
    const auto file = settingsFile();
    if (file.empty()) return reason = "the user has no folder for settings", false;
    auto document = readDocument(file);
    document["scale"] = settings.scale;  // 0: as the window says
    document["variant"] = settings.variant;
    document["tips"] = settings.tips;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(file).parent_path(), error);
    const auto text = document.dump(2) + "\n";
    return VNK::writeFile(file.c_str(), text.data(), text.size(), reason);
} catch (...) {
    return false;
}

}  // namespace quillworks::editors
