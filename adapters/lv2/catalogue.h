// SPDX-License-Identifier: ISC
// The pack as a list of LV2 plug-ins: every class of the factory in every layout it is offered in,
// and those with a side-chain once more without its ports.
#pragma once

#include <string>
#include <vector>

#include "adapters/common/catalogue.h"
#include "adapters/lv2/ports.h"

namespace quillworks::lv2 {

/// One plug-in. Its URI, and the symbols and indices of its ports, are what songs and tools hold on
/// to.
struct Plugin {
    const VNK::ClassDescription* effect = nullptr;
    VNK::SpeakerArrangement input, output;
    bool hasSideChain = false;
    std::string fileName;  // "analog-delay", "mixtool-5.1", "dual-pan-mono-stereo"
    std::string uri;       // "urn:quillworks:" and the file name
    std::string title;     // "Quillworks Mixtool 5.1"
    std::vector<Port> ports;

    struct Control {
        int parameter;  // of the component's list
        float start;    // what the effect stands at when it is new
    };
    struct Meter {
        int index;  // of the component's list
        float minimum, maximum;
    };
    // Of the ports with these roles, in their order.
    std::vector<Control> controls;
    std::vector<Meter> meters;
    std::vector<int> place;  // of every port: which control or which meter it is
};

/// The plug-ins of one effect: one for each of its layouts ("stereo", or "mono>stereo" where the
/// sides differ), the usual one first, each followed by the one without side-chain ports if it has
/// any. The component is left in the last layout.
std::vector<Plugin> pluginsOf(const VNK::ClassDescription& effect,
                              const VNK::HostedEffect& component);

/// The plug-ins of all effects. [main thread]
class Catalogue {
public:
    /// Empty where the module does not load.
    Catalogue();

    const std::vector<Plugin>& plugins() const noexcept { return plugins_; }
    VNK::IClassFactory& factory() const noexcept { return pack_.factory(); }
    /// A new effect in the plug-in's layout, in single precision, not prepared yet; empty without
    /// memory.
    VNK::HostedEffect create(const Plugin& plugin) const;

private:
    adapters::Catalogue pack_;
    std::vector<Plugin> plugins_;
};

}  // namespace quillworks::lv2
