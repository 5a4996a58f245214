// SPDX-License-Identifier: ISC
// State of a component: as songs and presets keep it, and how it takes the place of another.
#include <cmath>

#include "framework/effect_component.h"

namespace quillworks {
namespace {

constexpr Tag kMix = "Mix "_tag;

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

bool AudioEffectComponent::fit(StoredState& state, std::string& remark) const
{
    if (state.classId != classId_) return remark = "it belongs to another effect", false;
    if (state.algorithmVersion.value_or(1) > traits_.algorithmVersion)
        return remark = "it was stored by a newer version of the effect", false;
    remark.clear();
    const auto note = [&](const std::string& key, const char* what) {
        remark += (remark.empty() ? "\"" : ", \"") + key + "\" " + what;
    };
    std::erase_if(state.parameters, [&](const auto& entry) {
        if (std::isfinite(entry.second)) return false;
        note(entry.first, "is not finite and takes its default");
        return true;
    });
    migrate(state);
    std::vector<std::pair<std::string, float>> values;
    for (const auto& p : list_.parameters()) {
        if (!p.isStored()) continue;
        const float* stored = state.find(p.key);
        const float value = p.limited(stored ? *stored : p.defaultValue);
        if (stored && value != *stored) note(p.key, "is limited to its range");
        values.emplace_back(p.key, value);
    }
    state.parameters = std::move(values);
    for (const auto& [key, attribute] : attributes_)
        if (attribute.isStored && !state.attribute<std::int64_t>(key))
            state.attributes[key] = attribute.defaultValue;
    for (const auto& text : texts_) {
        const auto* stored = state.attribute<std::string>(text.info.key);
        std::string value = stored ? stored->substr(0, stored->find('\0')) : text.info.defaultText;
        if (value.size() > VNK::kLongestText) {
            note(text.info.key, "is too long and takes its default");
            value = text.info.defaultText;
        }
        state.attributes[text.info.key] = std::move(value);
    }
    return true;
}

void AudioEffectComponent::apply(const StoredState& state, Source source)
{
    /// One gesture of all that changes, however this ends.
    struct Gesture {
        explicit Gesture(AudioEffectComponent* c) : component(c)
        {
            if (component) component->beginGroupEdit();
        }
        ~Gesture()
        {
            if (component) component->endGroupEdit();
        }
        AudioEffectComponent* const component;
    };
    const bool isGesture = source == Source::Person;
    const Gesture gesture(isGesture ? this : nullptr);
    const auto stays = [&](const AlgorithmParameter& p) {
        return (p.has(VNK::isBypass) && isGesture) ||
               (p.tag == kMix && isWetLocked_ && source != Source::Song);
    };
    auto stored = state.parameters.begin();
    for (std::int32_t i = 0; i < countParameters(); ++i) {
        if (!at(i).isStored()) continue;
        const float value = (stored++)->second;
        if (stays(at(i)) || (isGesture && value == getValue(i))) continue;
        if (isGesture) joinGroup(i);
        store(i, value);
    }
    for (const auto& [key, attribute] : attributes_)
        if (attribute.isStored) setInteger(key.c_str(), *state.attribute<std::int64_t>(key));
    std::vector<const Text*> changed;
    for (auto& text : texts_)
        if (assignText(text, *state.attribute<std::string>(text.info.key)))
            changed.push_back(&text);
    restored(state);
    for (const auto* text : changed) textChanged(text->info.key);
    reconcile();
    edited();
    announceDelays();
    tell("processStateChanged");
    if (auto* const listener = listener_.get())
        for (std::int32_t i = 0; i < countParameters(); ++i)
            if (isGesture ? valueAt(i).inGroup : at(i).isStored()) listener->parameterChanged(i);
}

bool AudioEffectComponent::restore(StoredState state, Source source)
{
    // What had to be put right is told, but is no reason to refuse the rest.
    if (!fit(state, refusal_)) return false;
    nameProgram(std::move(state.name));
    const bool wasModified = source == Source::Song && takeFromSong(state);
    apply(state, source);
    reference_.reset();
    if (!wasModified) reference_ = fingerprint();
    return true;
}

bool AudioEffectComponent::saveState(VNK::IByteSink* sink) const noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (!sink) return false;
    try {
        auto state = storedState();
        state.dropBlobsBeyond(kLargestChunkBlobs);
        addToSong(state);
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
        return readChunk(data, bytes, state, refusal_) && restore(std::move(state), Source::Song);
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
        return readPreset(data, bytes, state, refusal_) &&
               restore(std::move(state), Source::Preset);
    } catch (...) {
        refusal_ = "no memory";
        return false;
    }
}

}  // namespace quillworks
