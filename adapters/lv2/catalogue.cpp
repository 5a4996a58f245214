// SPDX-License-Identifier: ISC
#include "adapters/lv2/catalogue.h"

#include <iterator>

#include "adapters/common/slug.h"

namespace quillworks::lv2 {
namespace {

/// What instances need to know of the ports beyond their roles.
void describePorts(Plugin& plugin, const VNK::HostedEffect& component)
{
    for (const auto& port : plugin.ports) {
        const bool isMeter = port.role == Port::Role::Meter;
        plugin.place.push_back(
            static_cast<int>(isMeter ? plugin.meters.size() : plugin.controls.size()));
        if (isMeter) {
            VNK::MeterInfo info{};
            component.getMeter(port.index, info);
            plugin.meters.push_back({port.index, info.minimum, info.maximum});
        } else if (port.role == Port::Role::Parameter) {
            VNK::ParameterInfo info{};
            component.getParameter(port.index, info);
            plugin.controls.push_back({port.index, info.defaultValue});
        }
    }
}

}  // namespace

std::vector<Plugin> pluginsOf(const VNK::ClassDescription& effect,
                              const VNK::HostedEffect& component)
{
    std::vector<Plugin> plugins;
    auto& algorithm = *component.algorithm();
    const auto add = [&](Plugin plugin, const char* suffix, const char* titleSuffix) {
        plugin.fileName += suffix;
        plugin.title += titleSuffix;
        plugin.uri = "urn:quillworks:" + plugin.fileName;
        plugin.ports = portsOf(component, plugin.input, plugin.output, plugin.hasSideChain);
        describePorts(plugin, component);
        plugins.push_back(std::move(plugin));
    };
    for (const auto& layout : adapters::layoutsOf(component)) {
        Plugin plugin;
        plugin.effect = &effect;
        plugin.hasSideChain = algorithm.hasSideChain();
        plugin.input = layout.input;
        plugin.output = layout.output;
        if (!algorithm.setSpeakerArrangement(layout.input, layout.output)) continue;
        plugin.fileName = adapters::slug(effect.name->text());
        plugin.title = std::string("Quillworks ") + effect.name->text();
        if (layout.isPair() || !plugins.empty()) {  // the usual layout needs no mention
            plugin.fileName.append("-").append(layout.name);
            plugin.title.append(" ").append(layout.title);
        }
        add(plugin, "", "");
        if (!plugin.hasSideChain) continue;
        // For hosts that take every audio input for one of the signal.
        plugin.hasSideChain = false;
        add(plugin, "-nosc", " (No Side-chain)");
    }
    return plugins;
}

Catalogue::Catalogue()
{
    for (const auto& effect : pack_.effects()) {
        const auto component = pack_.create(effect);
        if (!component) continue;
        auto plugins = pluginsOf(*effect.description, *component);
        std::move(plugins.begin(), plugins.end(), std::back_inserter(plugins_));
    }
}

VNK::HostedEffect Catalogue::create(const Plugin& plugin) const
{
    auto component = VNK::HostedEffect::create(factory(), plugin.effect->classId);
    if (!component) return {};
    component->algorithm()->setSpeakerArrangement(plugin.input, plugin.output);
    component->algorithm()->setPrecision(VNK::Precision::Float);
    return component;
}

}  // namespace quillworks::lv2
