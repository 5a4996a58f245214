// SPDX-License-Identifier: ISC
// The presets that a user has saved, as files.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "framework/stored_state.h"

namespace quillworks {

inline constexpr const char* kPresetExtension = ".fxpreset";
inline constexpr const char* kNoSuchPreset = "there is no such preset";

/// Folder of a class's presets in the user's data folder; empty where there is none.
std::string userPresetsFolder(const std::string& className);

/// Whether a preset can have this name, which may hold folders ("Vocals/Lead"): UTF-8 without
/// control characters, no part of it hidden, upwards, empty or too long for a file.
bool isPresetName(std::string_view name, std::string& reason);

/// One folder of presets and the folders in it. What fails gives a reason and changes nothing.
/// [main thread]
class UserPresets {
public:
    /// Looks into the folder, which need not be there.
    explicit UserPresets(std::string folder) : folder_(std::move(folder)) { find(); }

    /// Looks anew.
    void find();
    /// Sorted without regard to the case of ASCII letters.
    const std::vector<std::string>& names() const noexcept { return names_; }
    std::string path(const std::string& name) const;

    bool save(const std::string& name, StoredState state, bool replace, std::string& reason);
    /// Never takes the place of another.
    bool rename(const std::string& name, const std::string& newName, std::string& reason);
    bool remove(const std::string& name, std::string& reason);

private:
    /// Whether a file of this name can be written; makes its folders.
    bool makeRoom(const std::string& name, bool replace, std::string& reason) const;
    /// Folders that nothing is left in.
    void removeEmptyFolders(const std::string& name) const;

    std::string folder_;
    std::vector<std::string> names_;
};

}  // namespace quillworks
