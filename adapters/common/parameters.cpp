// SPDX-License-Identifier: ISC
#include "adapters/common/parameters.h"

#include <algorithm>

namespace quillworks::adapters {

OfferedParameters::OfferedParameters(const VNK::HostedEffect& effect, bool hasSideChainSwitch)
{
    using Role = OfferedParameter::Role;
    VNK::ParameterInfo p{};
    for (int i = 0; effect.getParameter(i, p); ++i) {
        byIndex_.push_back(p.has(VNK::isReadOnly) ? -1 : count());
        if (p.has(VNK::isReadOnly)) continue;
        list_.push_back({p.has(VNK::isBypass) ? Role::Bypass : Role::Effect, p.tag, i});
    }
    if (hasSideChainSwitch) list_.push_back({Role::SideChain, kSideChainSwitch, -1});
    for (int place = 0; place < count(); ++place) places_.emplace_back((*this)[place].id, place);
    std::sort(places_.begin(), places_.end());
}

int OfferedParameters::find(VNK::Tag id) const noexcept
{
    const auto at = std::lower_bound(places_.begin(), places_.end(), std::pair(id, 0));
    return at != places_.end() && at->first == id ? at->second : -1;
}

int OfferedParameters::placeOf(int index) const noexcept
{
    return index >= 0 && index < static_cast<int>(byIndex_.size())
               ? byIndex_[static_cast<std::size_t>(index)]
               : -1;
}

std::string titleOf(const char* title, int index)
{
    return index >= 0 ? std::string(title) + " " + std::to_string(index + 1) : title;
}

}  // namespace quillworks::adapters
