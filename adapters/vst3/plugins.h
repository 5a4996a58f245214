// SPDX-License-Identifier: ISC
// The pack as VST3 classes: one for each class of the factory, whatever its layouts.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "adapters/common/catalogue.h"
#include "adapters/common/parameters.h"
#include "adapters/vst3/abi.h"

namespace quillworks::vst3 {

/// Identifier of the parameter that chooses a factory preset. No effect has this tag.
inline constexpr VNK::Tag kProgramParameter = 0x58745072;  // "XtPr"
inline constexpr std::int32_t kProgramList = 1;

/// What all instances of a class have in common.
struct Plugin {
    Plugin(const adapters::OfferedEffect& offered, const VNK::HostedEffect& effect);
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const std::uint8_t* id() const noexcept { return offered.description->classId.bytes; }
    /// Number of a parameter group's unit, 0 for none.
    std::int32_t unitOf(const char* group) const noexcept;

    const adapters::OfferedEffect& offered;
    adapters::OfferedParameters parameters;  // the one for programs comes behind them
    std::string title;                       // "Quillworks Compressor"
    std::string categories;                  // "Fx|Dynamics"
    std::vector<std::string> units;          // names of the parameter groups, from unit 1 on
    std::vector<std::string> programs;       // names of the factory presets
};

class Plugins {
public:
    Plugins();

    const std::deque<Plugin>& list() const noexcept { return list_; }
    const Plugin* find(const v3_tuid id) const noexcept;
    const adapters::Catalogue& catalogue() const noexcept { return catalogue_; }

private:
    adapters::Catalogue catalogue_;
    std::deque<Plugin> list_;
};

}  // namespace quillworks::vst3
