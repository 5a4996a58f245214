// SPDX-License-Identifier: ISC
#include "effect_spec.h"

#include <set>
#include <string_view>

#include "lv2_effect.h"
#include "text.h"
#include "vnk/file.h"
#include "vnk/xml.h"

namespace quillhost {

namespace {

/// Where the name ends. A URI holds colons too: its settings begin behind the first one that a
/// symbol and "=" follow.
std::size_t endOfName(const std::string& text)
{
    auto colon = text.find(':');
    if (!isLv2(text)) return colon;
    constexpr std::string_view kDigits = "0123456789";
    constexpr std::string_view kInSymbols =
        "0123456789_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (; colon != std::string::npos; colon = text.find(':', colon + 1)) {
        const auto end = text.find_first_not_of(kInSymbols, colon + 1);
        if (end == std::string::npos) return end;
        if (text[end] == '=' && end > colon + 1 && kDigits.find(text[colon + 1]) == kDigits.npos)
            break;
    }
    return colon;
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

std::vector<EffectSpec> parseChainSpec(const Session& session, const std::string& text)
{
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const auto comma = std::min(text.find(',', at), text.size());
        const auto part = text.substr(at, comma - at);
        at = comma + 1;
        const auto head = part.substr(0, endOfName(part));
        if (parts.empty() || session.has(head))
            parts.push_back(part);
        else
            parts.back() += "," + part;
    }
    std::vector<EffectSpec> specs;
    for (const auto& part : parts) specs.push_back(parseEffectSpec(part));
    return specs;
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

Effect createFromPreset(const Session& session, const std::string& path)
{
    constexpr std::size_t kLargest = 1 << 20;
    std::string content, reason;
    if (!VNK::readFile(path.c_str(), kLargest, content, reason))
        throw WorkError(path + ": " + reason);
    VNK::XmlDocument document;
    if (!document.parse(content.data(), content.size()))
        throw WorkError(path + ": is not a preset: " + document.error());
    VNK::UID id;
    if (!VNK::UID::parse(document.root().attribute("classID"), id))
        throw WorkError(path + ": is not a preset: it names no class");
    for (const auto* c : session.classes()) {
        if (c->classId != id) continue;
        const Effect effect = session.create(*c);
        if (const auto remark = effect.loadPreset(path); !remark.empty()) session.note(remark);
        return effect;
    }
    throw WorkError(path + ": is for " + inQuotes(document.root().attribute("className")) +
                    ", which this module does not offer");
}

}  // namespace quillhost
