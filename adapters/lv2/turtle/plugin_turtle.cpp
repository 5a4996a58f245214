// SPDX-License-Identifier: ISC
#include "adapters/lv2/turtle/plugin_turtle.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string_view>

#include "adapters/common/slug.h"
#include "adapters/lv2/instance.h"
#include "adapters/lv2/turtle/port_turtle.h"
#include "adapters/lv2/turtle/turtle.h"
#include "adapters/lv2/version.h"
#include "framework/base64.h"
#include "vnk/buffer.h"

namespace quillworks::lv2 {
namespace {

using turtle::Node;

constexpr const char* kEditor = "<urn:quillworks:editor>";

struct ClassOf {
    std::string_view name, lv2Class;
};

/// Where hosts file an effect: by its sub-category, or finer by its kind.
constexpr ClassOf kSubCategories[] = {
    {"Dynamics", "lv2:DynamicsPlugin"},    {"Distortion", "lv2:DistortionPlugin"},
    {"Modulation", "lv2:ModulatorPlugin"}, {"Delay", "lv2:DelayPlugin"},
    {"Reverb", "lv2:ReverbPlugin"},        {"Analysis", "lv2:AnalyserPlugin"},
    {"Tool", "lv2:UtilityPlugin"},         {"Mixing", "lv2:MixerPlugin"},
    {"Spatial", "lv2:SpatialPlugin"},
};
constexpr ClassOf kKinds[] = {
    {"compressor", "lv2:CompressorPlugin"}, {"limiter", "lv2:LimiterPlugin"},
    {"expander", "lv2:ExpanderPlugin"},     {"gate", "lv2:GatePlugin"},
    {"chorus", "lv2:ChorusPlugin"},         {"flanger", "lv2:FlangerPlugin"},
    {"phaser", "lv2:PhaserPlugin"},         {"filter", "lv2:FilterPlugin"},
    {"waveshaper", "lv2:WaveshaperPlugin"}, {"equaliser", "lv2:EQPlugin"},
    {"generator", "lv2:OscillatorPlugin"},  {"amplifier", "lv2:AmplifierPlugin"},
};

std::string_view classOf(const Plugin& plugin, const VNK::HostedEffect& effect)
{
    const auto find = [](const auto& table, std::string_view name) -> std::string_view {
        for (const auto& row : table)
            if (row.name == name) return row.lv2Class;
        return {};
    };
    const char* kind = effect.getString("kind");
    if (const auto finer = find(kKinds, kind ? kind : ""); !finer.empty()) return finer;
    const auto usual = find(kSubCategories, plugin.effect->subCategory->text());
    return usual.empty() ? "lv2:UtilityPlugin" : usual;
}

/// Preset URIs stay the same while the title does. Underlines, since not every host's command line
/// takes hyphens.
std::string presetUri(const Plugin& plugin, const char* title)
{
    std::string name = adapters::slug(title);
    std::replace(name.begin(), name.end(), '-', '_');
    return turtle::iri(plugin.uri + "#preset_" + name);
}

std::vector<std::string> textUris(const VNK::HostedEffect& effect, const Plugin& plugin)
{
    std::vector<std::string> uris;
    for (int i = 0; i < effect.countTexts(); ++i) {
        VNK::TextInfo info;
        effect.getTextInfo(i, info);
        uris.push_back(turtle::iri(textUri(plugin, info)));
    }
    return uris;
}

std::string presetFile(const Plugin& plugin)
{
    return turtle::iri(plugin.fileName + "-presets.ttl");
}

/// The properties that stand for an effect's texts.
std::string describeTexts(const VNK::HostedEffect& effect, const Plugin& plugin)
{
    std::string all;
    for (int i = 0; i < effect.countTexts(); ++i) {
        VNK::TextInfo info;
        effect.getTextInfo(i, info);
        Node node;
        node.add("a", "lv2:Parameter")
            .add("rdfs:label", turtle::text(info.title))
            .add("rdfs:range", info.kind == VNK::TextKind::Plain ? "atom:String" : "atom:Path");
        if (*info.help) node.add("rdfs:comment", turtle::text(info.help));
        all += node.of(turtle::iri(textUri(plugin, info)));
    }
    return all;
}

}  // namespace

std::string turtleHeader()
{
    return R"(@prefix atom: <http://lv2plug.in/ns/ext/atom#> .
@prefix bufsz: <http://lv2plug.in/ns/ext/buf-size#> .
@prefix doap: <http://usefulinc.com/ns/doap#> .
@prefix foaf: <http://xmlns.com/foaf/0.1/> .
@prefix lv2: <http://lv2plug.in/ns/lv2core#> .
@prefix opts: <http://lv2plug.in/ns/ext/options#> .
@prefix owl: <http://www.w3.org/2002/07/owl#> .
@prefix patch: <http://lv2plug.in/ns/ext/patch#> .
@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .
@prefix pprops: <http://lv2plug.in/ns/ext/port-props#> .
@prefix pset: <http://lv2plug.in/ns/ext/presets#> .
@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .
@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .
@prefix rsz: <http://lv2plug.in/ns/ext/resize-port#> .
@prefix state: <http://lv2plug.in/ns/ext/state#> .
@prefix time: <http://lv2plug.in/ns/ext/time#> .
@prefix ui: <http://lv2plug.in/ns/extensions/ui#> .
@prefix units: <http://lv2plug.in/ns/extensions/units#> .
@prefix urid: <http://lv2plug.in/ns/ext/urid#> .
@prefix work: <http://lv2plug.in/ns/ext/worker#> .
@prefix xsd: <http://www.w3.org/2001/XMLSchema#> .

)";
}

