// SPDX-License-Identifier: ISC
// What an LV2 plug-in says of its ports, as parameters and meters.
#pragma once

#include <lilv/lilv.h>
#include <string>
#include <utility>
#include <vector>

#include "vnk/parameter.h"

namespace quillworks::lilv {
class World;
}

namespace quillhost {

/// A control port.
struct Lv2Control {
    std::uint32_t port = 0;
    std::string symbol, title, unit;
    VNK::ValueKind kind = VNK::ValueKind::Continuous;
    float minimum = 0, maximum = 1, def = 0;
    bool isInteger = false, isLogarithmic = false, isTrigger = false;
    std::vector<std::pair<float, std::string>> points;  // values with names, in their order

    void describe(std::int32_t index, VNK::ParameterInfo& info) const noexcept;
    void describe(std::int32_t index, VNK::MeterInfo& info) const noexcept;
    /// Within the range, and whole where it has to be.
    float limited(float value) const noexcept;
    /// The control's position, 0 .. 1, and back.
    float place(float value) const noexcept;
    float atPlace(float position) const noexcept;
    std::string textOf(float value) const;
    /// A number within the range, the name of a value, or on and off.
    bool read(const std::string& text, float& value) const;
};

struct Lv2Ports {
    Lv2Ports(quillworks::lilv::World& world, const LilvPlugin* plugin);

    /// A feature that the plug-in requires and nobody here offers; empty if there is none.
    static std::string lacking(const LilvPlugin* plugin);

    std::vector<std::uint32_t> inputs, outputs, sideChain, cv;
    std::vector<Lv2Control> controls, meters;
    int latency = -1;  // the meter that tells the delay in samples
    bool takesPosition = false;
};

}  // namespace quillhost
