// SPDX-License-Identifier: ISC
// The skin document as written.
#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

#include "one_line.h"
#include "vnk/skin.h"
#include "vnk/xml.h"

namespace VNK {
namespace {

constexpr const char* kBaseVariant = "dark";
constexpr const char* kColors[] = {
    "bg",
    "panel",
    "well",
    "raised",
    "edge",
    "track",
    "grid",
    "grid2",
    "text",
    "text2",
    "text3",
    "focus",
    "level",
    "out",
    "ok",
    "warn",
    "ink",
    "accent-dynamics",
    "accent-mixing",
    "accent-distortion",
    "accent-modulation",
    "accent-delay",
    "accent-reverb",
    "accent-analysis",
    "accent-spatial",
};
constexpr const char* kTypes[] = {"title",  "compactTitle", "panelTitle", "label",
                                  "button", "value",        "axis",       "meterScale"};
constexpr const char* kControls[] = {"Knob",   "Slider", "Toggle",  "Segments",
                                     "Choice", "Button", "Readout", "File"};

/// Which attributes an element may have, between blanks: one that is misspelt would silently do
/// nothing.
struct Attributes {
    std::string_view owner, names;
};
constexpr Attributes kAttributes[] = {
    {"Skin", "version unit"},
    {"Tokens", "variant"},
    {"Color", "name value"},
    {"Type", "name font size"},
    {"Effect", "class accent"},
    {"View", "name title width height"},
    {"Header", ""},
    {"Panel", "title page x y w h"},
    {"Display", "kind x y w h"},
    {"Knob", "key title origin disabledBy"},
    {"Slider", "key title origin disabledBy"},
    {"Toggle", "key title disabledBy under"},
    {"Segments", "key title disabledBy"},
    {"Choice", "key title disabledBy"},
    {"Button", "key title disabledBy under"},
    {"Readout", "key title"},
    {"File", "key title disabledBy"},
};
/// The kinds of display, and what each can be bound to.
constexpr Attributes kDisplays[] = {
    {"CurveDisplay", "threshold ratio knee kneeWidth on range point lowThreshold lowRatio amount "
                     "gain levels choice"},
    {"GainHistory", "in out reduction threshold hysteresis ceiling"},
    {"Meters", "in out reduction level rms hold rmsHold clip reset"},
    {"Loudness", "momentary shortTerm integrated low high truePeak"},
    {"EchoLine", "time beats feedback width mode"},
    {"ModWave", "wave rate depth sync beats stereo phase"},
    {"BandCurve", "splits split1 split2 bands thresholds gains reductions levels choice ground"},
    {"FilterCurve",
     "low high lowOrder slope resonance type stages left right mix mode centre range "
     "cycle on ground freq1 gain1 q1 bell1 freq2 gain2 q2 freq3 gain3 q3 freq4 gain4 q4 bell4"},
    {"BandKnobs",
     "bands thresholds ratios lowThresholds lowRatios ranges attacks releases gains on solo "
     "mute choice"},
    {"StepBars", "levels steps position"},
    {"StepCurve", "rate bits law gain"},
    {"Trace", "time trigger level pretrigger gain layout persistence"},
    {"StereoField", "view pair autogain gain persistence correlation"},
    {"BandCorrelation", "bands time"},
    {"Spectrum", "mode tilt top range low high weighting compare"},
    {"TapGrid",
     "on steps levels pans tones peaks beats time swing length feedback reduction frozen"},
    {"Taps",
     "beats time beatsRight timeRight offset stagger feedback routing reduction levels frozen"},
    {"ShapeCurve", "curve drive bias point"},
    {"CombCurve", "left right feedback damp invert mix"},
    {"PanArc", "left right leftLevel rightLevel position spread out"},
    {"PanField", "across along azimuth elevation distance width left right"},
    {"DecayCurve", "decay low lowFrequency high highFrequency air size"},
    {"Reflections", "shape size distance decay"},
    {"ResponseSpectrum", ""},
    {"SwellCurve", "decay swell"},
    {"ImpulseWave", "start length stretch reverse tail trim tailMode tailStart"},
    {"TailDecay", "mode decay time stretch"},
    {"VoiceField", "voices delays spread low high"},
};

const Attributes* find(const auto& table, std::string_view owner)
{
    for (const auto& row : table)
        if (row.owner == owner) return &row;
    return nullptr;
}

bool isAmong(std::string_view name, std::string_view names)
{
    while (!names.empty()) {
        const auto word = names.substr(0, names.find(' '));
        if (word == name) return true;
        names.remove_prefix(std::min(names.size(), word.size() + 1));
    }
    return false;
}

bool isOneOf(std::string_view name, const auto& names)
{
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

template <class N> bool number(std::string_view text, N& value, int base = 10)
{
    const auto end = text.data() + text.size();
    const auto result = [&] {
        if constexpr (std::is_integral_v<N>)
            return std::from_chars(text.data(), end, value, base);
        else
            return std::from_chars(text.data(), end, value);
    }();
    return result.ec == std::errc() && result.ptr == end && !text.empty();
}

class Reader {
public:
    Reader(Skin& skin, std::string& reason) : skin_(skin), reason_(reason) {}

    bool read(XmlElement root)
    {
        if (std::string_view(root.name()) != "Skin") return fail("the root is not Skin");
        if (!checkAttributes(root)) return false;
        int version = 0;
        if (!number(root.attribute("version"), version) || version != 1)
            return fail("the skin's version is not 1");
        if (!number(root.attribute("unit"), skin_.unit) || skin_.unit < 1 || skin_.unit > 64)
            return fail("the grid unit is not within 1 .. 64");
        for (auto e = root.child(); e; e = e.next()) {
            const std::string_view name = e.name();
            if (name == "Tokens" ? !tokens(e) : name == "Effect" ? !effect(e) : !unknown(e))
                return false;
        }
        return checkTokens();
    }

private:
    bool fail(std::string text)
    {
        reason_ = oneLine(std::move(text));
        return false;
    }
    bool unknown(XmlElement e) { return fail(std::string("a skin has no element ") + e.name()); }

    /// Of a known element and, for a display, of its kind.
    bool checkAttributes(XmlElement e)
    {
        const auto* own = find(kAttributes, e.name());
        if (!own) return unknown(e);
        std::string owner = e.name();
        std::string_view bindings;
        if (owner == "Display") {
            owner = e.attribute("kind");
            const auto* display = find(kDisplays, owner);
            if (!display) return fail("there is no display \"" + owner + "\"");
            bindings = display->names;
        }
        for (const char* name = e.firstAttribute(); name; name = e.nextAttribute(name))
            if (!isAmong(name, own->names) && !isAmong(name, bindings))
                return fail("a " + owner + " has no attribute \"" + name + "\"");
        return true;
    }

    bool tokens(XmlElement element)
    {
        if (!checkAttributes(element)) return false;
        const std::string variant = element.attribute("variant");
        if (variant.empty() || skin_.variants.contains(variant))
            return fail("the token variant \"" + variant + "\" is unnamed or stands twice");
        auto& tokens = skin_.variants[variant];
        for (auto e = element.child(); e; e = e.next()) {
            if (!checkAttributes(e)) return false;
            const std::string_view kind = e.name();
            const std::string name = e.attribute("name");
            if (kind == "Color") {
                const std::string_view value = e.attribute("value");
                std::uint32_t rgb = 0;
                if (value.size() != 7 || value[0] != '#' || !number(value.substr(1), rgb, 16))
                    return fail("the colour \"" + name + "\" is not of the form #RRGGBB");
                if (!isOneOf(name, kColors))
                    return fail("there is no colour token \"" + name + "\"");
                if (!tokens.colors.emplace(name, rgb).second)
                    return fail("the colour \"" + name + "\" stands twice");
            } else if (kind == "Type") {
                SkinType type{e.attribute("font"), 0};
                if (!number(e.attribute("size"), type.size) || !(type.size >= 9 && type.size <= 72))
                    return fail("the type \"" + name + "\" is not of 9 .. 72 px");
                if (!isOneOf(name, kTypes)) return fail("there is no type token \"" + name + "\"");
                if (!tokens.types.emplace(name, type).second)
                    return fail("the type \"" + name + "\" stands twice");
            } else {
                return unknown(e);
            }
        }
        return true;
    }

    bool checkTokens()
    {
        const auto& base = skin_.variants[kBaseVariant];
        for (const char* name : kColors)
            if (!base.colors.contains(name))
                return fail(std::string("the colour \"") + name + "\" is missing");
        for (const char* name : kTypes)
            if (!base.types.contains(name))
                return fail(std::string("the type \"") + name + "\" is missing");
        for (const auto& effect : skin_.effects)
            if (!base.colors.contains("accent-" + effect.accent))
                return fail(effect.className + " has the unknown accent \"" + effect.accent + "\"");
        return true;
    }

    bool effect(XmlElement element)
    {
        if (!checkAttributes(element)) return false;
        SkinEffect effect{element.attribute("class"), element.attribute("accent"), {}};
        for (auto e = element.child(); e; e = e.next()) {
            if (std::string_view(e.name()) != "View") return unknown(e);
            SkinView view;
            if (!readView(e, view)) return false;
            if (skin_.findView(view.name) || view.name.empty())
                return fail("the view \"" + view.name + "\" is unnamed or stands twice");
            effect.views.push_back(std::move(view));
        }
        skin_.effects.push_back(std::move(effect));
        return true;
    }

    bool readView(XmlElement element, SkinView& view)
    {
        if (!checkAttributes(element)) return false;
        view.name = element.attribute("name");
        view.title = element.attribute("title");
        if (!number(element.attribute("width"), view.width) ||
            !number(element.attribute("height"), view.height) || view.width < 1 || view.height < 1)
            return fail(view.name + " has no size");
        for (auto e = element.child(); e; e = e.next()) {
            SkinBox box;
            if (!readBox(e, view, box)) return false;
            view.boxes.push_back(std::move(box));
        }
        return true;
    }

    bool readBox(XmlElement e, const SkinView& view, SkinBox& box)
    {
        if (!checkAttributes(e)) return false;
        box.kind = e.name();
        box.title = e.attribute("title");
        box.page = e.attribute("page");
        if (box.kind == "Header") {  // across the top: 5 units in an Editor, 4 in smaller forms
            box.w = view.width;
            box.h = view.name.ends_with("/Editor") ? 5 : 4;
            return true;
        }
        if (box.kind != "Panel" && box.kind != "Display") return unknown(e);
        if (!number(e.attribute("x"), box.x) || !number(e.attribute("y"), box.y) ||
            !number(e.attribute("w"), box.w) || !number(e.attribute("h"), box.h) || box.w < 1 ||
            box.h < 1)
            return fail("a " + box.kind + " of " + view.name + " has no place");
        if (box.kind == "Display") {
            box.attributes = attributesOf(e);
            for (const char* place : {"x", "y", "w", "h"}) box.attributes.erase(place);
        }
        for (auto c = e.child(); c; c = c.next()) {
            if (box.kind == "Display" || !isOneOf(c.name(), kControls)) return unknown(c);
            if (!checkAttributes(c)) return false;
            box.controls.push_back({c.name(), c.attribute("key"), attributesOf(c)});
        }
        return true;
    }

    static std::map<std::string, std::string> attributesOf(XmlElement e)
    {
        std::map<std::string, std::string> all;
        for (const char* name = e.firstAttribute(); name; name = e.nextAttribute(name))
            all[name] = e.attribute(name);
        return all;
    }

    Skin& skin_;
    std::string& reason_;
};

}  // namespace

const SkinView* Skin::findView(const std::string& name) const noexcept
{
    for (const auto& effect : effects)
        for (const auto& view : effect.views)
            if (view.name == name) return &view;
    return nullptr;
}

bool readSkin(const void* data, std::size_t bytes, Skin& skin, std::string& reason)
{
    XmlDocument document;
    if (!document.parse(data, bytes)) {
        reason = "not a readable XML document: " + document.error();
        return false;
    }
    Skin read;
    if (!Reader(read, reason).read(document.root())) return false;
    skin = std::move(read);
    return true;
}

}  // namespace VNK
