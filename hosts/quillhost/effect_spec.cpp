// SPDX-License-Identifier: ISC
#include "effect_spec.h"

#include <regex>
#include <set>

#include "lv2_effect.h"
#include "text.h"

namespace quillhost {

namespace {

/// Where the name ends. A URI holds colons too: its settings begin behind the first one that a
/// symbol and "=" follow.
std::size_t endOfName(const std::string& text)
{
    if (!isLv2(text)) return text.find(':');
    static const std::regex settings(":[A-Za-z_][A-Za-z0-9_]*=");
    std::smatch found;
    const bool isThere = std::regex_search(text, found, settings);
    return isThere ? static_cast<std::size_t>(found.position()) : std::string::npos;
}

}  // namespace

std::string settingsOf(const std::string& text)
{
    const auto colon = endOfName(text);
    return colon == std::string::npos ? "default settings" : text.substr(colon + 1);
}

EffectSpec parseEffectSpec(const std::string& text)
{
    EffectSpec spec;
    const auto colon = endOfName(text);
    spec.name = text.substr(0, colon);
    if (folded(spec.name).empty())
        throw UsageError("an effect has no name in " + inQuotes(text) + " (NAME:key=value,...)");
    if (colon == std::string::npos) return spec;
    for (std::size_t at = colon + 1; at <= text.size();) {
        const auto comma = std::min(text.find(',', at), text.size());
        const auto part = text.substr(at, comma - at);
        at = comma + 1;
        const auto equals = part.find('=');
        if (equals != std::string::npos && equals > 0)
            spec.values.emplace_back(part.substr(0, equals), part.substr(equals + 1));
        else if (equals == std::string::npos && !spec.values.empty())
            spec.values.back().second += "," + part;
        else
            throw UsageError(inQuotes(part) + " in " + inQuotes(text) + " is not key=value");
    }
    return spec;
}

Effect createEffect(const Session& session, const EffectSpec& spec)
{
    Effect effect = session.create(spec.name);
    std::set<std::string> given;
    for (const auto& [key, value] : spec.values) {
        if (effect.findText(key) < 0) effect.value(effect.find(key), value);
        if (!given.insert(folded(key)).second)
            session.note(effect.name() + ": " + key + " is given twice (the last one holds)");
    }
    for (const auto& preset : spec.presets)
        if (const auto remark = effect.loadPreset(preset); !remark.empty()) session.note(remark);
    for (const auto& [key, value] : spec.values) effect.set(key, value);
    return effect;
}

}  // namespace quillhost
