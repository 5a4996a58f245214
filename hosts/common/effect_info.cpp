// SPDX-License-Identifier: ISC
#include "effect_info.h"

#include <nlohmann/json.hpp>

#include "displays.h"
#include "text.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kRate = 48000;
constexpr int kMostSteps = 4096;  // of a list whose steps are named one by one

const char* kindName(const VNK::ParameterInfo& p)
{
    if (p.has(VNK::isReadOnly)) return "meter";
    switch (p.kind) {
    case VNK::ValueKind::Toggle:
        return "toggle";
    case VNK::ValueKind::List:
        return "list";
    case VNK::ValueKind::Continuous:
        break;
    }
    return "float";
}

/// Four characters where they are characters, else the number.
std::string tagText(VNK::Tag tag)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(tag >> shift & 0xFF);
    for (const char c : text)
        if (c < ' ' || c > '~') return std::to_string(tag);
    return text;
}

}  // namespace

std::vector<std::string> choicesOf(const Effect& effect, int index)
{
    const auto p = effect.parameter(index);
    std::vector<std::string> texts;
    if (p.kind == VNK::ValueKind::List && p.maximum - p.minimum < float(kMostSteps))
        for (float v = p.minimum; v <= p.maximum; ++v) texts.push_back(effect.text(index, v));
    return texts;
}

const char* kindName(VNK::TextKind kind)
{
    switch (kind) {
    case VNK::TextKind::File:
        return "file";
    case VNK::TextKind::Folder:
        return "folder";
    case VNK::TextKind::Plain:
        break;
    }
    return "text";
}

std::vector<std::string> fileTypes(const Session& session, const Effect& effect,
                                   const VNK::TextInfo& text)
{
    if (text.kind != VNK::TextKind::File) return {};
    return session.classAttribute(effect, "fileTypes");
}

std::vector<std::string> viewsOf(const Effect& effect)
{
    std::vector<std::string> names;
    for (int i = 0; const char* name = effect.component().viewName(i); ++i)
        names.emplace_back(name);
    return names;
}

Json effectInfo(const Session& session, const Effect& effect)
{
    Json parameters = Json::array(), meters = Json::array(), texts = Json::array();
    const auto& component = effect.component();
    for (int i = 0; i < component.countParameters(); ++i) {
        const auto p = effect.parameter(i);
        Json row = {{"key", p.key},
                    {"title", p.title},
                    {"tag", tagText(p.tag)},
                    {"unit", p.unit},
                    {"kind", kindName(p)},
                    {"min", asShown(p.minimum)},
                    {"max", asShown(p.maximum)},
                    {"default", asShown(p.defaultValue)},
                    {"readOnly", p.has(VNK::isReadOnly)}};
        if (const auto texts = choicesOf(effect, i); !texts.empty()) row["choices"] = texts;
        row["group"] = p.group;
        row["help"] = p.help;
        row["shortTitle"] = p.shortTitle;
        if (*p.drivenBy) row["drivenBy"] = p.drivenBy;
        if (*p.minText) row["minText"] = p.minText;
        if (*p.maxText) row["maxText"] = p.maxText;
        row["origin"] = asShown(p.origin);
        if (p.wraps) row["wraps"] = true;
        parameters.push_back(std::move(row));
    }
    for (int i = 0; i < component.countMeters(); ++i) {
        VNK::MeterInfo m{};
        component.getMeter(i, m);
        Json row = {{"key", m.key},
                    {"title", m.title},
                    {"tag", tagText(m.tag)},
                    {"unit", m.unit},
                    {"kind", m.kind == VNK::ValueKind::List ? "list" : "float"},
                    {"min", asShown(m.minimum)},
                    {"max", asShown(m.maximum)}};
        for (int step = 0; step < m.choices; ++step)
            row["choices"].push_back(component.meterChoice(i, step));
        meters.push_back(std::move(row));
    }
    for (int i = 0; i < component.countTexts(); ++i) {
        const auto t = effect.text(i);
        Json row = {{"key", t.key},
                    {"title", t.title},
                    {"kind", kindName(t.kind)},
                    {"default", t.defaultText},
                    {"help", t.help}};
        if (const auto types = fileTypes(session, effect, t); !types.empty())
            row["fileTypes"] = types;
        texts.push_back(std::move(row));
    }
    const auto tail = effect.algorithm().getTailLength();
    const auto displays = Displays::namesOf(effect);
    return {{"name", effect.name()},
            {"classId", effect.classId()},
            {"parameters", parameters},
            {"views", viewsOf(effect)},
            {"latency", effect.algorithm().getLatency()},
            {"tail", tail == VNK::kEndlessTail ? Json() : Json(tail / kRate)},
            {"meters", meters},
            {"texts", texts},
            {"displays", displays},
            {"hasDisplays", !displays.empty()},
            {"passThrough", effect.isPassThrough()}};
}

}  // namespace quillhost
