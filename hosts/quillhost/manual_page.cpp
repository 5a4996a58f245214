// SPDX-License-Identifier: ISC
#include "manual_page.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "chain.h"
#include "effect_info.h"
#include "table.h"
#include "text.h"

namespace quillhost {
namespace {

constexpr double kRate = 48000;
constexpr int kMostChoices = 32;        // of a list that are named one by one
constexpr std::size_t kMostListed = 8;  // members of a family whose values are all written
constexpr int kMostEqual = 3;           // of a family that a preset names one by one

std::string joined(const std::vector<std::string>& words, const char* between = ", ")
{
    std::string all;
    for (const auto& word : words) {
        if (!all.empty()) all += between;
        all += word;
    }
    return all;
}

/// Text in a cell of a table.
std::string cell(const std::string& text)
{
    std::string safe;
    for (const char c : text) {
        if (c == '|' || c == '<' || c == '*' || c == '_') safe += '\\';
        safe += c;
    }
    return safe;
}

std::string code(const std::string& text)
{
    return "`" + text + "`";
}

std::string table(const std::vector<Row>& rows)
{
    std::string all;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        all += "| " + joined(rows[i], " | ") + " |\n";
        if (i > 0) continue;
        for (std::size_t column = 0; column < rows[i].size(); ++column) all += "|---";
        all += "|\n";
    }
    return all + "\n";
}

/// "120 ms", "1.5 s".
std::string duration(double seconds)
{
    if (seconds >= 1) return fixedText(seconds, 1) + " s";
    return fixedText(seconds * 1000, seconds < 0.01 ? 2 : 0) + " ms";
}

std::string baseOf(const std::string& key)
{
    auto end = key.size();
    while (end > 0 && std::isdigit(static_cast<unsigned char>(key[end - 1]))) --end;
    return key.substr(0, end);
}

/// Parameters or meters that are one row of the effect's table, by index.
struct Family {
    std::vector<int> members;
    std::string keys;
};

/// Of `count` entries those that `info` gives, in their order; `info` is empty for what is left
/// out.
template <class Info, class Get> std::vector<Family> families(int count, Get get)
{
    std::vector<Family> all;
    std::map<std::string, std::size_t> known;
    for (int i = 0; i < count; ++i) {
        Info info{};
        if (!get(i, info)) continue;
        const std::string name = info.index < 0 ? info.key : baseOf(info.key) + "#";
        const auto [at, isNew] = known.emplace(name, all.size());
        if (isNew) all.push_back({{}, code(info.key)});
        auto& family = all[at->second];
        family.members.push_back(i);
        if (!isNew)
            family.keys = family.keys.substr(0, family.keys.find(' ')) + " to " + code(info.key);
    }
    return all;
}

bool isSet(const VNK::ParameterInfo& p)
{
    return !p.has(VNK::isReadOnly) && !p.has(VNK::isHidden);
}

bool isBypassSwitch(const VNK::ParameterInfo& p)
{
    return p.has(VNK::isBypass);
}

std::vector<Family> parametersOf(const Effect& effect)
{
    return families<VNK::ParameterInfo>(effect.component().countParameters(),
                                        [&](int i, VNK::ParameterInfo& p) {
                                            p = effect.parameter(i);
                                            return isSet(p);
                                        });
}

// Parameters.

std::string rangeOf(const Effect& effect, int index)
{
    const auto p = effect.parameter(index);
    if (p.has(VNK::isTrigger)) return "button";
    if (p.kind == VNK::ValueKind::Toggle) return "off, on";
    if (const auto texts = choicesOf(effect, index); !texts.empty()) {
        const bool isCounted = texts.size() > 6 &&
                               std::isdigit(static_cast<unsigned char>(texts[0][0])) &&
                               std::isdigit(static_cast<unsigned char>(texts.back()[0]));
        if (isCounted || texts.size() > kMostChoices) return texts.front() + " to " + texts.back();
        return joined(texts);
    }
    const auto low = effect.text(index, p.minimum), high = effect.text(index, p.maximum);
    // "4 : 1" is what a person types and reads.
    if (std::string_view(p.unit) == "ratio") return low + " to " + high;
    std::string range = effect.range(index, " to ");
    if (*p.minText && range.find(low) == std::string::npos) range += ", lowest " + low;
    if (*p.maxText && range.find(high) == std::string::npos) range += ", highest " + high;
    return range;
}

/// One text where all members agree, else all of them, or the first of many.
template <class Text> std::string agreed(const std::vector<int>& members, Text text)
{
    std::vector<std::string> texts;
    for (const int member : members) texts.push_back(text(member));
    const bool isOne = std::all_of(texts.begin(), texts.end(),
                                   [&](const std::string& each) { return each == texts[0]; });
    if (isOne) return texts[0];
    if (texts.size() <= kMostListed) return joined(texts);
    texts.resize(kMostListed / 2);
    return joined(texts) + ", ...";
}

Row parameterRow(const Effect& effect, const Family& family)
{
    const int first = family.members[0];
    const auto p = effect.parameter(first);
    std::string help = p.help;
    if (isBypassSwitch(p) && help.empty()) help = "Passes the input on, faded over 10 ms.";
    if (*p.drivenBy) {
        const auto driver = effect.parameter(effect.find(p.drivenBy));
        help += std::string(help.empty() ? "" : " ") + "Taken over by " + driver.title + ".";
    }
    const auto standard =
        p.has(VNK::isTrigger) ? std::string() : agreed(family.members, [&](int i) {
            return effect.text(i, effect.parameter(i).defaultValue);
        });
    return {cell(p.title), family.keys, cell(rangeOf(effect, first)), cell(standard), cell(help)};
}

std::string parameters(const Effect& effect)
{
    // In the order in which the groups come first; what belongs to none stands at the end.
    std::vector<std::pair<std::string, std::vector<Row>>> groups;
    std::vector<Row> others;
    for (const auto& family : parametersOf(effect)) {
        const std::string group = effect.parameter(family.members[0]).group;
        auto row = parameterRow(effect, family);
        if (group.empty()) {
            others.push_back(std::move(row));
            continue;
        }
        auto at = std::find_if(groups.begin(), groups.end(),
                               [&](const auto& each) { return each.first == group; });
        if (at == groups.end()) at = groups.insert(at, {group, {}});
        at->second.push_back(std::move(row));
    }
    if (!others.empty()) groups.emplace_back("Others", std::move(others));
    std::string all = "## Parameters\n\n";
    for (auto& [group, rows] : groups) {
        rows.insert(rows.begin(), {"parameter", "key", "range", "as it opens", "what it does"});
        all += "### " + group + "\n\n" + table(rows);
    }
    return all;
}

std::string texts(const Session& session, const Effect& effect)
{
    std::vector<Row> rows = {{"text", "key", "kind", "as it opens", "what it is"}};
    for (int i = 0; i < effect.component().countTexts(); ++i) {
        const auto t = effect.text(i);
        std::string kind = kindName(t.kind);
        for (const auto& type : fileTypes(session, effect, t)) kind += " ." + type;
        rows.push_back({cell(t.title), code(t.key), kind, cell(t.defaultText), cell(t.help)});
    }
    return rows.size() == 1 ? "" : "### Files and names\n\n" + table(rows);
}

std::string meters(const Effect& effect)
{
    const auto& component = effect.component();
    std::vector<Row> rows = {{"reading", "key", "range"}};
    const auto all =
        families<VNK::MeterInfo>(component.countMeters(), [&](int i, VNK::MeterInfo& m) {
            return component.getMeter(i, m);
        });
    for (const auto& family : all) {
        VNK::MeterInfo m{};
        component.getMeter(family.members[0], m);
        std::vector<std::string> choices;
        for (int step = 0; step < m.choices; ++step)
            choices.emplace_back(component.meterChoice(family.members[0], step));
        std::string range = shortText(m.minimum) + " to " + shortText(m.maximum);
        if (*m.unit) range += std::string(" ") + m.unit;
        rows.push_back(
            {cell(m.title), family.keys, choices.empty() ? range : cell(joined(choices))});
    }
    if (rows.size() == 1) return "";
    const bool hasFamilies = all.size() < static_cast<std::size_t>(component.countMeters());
    return std::string("## Readings\n\n") +
           (hasFamilies
                ? "Numbers in keys count channels, bands or taps from 0; here for stereo.\n\n"
                : "") +
           table(rows);
}

// Presets.

std::string settings(const Effect& effect)
{
    const auto& component = effect.component();
    std::vector<std::string> all;
    for (const auto& family : parametersOf(effect)) {
        std::vector<std::string> changed;
        const auto first = effect.parameter(family.members[0]);
        if (isBypassSwitch(first)) continue;
        for (const int i : family.members) {
            const auto p = effect.parameter(i);
            const float value = component.getValue(i);
            if (!p.isStored() || value == p.defaultValue) continue;
            const std::string number = p.index < 0 ? "" : " " + std::to_string(p.index + 1);
            changed.push_back(p.title + number + " " + effect.text(i, value));
        }
        if (changed.size() > kMostEqual)
            changed = {first.title + std::string(" (") + std::to_string(changed.size()) +
                       " of them)"};
        all.insert(all.end(), changed.begin(), changed.end());
    }
    for (int i = 0; i < component.countTexts(); ++i) {
        const auto t = effect.text(i);
        const std::string text = component.getText(i);
        if (text != t.defaultText) all.push_back(t.title + std::string(" ") + text);
    }
    return all.empty() ? "as it opens" : joined(all, "; ");
}

std::string presets(const Effect& effect)
{
    const auto& component = effect.component();
    std::vector<Row> rows = {{"preset", "what it sets"}};
    for (int i = 0; i < component.countPrograms(); ++i)
        if (component.loadProgram(i))
            rows.push_back({cell(component.programTitle(i)), cell(settings(effect))});
    return rows.size() == 1 ? "" : "## Presets\n\n" + table(rows);
}

// What a host sees.

constexpr const char* kLayouts[] = {"mono", "stereo", "lcr",   "quad",  "5.0",   "5.1",
                                    "7.0",  "7.1",    "5.1.4", "7.1.2", "7.1.4", "9.1.6"};

std::string layouts(const Effect& effect)
{
    constexpr std::size_t kFew = 4;
    const auto accepts = [&](const char* in, const char* out) {
        VNK::SpeakerArrangement input, output;
        return VNK::SpeakerArrangement::named(in, input) &&
               VNK::SpeakerArrangement::named(out, output) &&
               effect.algorithm().acceptsArrangement(input, output);
    };
    std::vector<std::string> same, toAny, apart;
    for (const char* in : kLayouts) {
        std::vector<std::string> outs;
        for (const char* out : kLayouts)
            if (in != out && accepts(in, out)) outs.push_back(out);
        if (outs.size() > kFew)
            toAny.push_back(in);
        else if (accepts(in, in))
            same.push_back(in);
        if (!outs.empty() && outs.size() <= kFew)
            apart.push_back(std::string(in) + " to " + joined(outs, " or "));
    }
    const auto listed = [](const std::vector<std::string>& names) {
        return names.size() == std::size(kLayouts) ? std::string("every layout from mono to 9.1.6")
                                                   : joined(names);
    };
    int most = 0;
    for (int n = 3; n <= VNK::kMaxChannels; ++n)
        if (const auto count = std::to_string(n); accepts(count.c_str(), count.c_str())) most = n;
    std::vector<std::string> all;
    if (!same.empty()) all.push_back(listed(same));
    if (!toAny.empty()) all.push_back(listed(toAny) + " to any layout up to 9.1.6");
    if (most > 0) all.push_back("up to " + std::to_string(most) + " channels");
    all.insert(all.end(), apart.begin(), apart.end());
    return joined(all);
}

std::int64_t latencyAt(const Effect& effect, double rate)
{
    ChainSetup setup;
    const auto usual = effect.usualLayouts();
    setup.sampleRate = rate;
    setup.input = usual.input;
    setup.output = usual.output;
    const Chain chain({effect}, setup);
    chain.waitUntilReady();
    return chain.latency();
}

std::string samples(std::int64_t count, double rate)
{
    if (count == 0) return "none";
    return std::to_string(count) + " samples (" + duration(static_cast<double>(count) / rate) + ")";
}

/// Settings away from the others' defaults at which the delay is another one.
std::vector<std::string> otherLatencies(const Effect& effect, std::int64_t usual)
{
    const auto& component = effect.component();
    std::vector<std::string> all;
    for (const auto& family : parametersOf(effect)) {
        const int i = family.members[0];
        const auto p = effect.parameter(i);
        if (isBypassSwitch(p) || p.has(VNK::isTrigger) || p.isTempo) continue;
        std::vector<float> values = {p.minimum, p.maximum};
        if (p.kind == VNK::ValueKind::List && p.maximum - p.minimum < kMostChoices) {
            values.clear();
            for (float v = p.minimum; v <= p.maximum; ++v) values.push_back(v);
        }
        for (const float value : values) {
            if (value == p.defaultValue) continue;
            component.setValue(i, value);
            const auto latency = latencyAt(effect, kRate);
            if (latency != usual)
                all.push_back(std::string(p.title) + " " + effect.text(i, value) + ": " +
                              samples(latency, kRate));
        }
        component.setValue(i, p.defaultValue);
    }
    return all;
}

std::string latency(const Effect& effect)
{
    const auto usual = latencyAt(effect, kRate);
    std::string text = samples(usual, kRate);
    std::vector<std::string> rates;
    for (const double rate : {44100.0, 96000.0, 192000.0})
        if (const auto there = latencyAt(effect, rate); there != usual)
            rates.push_back(std::to_string(there) + " at " + shortText(rate / 1000) + " kHz");
    if (usual != 0) text += " at 48 kHz";
    if (!rates.empty()) text += ", " + joined(rates);
    if (const auto others = otherLatencies(effect, usual); !others.empty())
        text += "; with " + joined(others, "; ");
    return text;
}

std::string facts(const Effect& effect)
{
    std::vector<std::string> forms;
    for (const auto& view : viewsOf(effect)) forms.push_back(view.substr(view.find('/') + 1));
    const auto tail = effect.algorithm().getTailLength();
    const auto name = pageName(effect.name());
    std::vector<Row> rows = {
        {" ", " "},
        {"Layouts", layouts(effect)},
        {"Side-chain", effect.algorithm().hasSideChain() ? "yes" : "no"},
        {"Latency", cell(latency(effect))},
        {"Goes on after the input", tail == VNK::kEndlessTail ? "for ever, as it opens"
                                    : tail == 0               ? "no"
                                                : duration(tail / kRate) + ", as it opens"},
        {"Forms", joined(forms)},
        {"On the command line", code("quillhost render in.wav out.wav --fx " + name)}};
    return table(rows);
}

}  // namespace

