// SPDX-License-Identifier: ISC
#include "lv2_ports.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/port-props/port-props.h>
#include <lv2/time/time.h>
#include <lv2/units/units.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include "hosts/lilv/lilv_host.h"
#include "sound_file.h"
#include "text.h"

namespace quillhost {
namespace {

struct Free {
    void operator()(LilvNode* node) const noexcept { lilv_node_free(node); }
    void operator()(LilvScalePoints* points) const noexcept { lilv_scale_points_free(points); }
};
using Node = std::unique_ptr<LilvNode, Free>;

bool isNumber(const LilvNode* node)
{
    return node && (lilv_node_is_float(node) || lilv_node_is_int(node));
}

/// Reads the ports of one plug-in.
class Reader {
public:
    Reader(LilvWorld* world, const LilvPlugin* plugin) : world_(world), plugin_(plugin) {}

    bool is(const LilvPort* port, const char* type) const
    {
        return lilv_port_is_a(plugin_, port, uri(type).get());
    }
    bool has(const LilvPort* port, const char* property) const
    {
        return lilv_port_has_property(plugin_, port, uri(property).get());
    }
    bool isDesignated(const LilvPort* port, const char* what) const
    {
        const Node node(lilv_port_get(plugin_, port, uri(LV2_CORE__designation).get()));
        return node && lilv_node_is_uri(node.get()) &&
               std::string_view(lilv_node_as_uri(node.get())) == what;
    }
    bool takes(const LilvPort* port, const char* event) const
    {
        return lilv_port_supports_event(plugin_, port, uri(event).get());
    }
    Lv2Control control(std::uint32_t index, const LilvPort* port) const;

private:
    Node uri(const char* text) const { return Node(lilv_new_uri(world_, text)); }
    std::string unitOf(const LilvPort* port) const;
    void readPoints(const LilvPort* port, Lv2Control& c) const;

