// SPDX-License-Identifier: ISC
#include "adapters/lv2/catalogue.h"

#include <algorithm>
#include <cctype>
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

}  // namespace

Catalogue::Catalogue()
{
    loaded_ = VNKModuleMain(this, VNK::kModuleLoad);
    if (loaded_) factory_ = VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
    if (!factory_) return;
    for (int i = 0; i < factory_->countClasses(); ++i) add(*factory_->getClass(i));
}

Catalogue::~Catalogue()
{
    factory_ = {};
    VNKModuleMain(this, VNK::kModuleUnload);
}

void Catalogue::add(const VNK::ClassDescription& effect)
{
    Plugin plugin;
    plugin.effect = &effect;
    const auto object = VNK::Ref<VNK::IObject>::adopt(factory_->createInstance(effect.classId));
    const auto component = VNK::queryInterface<VNK::IEffectComponent>(object.get());
    if (!component) return;
    const char* layouts = component->getString("layouts");
    bool isFirst = true;
    forEachPart(layouts ? layouts : "stereo", [&](std::string_view layout) {
        auto& algorithm = *component->algorithm();
        if (!VNK::SpeakerArrangement::named(layout, plugin.layout) ||
            !algorithm.setSpeakerArrangement(plugin.layout, plugin.layout))
            return;
        const std::string name = effect.name->text();
        plugin.fileName = slug(name);
        plugin.title = "Quillworks " + name;
        if (!isFirst) {  // the usual layout needs no mention
            plugin.fileName.append("-").append(layout);
            plugin.title.append(" ").append(capitalised(std::string(layout)));
        }
        isFirst = false;
        plugin.uri = "urn:quillworks:" + plugin.fileName;
        plugin.ports = portsOf(*component, plugin.layout);
        plugins_.push_back(plugin);
    });
}

VNK::Ref<VNK::IEffectComponent> Catalogue::create(const Plugin& plugin) const
{
    const auto object =
        VNK::Ref<VNK::IObject>::adopt(factory_->createInstance(plugin.effect->classId));
    auto component = VNK::queryInterface<VNK::IEffectComponent>(object.get());
    if (!component) return {};
    component->algorithm()->setSpeakerArrangement(plugin.layout, plugin.layout);
    component->algorithm()->setPrecision(VNK::Precision::Float);
    return component;
}

}  // namespace quillworks::lv2
