// SPDX-License-Identifier: ISC
#include "automation.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "text.h"
#include "vnk/file.h"

namespace quillhost {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kLargestFile = std::size_t{1} << 28;

std::int64_t wholeNumber(const Json& event, const char* key, const std::string& where)
{
    const auto at = event.find(key);
    if (at == event.end() || !at->is_number() || at->get<double>() < 0 ||
        at->get<double>() > 0x1p53 || at->get<double>() != std::floor(at->get<double>()))
        throw UsageError(where + ": " + inQuotes(key) + " must be a whole number from 0 on");
    return static_cast<std::int64_t>(at->get<double>());
}

std::string valueText(const Json& value)
{
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
    return shortText(value.get<double>());
}

}  // namespace

std::vector<AutomationEvent> readAutomation(const std::string& path,
                                            const std::vector<Effect>& effects)
{
    std::string content, reason;
    if (!VNK::readFile(path.c_str(), kLargestFile, content, reason))
        throw WorkError(path + ": " + reason);
    return parseAutomation(content, path, effects);
}

std::vector<AutomationEvent> parseAutomation(std::string_view content, const std::string& path,
                                             const std::vector<Effect>& effects)
{
    const Json document = Json::parse(content, nullptr, false);
    if (!document.is_array())
        throw WorkError(path + ": is not a JSON array of {\"frame\",\"fx\",\"key\",\"value\"}");
    std::vector<AutomationEvent> events;
    events.reserve(document.size());
    for (const auto& entry : document) {
        const std::string where = path + ": entry " + std::to_string(events.size());
        if (!entry.is_object()) throw UsageError(where + " is no object");
        AutomationEvent event;
        event.frame = wholeNumber(entry, "frame", where);
        event.effect = static_cast<std::size_t>(wholeNumber(entry, "fx", where));
        if (event.effect >= effects.size())
            throw UsageError(where + ": there is no fx " + std::to_string(event.effect) +
                             " (0 to " + std::to_string(effects.size() - 1) + ")");
        const auto key = entry.find("key"), value = entry.find("value");
        if (key == entry.end() || !key->is_string())
            throw UsageError(where + ": \"key\" must be the key of a parameter");
        if (value == entry.end() || !(value->is_primitive() && !value->is_null()))
            throw UsageError(where + ": \"value\" must be a number or a text of the list");
        const auto& effect = effects[event.effect];
        try {
            event.parameter = effect.find(key->get<std::string>());
            event.value = effect.value(event.parameter, valueText(*value));
            const auto p = effect.parameter(event.parameter);
            // The tempo is the song's, which has a course of its own.
            if (!p.isAutomatable() && !p.isTempo)
                throw UsageError(inQuotes(p.key) + " cannot be automated");
        } catch (const UsageError& e) {
            throw UsageError(where + ": " + e.what());
        }
        events.push_back(event);
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const auto& a, const auto& b) { return a.frame < b.frame; });
    return events;
}

}  // namespace quillhost
