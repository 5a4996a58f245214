// SPDX-License-Identifier: ISC
// The kinds of display by the names that a skin gives them.
#include "editors/display.h"

namespace quillworks::editors {
namespace {

using Make = std::unique_ptr<Display> (*)(const VNK::SkinBox&, EffectModel&);

struct Kind {
    std::string_view name;
    Make make;
};

/// One row per kind.
std::span<const Kind> kinds()
{
    return {};
}

}  // namespace

std::unique_ptr<Display> makeDisplay(const VNK::SkinBox& box, EffectModel& model)
{
    const auto kind = box.attributes.find("kind");
    if (kind == box.attributes.end()) return nullptr;
    for (const auto& row : kinds())
        if (row.name == kind->second) return row.make(box, model);
    return nullptr;
}

}  // namespace quillworks::editors
