// SPDX-License-Identifier: ISC
#include "adapters/clap/plugins.h"

#include <algorithm>
#include <cmath>

#include "adapters/clap/features.h"

namespace quillworks::clap {
namespace {

bool isStraight(const VNK::HostedEffect& effect, int index, const VNK::ParameterInfo& p)
{
    const float span = p.maximum - p.minimum;
    const auto isOn = [&](float position) {
        const float value = effect.fromNormalized(index, position);
        return std::abs(value - (p.minimum + position * span)) <= 1e-3f * span;
    };
    return isOn(0.25f) && isOn(0.5f) && isOn(0.75f);
}

}  // namespace

Plugin::Plugin(const adapters::OfferedEffect& offered_, const VNK::HostedEffect& effect,
               const VNK::ModuleInformation& module)
    : offered(offered_),
      parameters(effect, offered.hasSideChain),
      meters(adapters::metersOf(effect, offered.layouts)),
      id("example.quillworks." + offered.fileName),
      title(std::string("Quillworks ") + offered.description->name->text()),
      features(featuresOf(offered))
{
    for (const auto& row : parameters.list()) {
        VNK::ParameterInfo p{};
        const bool isStepped =
            !effect.getParameter(row.index, p) || p.kind != VNK::ValueKind::Continuous;
        scales.push_back(isStepped                          ? Scale::Steps
                         : isStraight(effect, row.index, p) ? Scale::Value
                                                            : Scale::Position);
    }
    features.push_back(nullptr);
    const char* text = offered.description->description->text();
    descriptor = {.clap_version = CLAP_VERSION,
                  .id = id.c_str(),
                  .name = title.c_str(),
                  .vendor = module.vendor,
                  .url = module.webAddress,
                  .manual_url = "",
                  .support_url = "",
                  .version = module.version,
                  .description = *text ? text : offered.description->name->text(),
                  .features = features.data()};
}

Plugins::Plugins()
{
    for (const auto& offered : catalogue_.effects())
        if (const auto effect = catalogue_.create(offered))
            list_.emplace_back(offered, effect, catalogue_.factory().moduleInformation());
}

const Plugin* Plugins::find(const char* id) const noexcept
{
    const auto at = std::find_if(list_.begin(), list_.end(),
                                 [&](const Plugin& plugin) { return id && plugin.id == id; });
    return at == list_.end() ? nullptr : &*at;
}

}  // namespace quillworks::clap
