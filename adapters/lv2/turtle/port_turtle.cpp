// SPDX-License-Identifier: ISC
#include "adapters/lv2/turtle/port_turtle.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "adapters/common/parameters.h"
#include "adapters/common/slug.h"
#include "adapters/lv2/text_exchange.h"
#include "adapters/lv2/turtle/turtle.h"

namespace quillworks::lv2 {
namespace {

using Role = Port::Role;
using turtle::Node;

struct Named {
    std::string_view name, uri;
};

constexpr Named kUnits[] = {
    {"dB", "units:db"},
    {"ms", "units:ms"},
    {"s", "units:s"},
    {"Hz", "units:hz"},
    {"kHz", "units:khz"},
    {"%", "units:pc"},
    {"bpm", "units:bpm"},
    {"oct", "units:oct"},
    {"cent", "units:cent"},
    {"ct", "units:cent"},
    {"st", "units:semitone12TET"},
    {"\u00b0", "units:degree"},
    {"deg", "units:degree"},
    {"beats", "units:beat"},
};

/// Places of speakers in the groups that LV2 knows: in 5.1 the surrounds are its rear ones.
constexpr Named kPlaces[] = {
    {"L", "pg:left"},       {"R", "pg:right"},
    {"C", "pg:center"},     {"LFE", "pg:lowFrequencyEffects"},
    {"Ls", "pg:sideLeft"},  {"Rs", "pg:sideRight"},
    {"Lrs", "pg:rearLeft"}, {"Rrs", "pg:rearRight"},
    {"M", "pg:center"},
};

std::string_view find(const auto& table, std::string_view name)
{
    for (const auto& row : table)
        if (row.name == name) return row.uri;
    return {};
}

std::string speakerName(const VNK::SpeakerArrangement& layout, int c)
{
    VNK::SpeakerArrangement one;
    one.channels = 1;
    one.speakers[0] = layout.speakers[c];
    return one.names();
}

std::string_view place(const VNK::SpeakerArrangement& layout, int c)
{
    const bool isFivePointOne = layout.channels == 6;
    const auto name = speakerName(layout, c);
    if (isFivePointOne && name == "Ls") return "pg:rearLeft";
    if (isFivePointOne && name == "Rs") return "pg:rearRight";
    return find(kPlaces, name);
}

std::string channelName(const std::string& bus, const VNK::SpeakerArrangement& layout, int c)
{
    const auto speaker = speakerName(layout, c);
    if (layout.channels == 1) return bus;
    if (speaker == "L") return bus + " Left";
    if (speaker == "R") return bus + " Right";
    return bus + " " + (speaker == "-" ? std::to_string(c + 1) : speaker);
}

std::string unit(std::string_view name)
{
    if (const auto known = find(kUnits, name); !known.empty()) return std::string(known);
    const std::string s(name);
    return Node()
        .add("a", "units:Unit")
        .add("rdfs:label", turtle::text(s))
        .add("units:symbol", turtle::text(s))
        .add("units:render", turtle::text("%f " + s))
        .inBrackets(8);
}

void addUnit(Node& node, std::string_view name)
{
    if (!name.empty() && name != "ratio") node.add("units:unit", unit(name));
}

/// A parameter's group as a name within URIs, empty without one.
std::string groupOf(const VNK::ParameterInfo& p)
{
    return p.group[0] ? "group-" + adapters::slug(p.group) : "";
}

void addRange(Node& node, float minimum, float maximum)
{
    node.add("lv2:minimum", turtle::number(minimum)).add("lv2:maximum", turtle::number(maximum));
}

/// A point on the scale of a list for each of its texts.
void addChoices(Node& node, float minimum, int choices, auto&& text)
{
    std::vector<std::string> points;
    for (int step = 0; step < choices; ++step)
        points.push_back("[ rdfs:label " + turtle::text(text(step)) + " ; rdf:value " +
                         turtle::number(minimum + static_cast<float>(step)) + " ]");
    if (!points.empty()) node.add("lv2:scalePoint", turtle::list(points, " ,\n            "));
}

void addParameter(Node& node, const VNK::HostedEffect& effect, const Plugin& plugin, int index)
{
    VNK::ParameterInfo p{};
    effect.getParameter(index, p);
    node.add("lv2:default", turtle::number(p.defaultValue));
    addRange(node, p.minimum, p.maximum);
    std::vector<std::string> properties;
    if (p.kind == VNK::ValueKind::Toggle) properties.push_back("lv2:toggled");
    if (p.kind == VNK::ValueKind::List) properties.push_back("lv2:integer");
    if (p.choices > 0 && p.kind == VNK::ValueKind::List) properties.push_back("lv2:enumeration");
    if (p.logarithmic && p.minimum > 0) properties.push_back("pprops:logarithmic");
    if (p.has(VNK::isTrigger)) properties.push_back("pprops:trigger");
    if (p.has(VNK::isHidden) || p.has(VNK::isBypass)) properties.push_back("pprops:notOnGUI");
    if (p.has(VNK::isNotAutomatable)) properties.push_back("pprops:notAutomatic");
    if (!properties.empty()) node.add("lv2:portProperty", turtle::list(properties));
    addChoices(node, p.minimum, p.choices,
               [&](int step) { return effect.choiceText(index, step); });
    addUnit(node, p.unit);
    if (const std::string s = p.shortTitle; !s.empty() && s.size() <= 16 && s != p.title)
        node.add("lv2:shortName", turtle::text(adapters::titleOf(p.shortTitle, p.index)));
    if (p.help[0]) node.add("rdfs:comment", turtle::text(p.help));
    if (const auto group = groupOf(p); !group.empty())
        node.add("pg:group", groupUri(plugin, group));
}

void addMeter(Node& node, const VNK::HostedEffect& effect, const Plugin& plugin, int index)
{
    VNK::MeterInfo m{};
    effect.getMeter(index, m);
    addRange(node, m.minimum, m.maximum);
    if (m.kind == VNK::ValueKind::List)
        node.add("lv2:portProperty", "lv2:integer , lv2:enumeration");
    addChoices(node, m.minimum, m.choices,
               [&](int step) { return effect.meterChoice(index, step); });
    addUnit(node, m.unit);
    node.add("pg:group", groupUri(plugin, "meters"));
}

VNK::SpeakerArrangement layoutOf(const Plugin& plugin, Role role)
{
    if (role == Role::SideChain)
        return VNK::SpeakerArrangement::withChannels(count(plugin.ports, Role::SideChain));
    return role == Role::AudioIn ? plugin.input : plugin.output;
}

void addChannel(Node& node, const Plugin& plugin, const Port& port)
{
    if (const auto at = place(layoutOf(plugin, port.role), port.index); !at.empty())
        node.add("lv2:designation", at);
    const char* group = port.role == Role::AudioIn    ? "in"
                        : port.role == Role::AudioOut ? "out"
                                                      : "sidechain";
    node.add("pg:group", groupUri(plugin, group));
    if (port.role == Role::SideChain)
        node.add("lv2:portProperty", "lv2:isSideChain , lv2:connectionOptional");
}

void addSwitch(Node& node, bool isOnByDefault)
{
    node.add("lv2:default", isOnByDefault ? "1.0" : "0.0");
    addRange(node, 0, 1);
}

std::string nameOf(const VNK::HostedEffect& effect, const Plugin& plugin, const Port& port)
{
    VNK::ParameterInfo p{};
    VNK::MeterInfo m{};
    switch (port.role) {
    case Role::AudioIn:
        return channelName("In", layoutOf(plugin, port.role), port.index);
    case Role::AudioOut:
        return channelName("Out", layoutOf(plugin, port.role), port.index);
    case Role::SideChain:
        return channelName("Side-chain", layoutOf(plugin, port.role), port.index);
    case Role::Events:
        return "Song Position";
    case Role::Notify:
        return "Notify";
    case Role::Enabled:
        return "Enabled";
    case Role::SideChainOn:
        return "External Side-chain";
    case Role::FreeWheel:
        return "Free-wheeling";
    case Role::Latency:
        return "Latency";
    case Role::Parameter:
        effect.getParameter(port.index, p);
        return adapters::titleOf(p.title, p.index);
    case Role::Meter:
        effect.getMeter(port.index, m);
        return adapters::titleOf(m.title, m.index);
    }
    return port.symbol;
}

std::string_view typeOf(Role role)
{
    switch (role) {
    case Role::AudioIn:
    case Role::SideChain:
        return "lv2:InputPort , lv2:AudioPort";
    case Role::AudioOut:
        return "lv2:OutputPort , lv2:AudioPort";
    case Role::Events:
        return "lv2:InputPort , atom:AtomPort";
    case Role::Notify:
        return "lv2:OutputPort , atom:AtomPort";
    case Role::Meter:
    case Role::Latency:
        return "lv2:OutputPort , lv2:ControlPort";
    default:
        return "lv2:InputPort , lv2:ControlPort";
    }
}

std::string_view groupClass(int channels)
{
    switch (channels) {
    case 1:
        return "pg:MonoGroup";
    case 2:
        return "pg:StereoGroup";
    case 6:
        return "pg:FivePointOneGroup";
    case 8:
        return "pg:SevenPointOneGroup";
    default:
        return "pg:DiscreteGroup";
    }
}

}  // namespace

std::string groupUri(const Plugin& plugin, const std::string& group)
{
    return turtle::iri(plugin.uri + "#" + group);
}

std::vector<std::string> describePorts(const VNK::HostedEffect& effect, const Plugin& plugin)
{
    std::vector<std::string> ports;
    std::set<std::string> names;
    for (const auto& port : plugin.ports) {
        Node node;
        node.add("a", typeOf(port.role))
            .add("lv2:index", turtle::integer(static_cast<int>(ports.size())))
            .add("lv2:symbol", turtle::text(port.symbol));
        // Hosts list ports by name alone: a second one of the same name shows its symbol too.
        auto name = nameOf(effect, plugin, port);
        if (!names.insert(name).second) name.append(" (").append(port.symbol).append(")");
        node.add("lv2:name", turtle::text(name));
        switch (port.role) {
        case Role::AudioIn:
        case Role::AudioOut:
        case Role::SideChain:
            addChannel(node, plugin, port);
            break;
        case Role::Events:
            node.add("lv2:designation", "lv2:control")
                .add("lv2:portProperty", "lv2:connectionOptional")
                .add("atom:bufferType", "atom:Sequence")
                .add("atom:supports",
                     effect.countTexts() > 0 ? "time:Position , patch:Message" : "time:Position");
            break;
        case Role::Notify:
            node.add("lv2:designation", "lv2:control")
                .add("lv2:portProperty", "lv2:connectionOptional")
                .add("atom:bufferType", "atom:Sequence")
                .add("atom:supports", "patch:Message")
                .add("rsz:minimumSize", turtle::integer(int{TextExchange::kLeastRoom}));
            break;
        case Role::Enabled:
            addSwitch(node, true);
            node.add("lv2:designation", "lv2:enabled").add("lv2:portProperty", "lv2:toggled");
            break;
        case Role::SideChainOn:
            addSwitch(node, false);
            node.add("lv2:portProperty", "lv2:toggled")
                .add("rdfs:comment",
                     "\"Listens to the side-chain inputs instead of the input itself.\"");
            break;
        case Role::FreeWheel:
            addSwitch(node, false);
            node.add("lv2:designation", "lv2:freeWheeling")
                .add("lv2:portProperty", "lv2:toggled , pprops:notOnGUI");
            break;
        case Role::Latency:
            node.add("lv2:designation", "lv2:latency")
                .add("lv2:portProperty", "lv2:reportsLatency , lv2:integer , pprops:notOnGUI")
                .add("units:unit", "units:frame");
            addRange(node, 0, 192000);
            break;
        case Role::Parameter:
            addParameter(node, effect, plugin, port.index);
            break;
        case Role::Meter:
            addMeter(node, effect, plugin, port.index);
            break;
        }
        ports.push_back(node.inBrackets(4));
    }
    return ports;
}

std::string describeGroups(const VNK::HostedEffect& effect, const Plugin& plugin)
{
    const auto bus = [&](const char* group, const char* name, int channels, const char* direction) {
        return Node()
            .add("a", std::string(groupClass(channels)) + " , " + direction)
            .add("lv2:symbol", turtle::text(group))
            .add("lv2:name", turtle::text(name));
    };
    std::string text =
        bus("in", "Input", plugin.input.channels, "pg:InputGroup").of(groupUri(plugin, "in")) +
        bus("out", "Output", plugin.output.channels, "pg:OutputGroup")
            .add("pg:source", groupUri(plugin, "in"))
            .of(groupUri(plugin, "out"));
    if (const int side = count(plugin.ports, Role::SideChain))
        text += bus("sidechain", "Side-chain", side, "pg:InputGroup")
                    .add("pg:sideChainOf", groupUri(plugin, "in"))
                    .of(groupUri(plugin, "sidechain"));
    std::set<std::string> seen;
    const auto controls = [&](const std::string& group, const char* name, const char* direction) {
        if (group.empty() || !seen.insert(group).second) return;
        std::string symbol = group;
        std::replace(symbol.begin(), symbol.end(), '-', '_');
        text += Node()
                    .add("a", direction)
                    .add("lv2:symbol", turtle::text(symbol))
                    .add("lv2:name", turtle::text(name))
                    .of(groupUri(plugin, group));
    };
    for (const auto& port : plugin.ports) {
        VNK::ParameterInfo p{};
        if (port.role == Role::Parameter && effect.getParameter(port.index, p))
            controls(groupOf(p), p.group, "pg:InputGroup");
        if (port.role == Role::Meter) controls("meters", "Meters", "pg:OutputGroup");
    }
    return text;
}

}  // namespace quillworks::lv2
