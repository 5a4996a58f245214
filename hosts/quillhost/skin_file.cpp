// SPDX-License-Identifier: ISC
#include "skin_file.h"

#include <fstream>
#include <iterator>

#include "error.h"

namespace quillhost {
namespace {

constexpr std::size_t kLargestSkin = 1 << 24;

}  // namespace

VNK::Skin skinOf(const std::string& resources)
{
    const auto path = resources + "/skins/quillworks/skin.xml";
    std::ifstream file(path, std::ios::binary);
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    VNK::Skin skin;
    std::string reason;
    if (!file || document.size() > kLargestSkin ||
        !VNK::readSkin(document.data(), document.size(), skin, reason))
        throw WorkError("the skin " + path + " cannot be read" +
                        (reason.empty() ? "" : ": " + reason));
    return skin;
}

}  // namespace quillhost