std::string ownProperties()
{
    const auto property = [](const char* uri, const char* label, const char* comment) {
        return Node()
            .add("a", "rdf:Property , owl:DatatypeProperty")
            .add("rdfs:label", turtle::text(label))
            .add("rdfs:comment", turtle::text(comment))
            .of(turtle::iri(uri));
    };
    return property(kStateChunk, "effect state",
                    "Parameters and data of an effect, as the effect itself stores them.") +
           property(kStatePorts, "port values",
                    "Values of the control inputs at the time the state was stored.");
}

std::string announceEditor(const std::string& binary)
{
    return Node()
        .add("a", "ui:X11UI")
        .add("ui:binary", turtle::iri(binary))
        .add("lv2:requiredFeature", "ui:idleInterface , ui:parent")
        .add("lv2:optionalFeature", "ui:resize , ui:touch , urid:map , opts:options , "
                                    "<http://lv2plug.in/ns/ext/instance-access>")
        .add("opts:supportedOption", "ui:scaleFactor")
        .add("lv2:extensionData", "ui:idleInterface , ui:resize")
        .of(kEditor);
}

std::string announce(const Catalogue& catalogue, const Plugin& plugin, const std::string& binary)
{
    std::string text = Node()
                           .add("a", "lv2:Plugin")
                           .add("lv2:binary", turtle::iri(binary))
                           .add("rdfs:seeAlso", turtle::iri(plugin.fileName + ".ttl"))
                           .of(turtle::iri(plugin.uri));
    const auto effect = catalogue.create(plugin);
    for (int i = 0; const char* title = effect->programTitle(i); ++i)
        text += Node()
                    .add("a", "pset:Preset")
                    .add("lv2:appliesTo", turtle::iri(plugin.uri))
                    .add("rdfs:label", turtle::text(title))
                    .add("rdfs:seeAlso", presetFile(plugin))
                    .of(presetUri(plugin, title));
    return text;
}

std::string describe(const Catalogue& catalogue, const Plugin& plugin)
{
    const auto effect = catalogue.create(plugin);
    const auto& module = catalogue.factory().moduleInformation();
    const auto version = Version::of(module.version);
    const bool hasTexts = effect->countTexts() > 0;
    Node node;
    node.add("a", "lv2:Plugin , " + std::string(classOf(plugin, *effect)) + " , doap:Project")
        .add("doap:name", turtle::text(plugin.title))
        .add("doap:shortdesc", turtle::text(plugin.effect->name->text()));
    if (const char* description = plugin.effect->description->text(); *description)
        node.add("rdfs:comment", turtle::text(description));
    // Ours is under the ISC licence; the binary also holds a library under the GPL.
    node.add("doap:license", "<http://usefulinc.com/doap/licenses/gpl>")
        .add("doap:maintainer", Node()
                                    .add("a", "foaf:Person")
                                    .add("foaf:name", turtle::text(module.vendor))
                                    .add("foaf:homepage", turtle::iri(module.webAddress))
                                    .inBrackets(4))
        .add("lv2:minorVersion", turtle::integer(version.minor))
        .add("lv2:microVersion", turtle::integer(version.micro))
        .add("lv2:optionalFeature",
             std::string("lv2:hardRTCapable , urid:map , opts:options , bufsz:boundedBlockLength") +
                 (hasTexts ? " , work:schedule , state:mapPath , state:freePath" : ""))
        .add("opts:supportedOption", "bufsz:nominalBlockLength , bufsz:maxBlockLength")
        .add("lv2:extensionData", hasTexts ? "state:interface , work:interface" : "state:interface")
        .add("pg:mainInput", groupUri(plugin, "in"))
        .add("pg:mainOutput", groupUri(plugin, "out"))
        .add("lv2:port", turtle::list(describePorts(*effect, plugin)));
    node.add("ui:ui", kEditor);
    if (hasTexts) node.add("patch:writable", turtle::list(textUris(*effect, plugin)));
    return turtleHeader() + node.of(turtle::iri(plugin.uri)) + describeGroups(*effect, plugin) +
           describeTexts(*effect, plugin);
}

std::string describePresets(const Catalogue& catalogue, const Plugin& plugin)
{
    const auto effect = catalogue.create(plugin);
    std::string text;
    std::set<std::string> uris;
    for (int i = 0; const char* title = effect->programTitle(i); ++i) {
        if (!effect->loadProgram(i))
            throw std::runtime_error("preset " + std::string(title) + " of " + plugin.fileName +
                                     ": " + effect->refusalReason());
        const auto uri = presetUri(plugin, title);
        if (!uris.insert(uri).second)
            throw std::runtime_error("two presets of " + plugin.fileName + " share the URI " + uri);
        std::vector<std::string> values;
        for (const auto& port : plugin.ports) {
            VNK::ParameterInfo p{};
            if (port.role != Port::Role::Parameter || !effect->getParameter(port.index, p) ||
                !p.isStored())
                continue;
            values.push_back("[ lv2:symbol " + turtle::text(port.symbol) + " ; pset:value " +
                             turtle::number(effect->getValue(port.index)) + " ]");
        }
        VNK::StringSink chunk;
        if (!effect->saveState(chunk)) throw std::runtime_error("out of memory");
        text += Node()
                    .add("a", "pset:Preset")
                    .add("lv2:appliesTo", turtle::iri(plugin.uri))
                    .add("rdfs:label", turtle::text(title))
                    .add("lv2:port", turtle::list(values, " ,\n        "))
                    .add("state:state", "[ " + turtle::iri(kStateChunk) + " \"" +
                                            base64(chunk.text()) + "\"^^xsd:base64Binary ]")
                    .of(uri);
    }
    return text.empty() ? text : turtleHeader() + text;
}

}  // namespace quillworks::lv2
