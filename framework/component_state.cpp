// SPDX-License-Identifier: ISC
// State, presets and programs of a component.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "framework/effect_component.h"
#include "framework/resources.h"
#include "vnk/file.h"

namespace quillworks {
namespace {

constexpr const char* kExtension = ".fxpreset";

}  // namespace

StoredState AudioEffectComponent::storedState() const
{
    StoredState state;
    state.classId = classId_;
    state.className = name_;
    state.algorithmVersion = traits_.algorithmVersion;
    for (std::int32_t i = 0; i < countParameters(); ++i)
        if (at(i).isStored()) state.parameters.emplace_back(at(i).key, getValue(i));
    for (const auto& [key, attribute] : attributes_)
        if (attribute.isStored) state.attributes[key] = attribute.value;
    for (const auto& text : texts_) state.attributes[text.info.key] = text.value;
    complete(state);
    return state;
}

bool AudioEffectComponent::restore(StoredState state)
{
    if (state.classId != classId_) return refusal_ = "it belongs to another effect", false;
    if (state.algorithmVersion.value_or(1) > traits_.algorithmVersion)
        return refusal_ = "it was stored by a newer version of the effect", false;
    // What has to be put right is told, but is no reason to refuse the rest.
    std::string remark;
    const auto note = [&](const std::string& key, const char* what) {
        remark += (remark.empty() ? "\"" : ", \"") + key + "\" " + what;
    };
    std::erase_if(state.parameters, [&](const auto& entry) {
        if (std::isfinite(entry.second)) return false;
        note(entry.first, "is not finite and takes its default");
        return true;
    });
    migrate(state);
    for (std::int32_t i = 0; i < countParameters(); ++i) {
        const auto& p = at(i);
        if (!p.isStored()) continue;
        const float* stored = state.find(p.key);
        const float value = p.limited(stored ? *stored : p.defaultValue);
        if (stored && value != *stored) note(p.key, "is limited to its range");
        store(i, value);
    }
    for (auto& [key, attribute] : attributes_) {
        if (!attribute.isStored) continue;
        const auto* n = state.attribute<std::int64_t>(key);
        setInteger(key.c_str(), n ? *n : attribute.defaultValue);
    }
    std::vector<const Text*> changed;
    for (auto& text : texts_) {
        const auto* stored = state.attribute<std::string>(text.info.key);
        std::string value = stored ? stored->substr(0, stored->find('\0')) : text.info.defaultText;
        if (value.size() > VNK::kLongestText) {
            note(text.info.key, "is too long and takes its default");
            value = text.info.defaultText;
        }
        if (assignText(text, std::move(value))) changed.push_back(&text);
    }
    restored(state);
    for (const auto* text : changed) textChanged(text->info.key);
    refusal_ = std::move(remark);
    programName_ = std::move(state.name);
    reconcile();
    announceDelays();
    tell("processStateChanged");
    if (auto* const listener = listener_.get())
        for (std::int32_t i = 0; i < countParameters(); ++i)
            if (at(i).isStored()) listener->parameterChanged(i);
    return true;
}

bool AudioEffectComponent::saveState(VNK::IByteSink* sink) const noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (!sink) return false;
    try {
        auto state = storedState();
        state.dropBlobsBeyond(kLargestChunkBlobs);
        const auto chunk = writeChunk(state);
        return sink->write(chunk.data(), chunk.size());
    } catch (...) {
        return false;
    }
}

bool AudioEffectComponent::loadState(const void* data, std::size_t bytes) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    try {
        StoredState state;
        return readChunk(data, bytes, state, refusal_) && restore(std::move(state));
    } catch (...) {
        refusal_ = "no memory";
        return false;
    }
}

bool AudioEffectComponent::savePreset(const char* name, VNK::IByteSink* sink) const noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (!name || !sink) return false;
    try {
        auto state = storedState();
        state.name = name;
        const auto dropped = state.dropBlobsBeyond(kLargestPresetBlobs);
        refusal_ = dropped.empty() ? "" : dropped + " is too long for a preset and is left out";
        const auto document = writePreset(state);
        return sink->write(document.data(), document.size());
    } catch (...) {
        return false;
    }
}

bool AudioEffectComponent::loadPreset(const void* data, std::size_t bytes) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    try {
        StoredState state;
        return readPreset(data, bytes, state, refusal_) && restore(std::move(state));
    } catch (...) {
        refusal_ = "no memory";
        return false;
    }
}

/// Factory presets: resources/presets/PREFIX/*.fxpreset, by file name. Looked for when first asked,
/// and again if that failed.
void AudioEffectComponent::scanPrograms() const
{
    if (programs_) return;
    std::vector<Program> found;
    const auto folder = resourcesFolder() + "/presets/" + traits_.viewPrefix;
    for (const auto& file : VNK::listFiles(folder.c_str(), kExtension)) {
        const auto slash = file.find_last_of('/') + 1;
        const auto length = file.size() - slash - std::strlen(kExtension);
        found.push_back({file.substr(slash, length), file});
    }
    programs_ = std::move(found);
}

std::int32_t AudioEffectComponent::countPrograms() const noexcept
{
    try {
        scanPrograms();
    } catch (...) {
        return 0;
    }
    return static_cast<std::int32_t>(programs_->size());
}

const char* AudioEffectComponent::programTitle(std::int32_t index) const noexcept
{
    if (index < 0 || index >= countPrograms()) return nullptr;
    return (*programs_)[static_cast<std::size_t>(index)].title.c_str();
}

bool AudioEffectComponent::loadProgram(std::int32_t index) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (!programTitle(index)) return false;
    try {
        std::string text;
        const auto& file = (*programs_)[static_cast<std::size_t>(index)].file;
        return VNK::readFile(file.c_str(), kLargestPreset, text, refusal_) &&
               loadPreset(text.data(), text.size());
    } catch (...) {
        return false;
    }
}

}  // namespace quillworks
