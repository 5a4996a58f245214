// SPDX-License-Identifier: ISC
// The pack as CLAP plug-ins: one for each class of the factory, whatever its layouts.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "adapters/clap/abi.h"
#include "adapters/common/catalogue.h"
#include "adapters/common/meters.h"
#include "adapters/common/parameters.h"

namespace quillworks::clap {

/// What all instances of a plug-in have in common.
struct Plugin {
    Plugin(const adapters::OfferedEffect& offered, const VNK::HostedEffect& effect,
           const VNK::ModuleInformation& module);
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const adapters::OfferedEffect& offered;
    adapters::OfferedParameters parameters;
    /// What the host's number of a parameter is: the value in its unit; that in whole steps; or,
    /// where the control does not follow the value in a straight line, as hosts draw, interpolate
    /// and record numbers, the position of the control, 0 .. 1.
    enum class Scale : std::uint8_t { Value, Steps, Position };
    std::vector<Scale> scales;
    std::vector<adapters::OfferedMeter> meters;  // parameters too, behind the others, read only
    std::string id, title;              // "example.quillworks.compressor", "Quillworks Compressor"
    std::vector<const char*> features;  // ends with null
    clap_plugin_descriptor_t descriptor{};
};

class Plugins {
public:
    Plugins();

    const std::deque<Plugin>& list() const noexcept { return list_; }
    const Plugin* find(const char* id) const noexcept;
    const adapters::Catalogue& catalogue() const noexcept { return catalogue_; }

private:
    adapters::Catalogue catalogue_;
    std::deque<Plugin> list_;
};

}  // namespace quillworks::clap