    LilvWorld* world_;
    const LilvPlugin* plugin_;
};

std::string Reader::unitOf(const LilvPort* port) const
{
    constexpr std::pair<const char*, const char*> kUnits[] = {
        {LV2_UNITS__db, "dB"},
        {LV2_UNITS__hz, "Hz"},
        {LV2_UNITS__khz, "kHz"},
        {LV2_UNITS__ms, "ms"},
        {LV2_UNITS__s, "s"},
        {LV2_UNITS__pc, "%"},
        {LV2_UNITS__cent, "ct"},
        {LV2_UNITS__bpm, "bpm"},
        {LV2_UNITS__degree, "deg"},
        {LV2_UNITS__beat, "beats"},
        {LV2_UNITS__semitone12TET, "st"},
    };
    const Node unit(lilv_port_get(plugin_, port, uri(LV2_UNITS__unit).get()));
    if (!unit) return "";
    if (lilv_node_is_uri(unit.get()))
        for (const auto& [known, text] : kUnits)
            if (std::string_view(lilv_node_as_uri(unit.get())) == known) return text;
    const Node symbol(lilv_world_get(world_, unit.get(), uri(LV2_UNITS__symbol).get(), nullptr));
    return symbol && lilv_node_is_string(symbol.get()) ? lilv_node_as_string(symbol.get()) : "";
}

void Reader::readPoints(const LilvPort* port, Lv2Control& c) const
{
    const std::unique_ptr<LilvScalePoints, Free> points(lilv_port_get_scale_points(plugin_, port));
    LILV_FOREACH(scale_points, i, points.get())
    {
        const auto* point = lilv_scale_points_get(points.get(), i);
        const auto* value = lilv_scale_point_get_value(point);
        if (isNumber(value))
            c.points.emplace_back(lilv_node_as_float(value),
                                  lilv_node_as_string(lilv_scale_point_get_label(point)));
    }
    std::sort(c.points.begin(), c.points.end());
}

Lv2Control Reader::control(std::uint32_t index, const LilvPort* port) const
{
    constexpr float kUnbounded = 1e6f;
    Lv2Control c;
    c.port = index;
    c.symbol = lilv_node_as_string(lilv_port_get_symbol(plugin_, port));
    const Node title(lilv_port_get_name(plugin_, port));
    c.title = title ? lilv_node_as_string(title.get()) : c.symbol;
    c.unit = unitOf(port);
    LilvNode *def = nullptr, *low = nullptr, *high = nullptr;
    lilv_port_get_range(plugin_, port, &def, &low, &high);
    const Node owned[] = {Node(def), Node(low), Node(high)};
    c.minimum = isNumber(low) ? lilv_node_as_float(low) : -kUnbounded;
    c.maximum = isNumber(high) ? lilv_node_as_float(high) : kUnbounded;
    if (has(port, LV2_CORE__sampleRate)) {  // parts of the rate, whichever that will be
        c.minimum *= kHighestRate;
        c.maximum *= kHighestRate;
    }
    readPoints(port, c);
    const bool isToggle = has(port, LV2_CORE__toggled);
    c.isInteger = isToggle || has(port, LV2_CORE__integer) || has(port, LV2_CORE__enumeration);
    c.isLogarithmic = has(port, LV2_PORT_PROPS__logarithmic) && c.minimum > 0;
    c.isTrigger = has(port, LV2_PORT_PROPS__trigger);
    if (isToggle) {
        c.kind = VNK::ValueKind::Toggle;
        c.minimum = 0;
        c.maximum = 1;
    } else if (has(port, LV2_CORE__enumeration)) {
        // A list has a text for each whole number of its range.
        bool isWhole = float(c.points.size()) == c.maximum - c.minimum + 1;
        for (std::size_t i = 0; i < c.points.size(); ++i)
            isWhole = isWhole && c.points[i].first == c.minimum + float(i);
        if (isWhole) c.kind = VNK::ValueKind::List;
        if (!isWhole) c.isInteger = false;
    }
    c.def = c.limited(isNumber(def) ? lilv_node_as_float(def) : std::max(c.minimum, 0.0f));
    return c;
}

}  // namespace

void Lv2Control::describe(std::int32_t index, VNK::ParameterInfo& info) const noexcept
{
    info = {};
    info.key = symbol.c_str();
    info.tag = static_cast<VNK::Tag>(index);
    info.title = info.shortTitle = title.c_str();
    info.group = info.help = info.drivenBy = info.minText = info.maxText = "";
    info.unitKey = info.unit = unit.c_str();
    info.kind = kind;
    info.minimum = minimum;
    info.maximum = maximum;
    info.defaultValue = info.origin = def;
    info.flags = (kind == VNK::ValueKind::Toggle ? VNK::isToggle : 0u) |
                 (kind == VNK::ValueKind::List ? VNK::isList : 0u) |
                 (isTrigger ? VNK::isTrigger : 0u);
    info.index = -1;
    info.choices = kind == VNK::ValueKind::List ? static_cast<std::int32_t>(points.size()) : 0;
    info.logarithmic = isLogarithmic;
}

void Lv2Control::describe(std::int32_t index, VNK::MeterInfo& info) const noexcept
{
    info = {};
    info.key = symbol.c_str();
    info.tag = static_cast<VNK::Tag>(index);
    info.title = title.c_str();
    info.unit = unit.c_str();
    info.kind = VNK::ValueKind::Continuous;
    info.minimum = minimum;
    info.maximum = maximum;
    info.index = -1;
}

float Lv2Control::limited(float value) const noexcept
{
    value = std::clamp(value, minimum, std::max(minimum, maximum));
    return isInteger ? std::nearbyint(value) : value;
}

float Lv2Control::place(float value) const noexcept
{
    if (!(maximum > minimum)) return 0;
    value = limited(value);
    return isLogarithmic ? std::log(value / minimum) / std::log(maximum / minimum)
                         : (value - minimum) / (maximum - minimum);
}

float Lv2Control::atPlace(float position) const noexcept
{
    position = std::clamp(position, 0.0f, 1.0f);
    return limited(isLogarithmic ? minimum * std::pow(maximum / minimum, position)
                                 : minimum + (maximum - minimum) * position);
}

std::string Lv2Control::textOf(float value) const
{
    for (const auto& [at, name] : points)
        if (at == value) return name;
    if (kind == VNK::ValueKind::Toggle) return value > 0 ? "on" : "off";
    return shortText(value) + (unit.empty() ? "" : " " + unit);
}

bool Lv2Control::read(const std::string& text, float& value) const
{
    float n = 0;
    const bool isNumber = readNumber(text, n);
    if (isNumber && n >= minimum && n <= maximum && (!isInteger || n == std::nearbyint(n))) {
        value = n;
        return true;
    }
    for (const auto& [at, name] : points)
        if (sameName(name, text)) return value = at, true;
    if (kind != VNK::ValueKind::Toggle) return false;
    if (sameName(text, "on")) return value = 1, true;
    if (sameName(text, "off")) return value = 0, true;
    return false;
}

Lv2Ports::Lv2Ports(quillworks::lilv::World& world, const LilvPlugin* plugin)
{
    const Reader reader(world.get(), plugin);
    const auto latencyPort = lilv_plugin_has_latency(plugin)
                                 ? static_cast<int>(lilv_plugin_get_latency_port_index(plugin))
                                 : -1;
    for (std::uint32_t i = 0; i < lilv_plugin_get_num_ports(plugin); ++i) {
        const LilvPort* const port = lilv_plugin_get_port_by_index(plugin, i);
        const bool isInput = reader.is(port, LV2_CORE__InputPort);
        if (reader.is(port, LV2_CORE__AudioPort)) {
            const bool isKey = isInput && reader.has(port, LV2_CORE_PREFIX "isSideChain");
            (isKey ? sideChain : isInput ? inputs : outputs).push_back(i);
        } else if (reader.is(port, LV2_CORE__CVPort)) {
            cv.push_back(i);
        } else if (reader.is(port, LV2_CORE__ControlPort)) {
            if (static_cast<int>(i) == latencyPort) latency = static_cast<int>(meters.size());
            if (!isInput)
                meters.push_back(reader.control(i, port));
            else if (!reader.isDesignated(port, LV2_CORE_PREFIX "freeWheeling"))
                controls.push_back(reader.control(i, port));
        } else if (isInput && reader.is(port, LV2_ATOM__AtomPort)) {
            takesPosition = takesPosition || reader.takes(port, LV2_TIME__Position);
        }
    }
    // A stereo plug-in with more inputs listens to them.
    if (sideChain.empty() && outputs.size() == 2 && inputs.size() > 2) {
        sideChain.assign(inputs.begin() + 2, inputs.end());
        inputs.resize(2);
    }
}

std::string Lv2Ports::lacking(const LilvPlugin* plugin)
{
    constexpr const char* kOffered[] = {
        LV2_URID__map,           LV2_URID__unmap,
        LV2_OPTIONS__options,    LV2_BUF_SIZE__boundedBlockLength,
        LV2_WORKER__schedule,    LV2_CORE__inPlaceBroken,
        LV2_CORE__hardRTCapable,
    };
    std::string lacking;
    LilvNodes* const required = lilv_plugin_get_required_features(plugin);
    LILV_FOREACH(nodes, i, required)
    {
        const std::string_view uri = lilv_node_as_uri(lilv_nodes_get(required, i));
        if (std::find(std::begin(kOffered), std::end(kOffered), uri) == std::end(kOffered))
            lacking = uri;
    }
    lilv_nodes_free(required);
    return lacking;
}

}  // namespace quillhost
