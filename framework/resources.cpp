// SPDX-License-Identifier: ISC
#include "framework/resources.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>

namespace quillworks {

std::string resourcesFolder()
{
    namespace fs = std::filesystem;
    if (const char* named = std::getenv("QUILLWORKS_RESOURCES"); named && *named) return named;
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&resourcesFolder), &info) == 0 || !info.dli_fname)
        return {};
    std::error_code error;
    const auto binary = fs::canonical(info.dli_fname, error);
    if (error) return {};
    for (const char* place : {"resources", "../share/quillworks", "../../share/quillworks"}) {
        const auto folder = binary.parent_path() / place;
        if (fs::is_directory(folder / "skins", error)) return folder.lexically_normal().string();
    }
    return {};
}

}  // namespace quillworks