ManualNotes manualNotes(const std::string& text)
{
    ManualNotes notes;
    const auto sections = text.starts_with("## ") ? 0 : text.find("\n## ");
    auto intro = text.substr(0, sections);
    while (!intro.empty() && intro.back() == '\n') intro.pop_back();
    const auto end = intro.find("\n\n");
    notes.summary = intro.substr(0, end);
    std::replace(notes.summary.begin(), notes.summary.end(), '\n', ' ');
    if (end != std::string::npos) notes.about = intro.substr(end + 2) + "\n";
    if (sections != std::string::npos) notes.more = text.substr(sections + (sections > 0));
    return notes;
}

std::string pageName(const std::string& effect)
{
    std::string name;
    for (const char c : effect)
        name += c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

std::string manualPage(const Session& session, const Effect& effect, const ManualNotes& notes)
{
    prepareAsUsual(effect);
    std::string page = "# " + effect.name() + "\n\n" + notes.summary + "\n\n![The editor of " +
                       effect.name() + "](pictures/" + pageName(effect.name()) + ".png)\n\n";
    if (!notes.about.empty()) page += notes.about + "\n";
    page += facts(effect);
    page += parameters(effect);
    page += texts(session, effect);
    page += meters(effect);
    page += presets(effect);  // the last: they leave their settings
    page += notes.more;
    while (page.ends_with("\n\n")) page.pop_back();
    return page;
}

}  // namespace quillhost
