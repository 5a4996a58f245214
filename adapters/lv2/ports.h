// SPDX-License-Identifier: ISC
// The ports of a plug-in: the same list for the Turtle files and for the running instance, which is
// what keeps their indices in step.
#pragma once

#include <string>
#include <vector>

#include "vnk/hosted_effect.h"

namespace quillworks::lv2 {

struct Port {
    enum class Role {
        AudioIn,      // index: channel
        AudioOut,     // index: channel
        SideChain,    // index: channel of the bus; may be left unconnected
        Events,       // song position and messages from the host; may be left unconnected
        Notify,       // messages to the host, of effects with texts; may be left unconnected
        Enabled,      // the host's own switch for the plug-in
        SideChainOn,  // whether the side-chain bus counts as connected
        FreeWheel,
        Latency,
        Parameter,  // index: of the component's list
        Meter,      // index: of the component's list
    };
    Role role;
    int index;
    std::string symbol;
};

/// Ports of an effect that stands in its layouts; side-chain buses have at most two channels. What
/// is published keeps its index: rows of later generations follow behind all of the earlier ones.
std::vector<Port> portsOf(const VNK::HostedEffect& component, const VNK::SpeakerArrangement& input,
                          const VNK::SpeakerArrangement& output, bool hasSideChain);

/// Channels of the main input or output of these ports, or of the side-chain.
int count(const std::vector<Port>& ports, Port::Role role) noexcept;

}  // namespace quillworks::lv2
