// SPDX-License-Identifier: ISC
// The part of the file system that the framework needs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vnk/export.h"

namespace VNK {

/// The whole of a regular file of at most `limit` bytes. False with a reason otherwise, and for a
/// null path.
VNK_API bool readFile(const char* path, std::size_t limit, std::string& content,
                      std::string& reason);
/// Writes beside the final name, sees the bytes onto the disk and renames, so that neither a
/// failure nor a power cut leaves half a file or a damaged old one. Where several threads or
/// processes write one file, the last to finish stands.
VNK_API bool writeFile(const char* path, const void* data, std::size_t bytes, std::string& reason);
/// Paths of the regular files in a folder whose names end with `suffix`, sorted; empty without the
/// folder or the suffix.
VNK_API std::vector<std::string> listFiles(const char* folder, const char* suffix);

enum class UserFolder { Data, Config };

/// Where programs keep what is the user's own: $XDG_DATA_HOME or $XDG_CONFIG_HOME, by default
/// .local/share and .config of the home folder. Empty where the user has none.
VNK_API std::string userFolder(UserFolder kind);

}  // namespace VNK
