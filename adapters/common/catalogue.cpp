// SPDX-License-Identifier: ISC
#include "adapters/common/catalogue.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "adapters/common/slug.h"
#include "module/module_main.h"

namespace quillworks::adapters {
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

VNK::SpeakerArrangement sideChainOf(const VNK::SpeakerArrangement& output) noexcept
{
    return VNK::SpeakerArrangement::withChannels(std::min(2, output.channels));
}

std::vector<Layout> layoutsOf(const VNK::HostedEffect& effect)
{
    std::vector<Layout> layouts;
    const char* list = effect.getString("layouts");
    forEachPart(list ? list : "stereo", [&](std::string_view part) {
        const auto arrow = part.find('>');
        const bool isPair = arrow != part.npos;
        const std::string from(part.substr(0, arrow)), to(isPair ? part.substr(arrow + 1) : part);
        Layout layout;
        if (!VNK::SpeakerArrangement::named(from, layout.input) ||
            !VNK::SpeakerArrangement::named(to, layout.output) ||
            !effect.algorithm()->setSpeakerArrangement(layout.input, layout.output))
            return;
        layout.name = isPair ? from + "-" + to : to;
        layout.title = isPair ? capitalised(from) + " to " + capitalised(to) : capitalised(to);
        layouts.push_back(std::move(layout));
    });
    return layouts;
}

Catalogue::Catalogue()
{
    loaded_ = VNKModuleMain(this, VNK::kModuleLoad);
    if (loaded_) factory_ = VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
    if (!factory_) return;
    for (int i = 0; i < factory_->countClasses(); ++i) {
        OfferedEffect offered;
        offered.description = factory_->getClass(i);
        const auto effect = create(offered);
        if (!effect) continue;
        offered.fileName = slug(offered.description->name->text());
        if (const char* kind = effect->getString("kind")) offered.kind = kind;
        offered.hasSideChain = effect->algorithm()->hasSideChain();
        offered.layouts = layoutsOf(effect);
        if (!offered.layouts.empty()) effects_.push_back(std::move(offered));
    }
}

Catalogue::~Catalogue()
{
    factory_ = {};
    VNKModuleMain(this, VNK::kModuleUnload);
}

}  // namespace quillworks::adapters
