// SPDX-License-Identifier: ISC
// quillhost info: what one effect offers.
#include <iostream>
#include <nlohmann/json.hpp>

#include "chain.h"
#include "command.h"
#include "displays.h"
#include "table.h"

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

std::vector<std::string> choices(const Effect& effect, int index, const VNK::ParameterInfo& p)
{
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

/// The endings that a browser lists for a text.
std::vector<std::string> fileTypes(const Session& session, const Effect& effect,
                                   const VNK::TextInfo& text)
{
    if (text.kind != VNK::TextKind::File) return {};
    return session.classAttribute(effect, "fileTypes");
}

std::vector<std::string> views(const Effect& effect)
{
    std::vector<std::string> names;
    for (int i = 0; const char* name = effect.component().viewName(i); ++i)
        names.emplace_back(name);
    return names;
}

void printJson(const Session& session, const Effect& effect)
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
        if (const auto texts = choices(effect, i, p); !texts.empty()) row["choices"] = texts;
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
    const Json all = {{"name", effect.name()},
                      {"classId", effect.classId()},
                      {"parameters", parameters},
                      {"views", views(effect)},
                      {"latency", effect.algorithm().getLatency()},
                      {"tail", tail == VNK::kEndlessTail ? Json() : Json(tail / kRate)},
                      {"meters", meters},
                      {"texts", texts},
                      {"displays", displays},
                      {"hasDisplays", !displays.empty()},
                      {"passThrough", effect.isPassThrough()}};
    std::cout << all.dump(1) << "\n";
}

void printTable(const Session& session, const Effect& effect)
{
    std::cout << effect.name() << "  " << effect.classId() << "\n";
    if (effect.isPassThrough()) std::cout << "passes audio through for now\n";
    const auto tail = effect.algorithm().getTailLength();
    std::cout << "latency " << effect.algorithm().getLatency() << " samples at 48 kHz, tail "
              << (tail == VNK::kEndlessTail ? "endless" : fixedText(tail / kRate, 3) + " s")
              << "\n\n";
    std::vector<Row> rows = {{"key", "range", "default", "title"}};
    for (int i = 0; i < effect.component().countParameters(); ++i) {
        const auto p = effect.parameter(i);
        std::string range = effect.range(i, " .. ");
        if (p.kind == VNK::ValueKind::Toggle) range = "off, on";
        if (const auto texts = choices(effect, i, p); !texts.empty() && texts.size() <= 32) {
            range.clear();
            for (const auto& text : texts) range += (range.empty() ? "" : ", ") + text;
        }
        if (p.has(VNK::isReadOnly)) range += " (meter)";
        rows.push_back({p.key, range, effect.text(i, p.defaultValue), p.title});
    }
    for (int i = 0; i < effect.component().countTexts(); ++i) {
        const auto t = effect.text(i);
        std::string kind = kindName(t.kind);
        for (const auto& type : fileTypes(session, effect, t)) kind += " " + type;
        rows.push_back({t.key, kind, t.defaultText, t.title});
    }
    constexpr std::size_t kRange = 1;
    std::cout << columns(rows, {}, kRange);
    std::string meters;
    for (int i = 0; i < effect.component().countMeters(); ++i) {
        VNK::MeterInfo m{};
        effect.component().getMeter(i, m);
        meters += std::string(" ") + m.key;
    }
    std::string shownViews;
    for (const auto& view : views(effect)) shownViews += " " + view;
    for (const auto& line : {"meters:" + meters, "views:" + shownViews}) {
        if (line.back() == ':') continue;
        std::string indent = "\n";
        for (const auto& part : wrapped(line, kPageWidth - 2)) {
            std::cout << indent << part << "\n";
            indent = "  ";
        }
    }
}

std::function<int(Session&)> declare(CLI::App& app)
{
    struct Options {
        std::string effect;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    addOption(app, "EFFECT", options->effect, "display name or class ID");
    addFlag(app, "--json", options->json,
            "as a JSON object; latency in samples at 48 kHz, tail in seconds, null if endless");
    return [options](Session& session) {
        requireArgument(options->effect, "EFFECT", "info");
        const Effect effect = session.create(options->effect);
        prepareAsUsual(effect);
        options->json ? printJson(session, effect) : printTable(session, effect);
        return kDone;
    };
}

}  // namespace

extern const Command kInfo;
const Command kInfo = {"info", "parameters, meters, views and delay of an effect",
                       "  quillhost info compressor\n"
                       "  quillhost info \"Analog Delay\" --json\n"
                       "  quillhost info 450B506D-EB47-44BD-90C3-6E870AD65083",
                       declare};

}  // namespace quillhost
