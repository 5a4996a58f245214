// SPDX-License-Identifier: ISC
#include "adapters/lv2/catalogue.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

#include "adapters/lv2/slug.h"
#include "module/module_main.h"

namespace quillworks::lv2 {
namespace {

/// "mono" as "Mono", "5.1" as it is.
std::string capitalised(std::string text)
{
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

/// f(part) for each non-empty part between semicolons.
template <class F> void forEachPart(std::string_view list, F&& f)
{
    while (!list.empty()) {
        const auto part = list.substr(0, list.find(';'));
        if (!part.empty()) f(part);
        list.remove_prefix(std::min(list.size(), part.size() + 1));
    }
}

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
    const char* layouts = component.getString("layouts");
    forEachPart(layouts ? layouts : "stereo", [&](std::string_view part) {
        Plugin plugin;
        plugin.effect = &effect;
        plugin.hasSideChain = algorithm.hasSideChain();
        const auto arrow = part.find('>');
        const bool isPair = arrow != part.npos;
        const std::string from(part.substr(0, arrow)), to(isPair ? part.substr(arrow + 1) : part);
        if (!VNK::SpeakerArrangement::named(from, plugin.input) ||
            !VNK::SpeakerArrangement::named(to, plugin.output) ||
            !algorithm.setSpeakerArrangement(plugin.input, plugin.output))
            return;
        plugin.fileName = slug(effect.name->text());
        plugin.title = std::string("Quillworks ") + effect.name->text();
        if (isPair) {
            plugin.fileName.append("-").append(from).append("-").append(to);
            plugin.title.append(" ").append(capitalised(from));
            plugin.title.append(" to ").append(capitalised(to));
        } else if (!plugins.empty()) {  // the usual layout needs no mention
            plugin.fileName.append("-").append(to);
            plugin.title.append(" ").append(capitalised(to));
        }
        add(plugin, "", "");
        if (!plugin.hasSideChain) return;
        // For hosts that take every audio input for one of the signal.
        plugin.hasSideChain = false;
        add(plugin, "-nosc", " (No Side-chain)");
    });
    return plugins;
}

Catalogue::Catalogue()
{
    loaded_ = VNKModuleMain(this, VNK::kModuleLoad);
    if (loaded_) factory_ = VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
    if (!factory_) return;
    for (int i = 0; i < factory_->countClasses(); ++i) {
        const auto& effect = *factory_->getClass(i);
        const auto component = VNK::HostedEffect::create(*factory_, effect.classId);
        if (!component) continue;
        auto plugins = pluginsOf(effect, *component);
        std::move(plugins.begin(), plugins.end(), std::back_inserter(plugins_));
    }
}

Catalogue::~Catalogue()
{
    factory_ = {};
    VNKModuleMain(this, VNK::kModuleUnload);
}

VNK::HostedEffect Catalogue::create(const Plugin& plugin) const
{
    auto component = VNK::HostedEffect::create(*factory_, plugin.effect->classId);
    if (!component) return {};
    component->algorithm()->setSpeakerArrangement(plugin.input, plugin.output);
    component->algorithm()->setPrecision(VNK::Precision::Float);
    return component;
}

}  // namespace quillworks::lv2
