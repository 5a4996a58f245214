// SPDX-License-Identifier: ISC
#include "adapters/lv2/ports.h"

#include <algorithm>
#include <cctype>

#include "adapters/common/catalogue.h"

namespace quillworks::lv2 {
namespace {

using Role = Port::Role;

/// "in_l", "out_lfe"; a number where channels have no place.
std::string channelSymbol(const std::string& prefix, const VNK::SpeakerArrangement& layout, int c)
{
    if (layout.channels == 1) return prefix;
    VNK::SpeakerArrangement one;
    one.channels = 1;
    one.speakers[0] = layout.speakers[c];
    std::string name = one.names();
    if (name == "-") name = std::to_string(c + 1);
    for (char& letter : name)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return prefix + "_" + name;
}

/// The symbol of a parameter: its key, unless a port of the plug-in itself is called so.
std::string parameterSymbol(const std::string& key)
{
    constexpr const char* kOwn[] = {"control", "enabled", "sidechain", "latency", "freewheel"};
    return std::find(std::begin(kOwn), std::end(kOwn), key) == std::end(kOwn) ? key
                                                                               : key + "_setting";
}

}  // namespace

std::vector<Port> portsOf(const VNK::HostedEffect& component, const VNK::SpeakerArrangement& input,
                          const VNK::SpeakerArrangement& output, bool hasSideChain)
{
    std::vector<Port> ports;
    const auto add = [&](Role role, int index, std::string symbol) {
        ports.push_back({role, index, std::move(symbol)});
    };
    for (int c = 0; c < input.channels; ++c) add(Role::AudioIn, c, channelSymbol("in", input, c));
    for (int c = 0; c < output.channels; ++c)
        add(Role::AudioOut, c, channelSymbol("out", output, c));
    if (hasSideChain) {
        const auto bus = adapters::sideChainOf(output);
        for (int c = 0; c < bus.channels; ++c)
            add(Role::SideChain, c, channelSymbol("sidechain_in", bus, c));
    }
    add(Role::Events, 0, "control");
    add(Role::Enabled, 0, "enabled");
    if (hasSideChain) add(Role::SideChainOn, 0, "sidechain");
    int newest = 0;
    const auto addGeneration = [&](int generation) {
        VNK::ParameterInfo p;
        for (int i = 0; component.getParameter(i, p); ++i) {
            newest = std::max(newest, p.generation);
            if (p.generation == generation && !p.has(VNK::isReadOnly) &&
                !(p.perChannel && p.index >= output.channels))
                add(Role::Parameter, i, parameterSymbol(p.key));
        }
        VNK::MeterInfo m;
        for (int i = 0; component.getMeter(i, m); ++i) {
            newest = std::max(newest, m.generation);
            if (m.generation == generation) add(Role::Meter, i, m.key);
        }
    };
    addGeneration(0);
    add(Role::Latency, 0, "latency");
    add(Role::FreeWheel, 0, "freewheel");
    if (component.countTexts() > 0) add(Role::Notify, 0, "notify");
    for (int generation = 1; generation <= newest; ++generation) addGeneration(generation);
    return ports;
}

int count(const std::vector<Port>& ports, Port::Role role) noexcept
{
    return static_cast<int>(
        std::count_if(ports.begin(), ports.end(), [&](const Port& p) { return p.role == role; }));
}

}  // namespace quillworks::lv2
