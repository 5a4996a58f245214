// SPDX-License-Identifier: ISC
// A skin held against the effects it lays out.
#include <algorithm>
#include <charconv>
#include <set>
#include <string_view>

#include "one_line.h"
#include "vnk/hosted_effect.h"
#include "vnk/skin.h"

namespace VNK {
namespace {

/// Knobs stand in cells of 9 units, one unit of margin on each side of the panel.
/// Attributes of displays that name no value.
constexpr std::string_view kLiterals[] = {"kind", "lowOrder", "kneeWidth", "choice", "ground"};
constexpr int kKnobCell = 9, kPanelMargin = 2;

bool overlap(const SkinBox& a, const SkinBox& b)
{
    return a.page == b.page && a.x < b.x + b.w && b.x < a.x + a.w && a.y < b.y + b.h &&
           b.y < a.y + a.h;
}

/// Whether a control of this kind can show the parameter.
bool fits(std::string_view control, const ParameterInfo& p)
{
    if (p.has(isReadOnly)) return control == "Readout";
    if (p.has(isTrigger)) return control == "Button";
    if (p.kind == ValueKind::Toggle) return control == "Toggle";
    if (p.kind == ValueKind::List)
        return control == "Segments" || control == "Choice" || control == "Knob";
    return control == "Knob" || control == "Slider";
}

std::string tagText(Tag tag)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(tag >> shift & 0xFF);
    return text;
}

class EffectCheck {
public:
    EffectCheck(const SkinEffect& effect, const HostedEffect& component, std::string& reason)
        : effect_(effect), component_(component), reason_(reason)
    {}

    bool run()
    {
        std::set<std::string> offered;
        for (int i = 0; const char* name = component_.viewName(i); ++i) {
            offered.insert(name);
            const auto& views = effect_.views;
            if (std::none_of(views.begin(), views.end(),
                             [&](const SkinView& v) { return v.name == name; }))
                return fail("the form of \"" + std::string(name) + "\" is missing");
        }
        for (const auto& view : effect_.views) {
            if (!offered.contains(view.name))
                return fail(effect_.className + " has no view \"" + view.name + "\"");
            if (view.title.empty()) return fail(view.name + " has no title");
            if (!checkPlaces(view) || !checkControls(view)) return false;
        }
        return true;
    }

private:
    bool fail(std::string text)
    {
        reason_ = oneLine(std::move(text));
        return false;
    }

    bool failUnreached(const std::string& key, const SkinView& view)
    {
        return fail("\"" + key + "\" cannot be reached in " + view.name);
    }

    bool checkPlaces(const SkinView& view)
    {
        for (std::size_t i = 0; i < view.boxes.size(); ++i) {
            const auto& box = view.boxes[i];
            const std::string what = box.kind + " \"" + box.title + "\" of " + view.name;
            if (box.x < 0 || box.y < 0 || box.x > view.width - box.w || box.y > view.height - box.h)
                return fail(what + " leaves the form");
            for (std::size_t k = 0; k < i; ++k)
                if (overlap(box, view.boxes[k])) return fail(what + " overlaps another");
            const auto knobs = std::count_if(box.controls.begin(), box.controls.end(),
                                             [](const auto& c) { return c.kind == "Knob"; });
            if (box.kind == "Panel" && knobs > 0 &&
                box.w < static_cast<int>(knobs) * kKnobCell + kPanelMargin)
                return fail(what + " is too narrow for its knobs");
        }
        return true;
    }

    bool checkControls(const SkinView& view)
    {
        std::set<std::string> bound;
        for (const auto& box : view.boxes) {
            for (const auto& [name, value] : box.attributes)
                if (std::ranges::find(kLiterals, name) == std::end(kLiterals) &&
                    !bindFamily(value, bound) && !isKnown(value))
                    return fail("a display of " + view.name + " names the unknown value \"" +
                                value + "\"");
        }
        std::set<std::string> controls;
        for (const auto& box : view.boxes)
            for (const auto& control : box.controls)
                if (!checkControl(view, control, controls)) return false;
        bound.merge(controls);
        if (!view.name.ends_with("/Editor")) return true;
        for (int i = 0; i < component_.countParameters(); ++i) {
            ParameterInfo p;
            component_.getParameter(i, p);
            const bool mustShow = p.isStored() && p.isAutomatable() && !p.has(isHidden) &&
                                  !p.has(isBypass);  // the header has the bypass switch
            if (mustShow && !bound.contains(p.key)) return failUnreached(p.key, view);
        }
        TextInfo text;
        for (int i = 0; component_.getTextInfo(i, text); ++i)
            if (!bound.contains(text.key)) return failUnreached(text.key, view);
        return true;
    }

