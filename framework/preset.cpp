// SPDX-License-Identifier: ISC
// The document form of an effect's state.
#include <charconv>
#include <cmath>
#include <set>
#include <string_view>

#include "framework/base64.h"
#include "framework/stored_state.h"
#include "vnk/xml.h"

namespace quillworks {
namespace {

constexpr int kVersion = 1;

template <class N> bool readAll(std::string_view text, N& value)
{
    const auto end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

template <class N> std::string written(N value)
{
    char buffer[64];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    return {buffer, end};
}

/// "%.9g", which reads back to the same bits, but with "." in every locale.
std::string written(float value)
{
    char buffer[64];
    const auto end =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 9).ptr;
    return {buffer, end};
}

bool readAttribute(const VNK::XmlElement& element, AttributeValue& value)
{
    const std::string_view type = element.attribute("type"), text = element.attribute("value");
    if (type == "int") {
        std::int64_t n = 0;
        if (!readAll(text, n)) return false;
        value = n;
    } else if (type == "float") {
        float f = 0;
        if (!readAll(text, f) || !std::isfinite(f)) return false;
        value = f;
    } else if (type == "bytes") {
        Blob blob;
        if (!readBase64(text, blob.bytes)) return false;
        value = std::move(blob);
    } else {
        value = std::string(text);
    }
    return true;
}

std::string written(const AttributeValue& value)
{
    return std::visit(
        [](const auto& v) -> std::string {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, std::string>)
                return v;
            else if constexpr (std::is_same_v<V, Blob>)
                return base64(v.bytes);
            else
                return written(v);
        },
        value);
}

}  // namespace

float* StoredState::find(const std::string& key)
{
    for (auto& [k, value] : parameters)
        if (k == key) return &value;
    return nullptr;
}

void StoredState::set(const std::string& key, float value)
{
    if (float* stored = find(key))
        *stored = value;
    else
        parameters.emplace_back(key, value);
}

std::string StoredState::dropBlobsBeyond(std::size_t most)
{
    std::string dropped;
    for (;;) {
        std::size_t sum = 0, longest = 0;
        auto largest = attributes.end();
        for (auto at = attributes.begin(); at != attributes.end(); ++at) {
            const auto* blob = std::get_if<Blob>(&at->second);
            if (!blob) continue;
            sum += blob->bytes.size();
            if (blob->bytes.size() > longest) largest = at, longest = blob->bytes.size();
        }
        if (sum <= most) return dropped;
        dropped += (dropped.empty() ? "\"" : ", \"") + largest->first + "\"";
        attributes.erase(largest);
    }
}

std::string writePreset(const StoredState& state)
{
    VNK::XmlDocument document("AudioEffectPreset");
    const auto root = document.root();
    root.setAttribute("version", written(kVersion).c_str());
    root.setAttribute("classID", state.classId.text().c_str());
    root.setAttribute("className", state.className.c_str());
    root.setAttribute("name", state.name.c_str());
    const auto algorithm = root.addChild("AlgorithmData");
    if (state.algorithmVersion)
        algorithm.setAttribute("algorithmVersion", written(*state.algorithmVersion).c_str());
    const auto parameters = root.addChild("ParameterData");
    for (const auto& [key, value] : state.parameters) {
        const auto p = parameters.addChild("Parameter");
        p.setAttribute("key", key.c_str());
        p.setAttribute("value", written(value).c_str());
    }
    const auto component = root.addChild("ComponentData");
    for (const auto& [key, value] : state.attributes) {
        const auto a = component.addChild("Attribute");
        a.setAttribute("key", key.c_str());
        static constexpr const char* kTypes[] = {"int", "float", "string", "bytes"};
        a.setAttribute("type", kTypes[value.index()]);
        a.setAttribute("value", written(value).c_str());
    }
    return document.text();
}

bool readPreset(const void* data, std::size_t bytes, StoredState& state, std::string& reason)
{
    if (bytes > kLargestPreset) return reason = "the preset is larger than 1 MiB", false;
    VNK::XmlDocument document;
    if (!document.parse(data, bytes))
        return reason = "the preset is not a readable XML document", false;
    const auto root = document.root();
    if (std::string_view(root.name()) != "AudioEffectPreset")
        return reason = "the document is not an effect preset", false;
    StoredState read;
    int version = 0;
    if (!readAll(std::string_view(root.attribute("version")), version))
        return reason = "the preset tells no version", false;
    if (version > kVersion) return reason = "the preset is of a newer version", false;
    if (!VNK::UID::parse(root.attribute("classID"), read.classId))
        return reason = "the preset names no class", false;
    read.className = root.attribute("className");
    read.name = root.attribute("name");
    const std::string_view algorithmVersion =
        root.child("AlgorithmData").attribute("algorithmVersion");
    std::int64_t number = 0;
    if (readAll(algorithmVersion, number)) read.algorithmVersion = number;

    std::set<std::string> seen;
    for (auto p = root.child("ParameterData").child("Parameter"); p; p = p.next("Parameter")) {
        const std::string key = p.attribute("key");
        float value = 0;
        if (!seen.insert(key).second) return reason = "the key \"" + key + "\" stands twice", false;
        if (!readAll(std::string_view(p.attribute("value")), value))
            return reason = "the value of \"" + key + "\" is not a number", false;
        read.parameters.emplace_back(key, value);
    }
    for (auto a = root.child("ComponentData").child("Attribute"); a; a = a.next("Attribute")) {
        const std::string key = a.attribute("key");
        AttributeValue value;
        if (!readAttribute(a, value))
            return reason = "the attribute \"" + key + "\" is not readable", false;
        if (!read.attributes.emplace(key, std::move(value)).second)
            return reason = "the attribute \"" + key + "\" stands twice", false;
    }
    state = std::move(read);
    return true;
}

}  // namespace quillworks
