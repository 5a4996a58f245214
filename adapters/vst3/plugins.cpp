// SPDX-License-Identifier: ISC
#include "adapters/vst3/plugins.h"

#include <algorithm>
#include <string_view>

namespace quillworks::vst3 {
namespace {

struct CategoryOf {
    std::string_view name, category;
};

/// Where hosts file an effect: by its sub-category, or finer by its kind.
constexpr CategoryOf kSubCategories[] = {
    {"Dynamics", "Dynamics"}, {"Distortion", "Distortion"}, {"Modulation", "Modulation"},
    {"Delay", "Delay"},       {"Reverb", "Reverb"},         {"Analysis", "Analyzer"},
    {"Tool", "Tools"},        {"Mixing", "Tools"},          {"Spatial", "Spatial"},
};
constexpr CategoryOf kKinds[] = {
    {"filter", "Filter"}, {"equaliser", "EQ"}, {"generator", "Generator"}};

std::string categoriesOf(const adapters::OfferedEffect& effect)
{
    const auto find = [](const auto& table, std::string_view name) -> std::string_view {
        for (const auto& row : table)
            if (row.name == name) return row.category;
        return {};
    };
    auto category = find(kKinds, effect.kind);
    if (category.empty()) category = find(kSubCategories, effect.description->subCategory->text());
    std::string text = "Fx";
    if (!category.empty()) text.append("|").append(category);
    return text;
}

}  // namespace

Plugin::Plugin(const adapters::OfferedEffect& offered_, const VNK::HostedEffect& effect)
    : offered(offered_),
      parameters(effect, false),
      title(std::string("Quillworks ") + offered.description->name->text()),
      categories(categoriesOf(offered))
{
    for (const auto& row : parameters.list()) {
        VNK::ParameterInfo p{};
        if (effect.getParameter(row.index, p) && *p.group && unitOf(p.group) == kRootUnit)
            units.emplace_back(p.group);
    }
    for (int i = 0; i < effect.countPrograms(); ++i) programs.emplace_back(effect.programTitle(i));
}

std::int32_t Plugin::unitOf(const char* group) const noexcept
{
    const auto at = std::find(units.begin(), units.end(), group);
    return at == units.end() ? kRootUnit : static_cast<std::int32_t>(at - units.begin()) + 1;
}

Plugins::Plugins()
{
    for (const auto& offered : catalogue_.effects())
        if (const auto effect = catalogue_.create(offered)) list_.emplace_back(offered, effect);
}

const Plugin* Plugins::find(const v3_tuid id) const noexcept
{
    const auto at = std::find_if(list_.begin(), list_.end(), [&](const Plugin& plugin) {
        return id && std::equal(plugin.id(), plugin.id() + sizeof(v3_tuid), id);
    });
    return at == list_.end() ? nullptr : &*at;
}

}  // namespace quillworks::vst3