    bool checkControl(const SkinView& view, const SkinControl& control,
                      std::set<std::string>& bound)
    {
        const std::string what = control.kind + " \"" + control.key + "\" of " + view.name;
        const int index = component_.findParameter(control.key.c_str());
        if (control.kind == "File") {
            if (component_.findText(control.key.c_str()) < 0) return fail(what + " names no text");
        } else if (index < 0) {
            if (control.kind != "Readout" || !isKnown(control.key))
                return fail(what + " names no parameter");
        } else {
            ParameterInfo p;
            component_.getParameter(index, p);
            if (!fits(control.kind, p)) return fail(what + " does not fit the parameter's kind");
        }
        if (!bound.insert(control.key).second) return fail(what + " stands twice");
        for (const char* reference : {"disabledBy", "under"})
            if (const auto at = control.attributes.find(reference);
                at != control.attributes.end() && component_.findParameter(at->second.c_str()) < 0)
                return fail(what + " refers to the unknown \"" + at->second + "\"");
        return true;
    }

    /// A display that names a family of parameters, by its key without the index or by its base
    /// tag, makes all of them reachable. False if there is no such family.
    bool bindFamily(const std::string& name, std::set<std::string>& bound) const
    {
        bool isFamily = false;
        for (int i = 0; i < component_.countParameters(); ++i) {
            ParameterInfo p;
            component_.getParameter(i, p);
            if (p.index < 0 || p.has(isReadOnly)) continue;
            const auto index = std::to_string(p.index);
            const auto base = std::to_string(p.tag - static_cast<Tag>(p.index));
            if (p.key != name + index && name != base) continue;
            bound.insert(p.key);
            isFamily = true;
        }
        return isFamily;
    }

    /// A parameter's key or tag, or a meter's; numeric tags by their number.
    bool isKnown(const std::string& name) const
    {
        if (component_.findParameter(name.c_str()) >= 0) return true;
        Tag number = 0;
        const auto end = name.data() + name.size();
        const bool isNumber = std::from_chars(name.data(), end, number).ptr == end;
        const auto matches = [&](const char* key, Tag tag) {
            return name == key || name == tagText(tag) || (isNumber && tag == number);
        };
        for (int i = 0; i < component_.countParameters(); ++i) {
            ParameterInfo p;
            component_.getParameter(i, p);
            if (matches(p.key, p.tag)) return true;
        }
        for (int i = 0; i < component_.countMeters(); ++i) {
            MeterInfo m;
            component_.getMeter(i, m);
            if (matches(m.key, m.tag)) return true;
        }
        return false;
    }

    const SkinEffect& effect_;
    const HostedEffect& component_;
    std::string& reason_;
};

const ClassDescription* findClass(IClassFactory& factory, const std::string& name)
{
    for (int i = 0; i < factory.countClasses(); ++i)
        if (name == factory.getClass(i)->name->text()) return factory.getClass(i);
    return nullptr;
}

}  // namespace

bool checkSkin(const Skin& skin, IClassFactory& factory, std::string& reason)
{
    std::set<std::string> seen;
    for (const auto& effect : skin.effects) {
        const auto* description = findClass(factory, effect.className);
        if (!description || !seen.insert(effect.className).second) {
            reason = oneLine("the effect \"" + effect.className + "\" is unknown or stands twice");
            return false;
        }
        const auto component = HostedEffect::create(factory, description->classId);
        if (!component) {
            reason = "the effect \"" + effect.className + "\" cannot be created";
            return false;
        }
        if (!EffectCheck(effect, *component, reason).run()) return false;
    }
    return true;
}

}  // namespace VNK
