// SPDX-License-Identifier: ISC
// irgen FOLDER: writes the responses that come with the effects, NAME.flac each.
#include <cstdio>
#include <exception>
#include <string>

#include "tools/irgen/recipes.h"
#include "vnk/file.h"

int main(int count, char** arguments)
{
    using namespace quillworks::irgen;
    if (count != 2) return std::fputs("irgen FOLDER\n", stderr), 2;
    try {
        for (const auto& recipe : recipes()) {
            const std::string path = std::string(arguments[1]) + "/" + recipe.name + ".flac";
            std::string content, reason;
            if (!VNK::encodeSound(made(recipe), VNK::SoundKind::Flac24, content, reason) ||
                !VNK::writeFile(path.c_str(), content.data(), content.size(), reason))
                return std::fprintf(stderr, "irgen: %s: %s\n", path.c_str(), reason.c_str()), 1;
        }
    } catch (const std::exception& e) {
        return std::fprintf(stderr, "irgen: %s\n", e.what()), 1;
    }
    return 0;
}
