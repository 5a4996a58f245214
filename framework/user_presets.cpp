// SPDX-License-Identifier: ISC
#include "framework/user_presets.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "vnk/file.h"

namespace quillworks {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestPart = 200;  // bytes; a file's name has 255, some for what is added
constexpr int kDeepest = 8;                // folders
constexpr std::size_t kMost = 10000;

/// Takes the first character off a text. 0 for what is no UTF-8, or text of no form that is
/// allowed: overlong, a surrogate, beyond the last.
char32_t takeCharacter(std::string_view& text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if ((first >= 0x80 && first < 0xC2) || first > 0xF4 || length > text.size()) return 0;
    char32_t c = length == 1 ? first : first & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        c = c << 6 | (byte(i) & 0x3F);
    }
    text.remove_prefix(length);
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = c >= 0xD800 && c < 0xE000;
    return c < kLeast[length] || isSurrogate || c > 0x10FFFF ? 0 : c;
}

bool isPlain(std::string_view text)
{
    while (!text.empty()) {
        const auto c = takeCharacter(text);
        if (c < 0x20 || (c >= 0x7F && c < 0xA0)) return false;
    }
    return true;
}

std::string lastPart(const std::string& name)
{
    return name.substr(name.find_last_of('/') + 1);
}

bool comesBefore(const std::string& a, const std::string& b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    const auto order = std::lexicographical_compare_three_way(
        a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) {
            return static_cast<unsigned char>(lower(x)) <=> static_cast<unsigned char>(lower(y));
        });
    return order != 0 ? order < 0 : a < b;
}

}  // namespace

std::string userPresetsFolder(const std::string& className)
{
    const auto data = VNK::userFolder(VNK::UserFolder::Data);
    return data.empty() ? data : data + "/quillworks/presets/" + className;
}

bool isPresetName(std::string_view name, std::string& reason)
{
    if (name.empty()) return reason = "a preset needs a name", false;
    if (!isPlain(name)) return reason = "the name holds characters that are no text", false;
    int parts = 0;
    for (auto rest = name;;) {
        const auto end = std::min(rest.find('/'), rest.size());
        const auto part = rest.substr(0, end);
        if (part.empty()) return reason = "the name has an empty part", false;
        if (part.front() == '.') return reason = "a name cannot begin with a dot", false;
        if (part.front() == ' ' || part.back() == ' ')
            return reason = "a name cannot begin or end with a blank", false;
        if (part.size() > kLongestPart || ++parts > kDeepest)
            return reason = "the name is too long", false;
        if (end == rest.size()) return true;
        rest.remove_prefix(end + 1);
    }
}

void UserPresets::find()
{
    std::vector<std::string> found;
    std::error_code error;
    std::string reason;
    // Links to folders are not followed: they may lead in circles.
    const auto options = fs::directory_options::skip_permission_denied;
    if (!folder_.empty())
        for (fs::recursive_directory_iterator at(folder_, options, error), end;
             !error && at != end && found.size() < kMost; at.increment(error)) {
            const std::string path = at->path().string();
            if (at.depth() >= kDeepest) at.disable_recursion_pending();
            std::error_code unreadable;
            if (!path.ends_with(kPresetExtension) || !at->is_regular_file(unreadable)) continue;
            auto name = path.substr(folder_.size() + 1);
            name.resize(name.size() - std::string_view(kPresetExtension).size());
            if (isPresetName(name, reason)) found.push_back(std::move(name));
        }
    std::sort(found.begin(), found.end(), comesBefore);
    names_ = std::move(found);
}

std::string UserPresets::path(const std::string& name) const
{
    return folder_ + "/" + name + kPresetExtension;
}

bool UserPresets::makeRoom(const std::string& name, bool replace, std::string& reason) const
{
    if (!isPresetName(name, reason)) return false;
    if (folder_.empty()) return reason = "the user has no folder for data", false;
    const fs::path file = path(name);
    std::error_code error;
    if (!replace && fs::exists(fs::symlink_status(file, error)))
        return reason = "there is a preset of that name", false;
    error.clear();
    fs::create_directories(file.parent_path(), error);
    if (error) return reason = file.parent_path().string() + ": " + error.message(), false;
    return true;
}

bool UserPresets::save(const std::string& name, StoredState state, bool replace,
                       std::string& reason)
{
    if (!makeRoom(name, replace, reason)) return false;
    state.name = lastPart(name);
    const auto document = writePreset(state);
    const bool isWritten =
        VNK::writeFile(path(name).c_str(), document.data(), document.size(), reason);
    if (!isWritten) removeEmptyFolders(name);
    find();
    return isWritten;
}

bool UserPresets::rename(const std::string& name, const std::string& newName, std::string& reason)
{
    if (name == newName) return true;
    // The document tells its name to hosts that are handed it.
    std::string document;
    StoredState state;
    if (!VNK::readFile(path(name).c_str(), kLargestPreset, document, reason) ||
        !readPreset(document.data(), document.size(), state, reason) ||
        !save(newName, std::move(state), false, reason))
        return false;
    if (remove(name, reason)) return true;
    std::string ignored;
    remove(newName, ignored);
    return false;
}

bool UserPresets::remove(const std::string& name, std::string& reason)
{
    std::error_code error;
    const bool isRemoved = fs::remove(path(name), error);
    if (isRemoved) removeEmptyFolders(name);
    find();
    if (!isRemoved) reason = error ? error.message() : "there is no such file";
    return isRemoved;
}

void UserPresets::removeEmptyFolders(const std::string& name) const
{
    std::error_code error;
    for (auto end = name.find_last_of('/'); end != name.npos; end = name.find_last_of('/', end - 1))
        if (!fs::remove(folder_ + "/" + name.substr(0, end), error)) return;
}

}  // namespace quillworks
