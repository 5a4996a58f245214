// SPDX-License-Identifier: ISC
// The parameters of an effect as formats with one list of them show it: those that can be set, by
// their tags, with the format's own switches among them.
#pragma once

#include <string>
#include <vector>

#include "vnk/hosted_effect.h"

namespace quillworks::adapters {

/// Identifier of the switch that makes the side-chain bus the one the effect listens to, for
/// formats that do not tell whether it is connected. No effect has this tag.
inline constexpr VNK::Tag kSideChainSwitch = 0x58745363;  // "XtSc"

struct OfferedParameter {
    enum class Role {
        Effect,     // the effect's own
        Bypass,     // the format's switch, in the place of the effect's own bypass
        SideChain,  // kSideChainSwitch
    };
    Role role;
    VNK::Tag id;  // stored in songs: the tag
    int index;    // of the component's list, also of the bypass that is replaced; else -1
};

class OfferedParameters {
public:
    OfferedParameters(const VNK::HostedEffect& effect, bool hasSideChainSwitch);

    /// In the order of the effect's table. Not among them is what is read only, and the effect's
    /// own bypass.
    const std::vector<OfferedParameter>& list() const noexcept { return list_; }
    int count() const noexcept { return static_cast<int>(list_.size()); }
    const OfferedParameter& operator[](int place) const noexcept
    {
        return list_[static_cast<std::size_t>(place)];
    }
    /// Place of an id in the list, or -1. [any thread]
    int find(VNK::Tag id) const noexcept;
    /// Place of a parameter of the component's list, or -1. [any thread]
    int placeOf(int index) const noexcept;

private:
    std::vector<OfferedParameter> list_;
    std::vector<std::pair<VNK::Tag, int>> places_;  // by id
    std::vector<int> byIndex_;
};

/// The title, with the number of a member of a family counted from 1.
std::string titleOf(const char* title, int index);

}  // namespace quillworks::adapters
