// SPDX-License-Identifier: ISC
// The kinds of display by the names that a skin gives them.
#include "editors/display.h"
#include "editors/displays/curve_display.h"
#include "editors/displays/gain_history.h"
#include "editors/displays/meters.h"

namespace quillworks::editors {
namespace {

using Make = std::unique_ptr<Display> (*)(const VNK::SkinBox&, EffectModel&);

struct Kind {
    std::string_view name;
    Make make;
};

template <class D> std::unique_ptr<Display> make(const VNK::SkinBox& box, EffectModel& model)
{
    return std::make_unique<D>(box, model);
}

/// One row per kind.
constexpr Kind kKinds[] = {
    {"CurveDisplay", make<CurveDisplay>},
    {"GainHistory", make<GainHistory>},
    {"Meters", make<Meters>},
};

}  // namespace

std::unique_ptr<Display> makeDisplay(const VNK::SkinBox& box, EffectModel& model)
{
    const auto kind = box.attributes.find("kind");
    if (kind == box.attributes.end()) return nullptr;
    for (const auto& row : kKinds)
        if (row.name == kind->second) return row.make(box, model);
    return nullptr;
}

}  // namespace quillworks::editors
