// SPDX-License-Identifier: ISC
// Presets of a component: those that come with the effect, and the user's own.
#include <cstring>

#include "framework/effect_component.h"
#include "framework/resources.h"
#include "vnk/file.h"

namespace quillworks {
namespace {

constexpr const char* kUnnamed = "(Unnamed)";

}  // namespace

/// Factory presets: resources/presets/PREFIX/*.fxpreset, by file name. Looked for when first asked,
/// and again if that failed.
void AudioEffectComponent::scanPrograms() const
{
    if (programs_) return;
    std::vector<Program> found;
    const auto folder = resourcesFolder() + "/presets/" + traits_.viewPrefix;
    for (const auto& file : VNK::listFiles(folder.c_str(), kPresetExtension)) {
        const auto slash = file.find_last_of('/') + 1;
        const auto length = file.size() - slash - std::strlen(kPresetExtension);
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
        const auto program = (*programs_)[static_cast<std::size_t>(index)];
        return loadPresetFile(program.file, program.title);
    } catch (...) {
        return false;
    }
}

bool AudioEffectComponent::loadPresetFile(const std::string& file, const std::string& name)
{
    std::string text;
    StoredState state;
    if (!VNK::readFile(file.c_str(), kLargestPreset, text, refusal_) ||
        !readPreset(text.data(), text.size(), state, refusal_))
        return false;
    state.name = name;
    return restore(std::move(state), Source::Person);
}

UserPresets& AudioEffectComponent::userPresets() const
{
    if (!userPresets_)
        userPresets_ = std::make_unique<UserPresets>(userPresetsFolder(traits_.viewPrefix));
    return *userPresets_;
}

/// f(presets) for a person, whose editor then looks at the list anew.
template <class F> bool AudioEffectComponent::managePresets(F&& f) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    try {
        const bool isDone = f(userPresets());
        edited();
        return isDone;
    } catch (...) {
        refusal_ = "no memory";
        return false;
    }
}

void AudioEffectComponent::findPresets() noexcept
{
    managePresets([](UserPresets& presets) { return presets.find(), true; });
}

std::int32_t AudioEffectComponent::countUserPresets() const noexcept
{
    try {
        return static_cast<std::int32_t>(userPresets().names().size());
    } catch (...) {
        return 0;
    }
}

const char* AudioEffectComponent::userPresetName(std::int32_t index) const noexcept
{
    if (index < 0 || index >= countUserPresets()) return nullptr;
    return userPresets_->names()[static_cast<std::size_t>(index)].c_str();
}

bool AudioEffectComponent::loadUserPreset(std::int32_t index) noexcept
{
    return managePresets([&](UserPresets& presets) {
        if (!userPresetName(index)) return refusal_ = kNoSuchPreset, false;
        const std::string name = userPresetName(index);
        const auto file = presets.path(name);
        // Files that it names may lie beside it.
        const auto songFolder = std::exchange(baseFolder_, file.substr(0, file.find_last_of('/')));
        const bool isLoaded = loadPresetFile(file, name);
        baseFolder_ = songFolder;
        return isLoaded;
    });
}

bool AudioEffectComponent::saveUserPreset(const char* name, bool replace) noexcept
{
    return managePresets([&](UserPresets& presets) {
        auto state = storedState();
        const auto dropped = state.dropBlobsBeyond(kLargestPresetBlobs);
        if (!presets.save(name ? name : "", std::move(state), replace, refusal_)) return false;
        programName_ = name;
        reference_ = fingerprint();
        refusal_ = dropped.empty() ? "" : dropped + " is too long for a preset and is left out";
        return true;
    });
}

bool AudioEffectComponent::renameUserPreset(std::int32_t index, const char* name) noexcept
{
    return managePresets([&](UserPresets& presets) {
        if (!userPresetName(index)) return refusal_ = kNoSuchPreset, false;
        const std::string before = userPresetName(index);
        if (!presets.rename(before, name ? name : "", refusal_)) return false;
        if (programName_ == before) programName_ = name;
        return true;
    });
}

bool AudioEffectComponent::removeUserPreset(std::int32_t index) noexcept
{
    return managePresets([&](UserPresets& presets) {
        if (!userPresetName(index)) return refusal_ = kNoSuchPreset, false;
        return presets.remove(std::string(userPresetName(index)), refusal_);
    });
}

const char* AudioEffectComponent::programName() const noexcept
{
    return programName_.empty() ? kUnnamed : programName_.c_str();
}

void AudioEffectComponent::nameProgram(std::string name) noexcept
{
    // The name of none, which hosts may hand back, is none; one beyond all reason too.
    if (name == kUnnamed || name.size() > VNK::kLongestText) name.clear();
    programName_ = std::move(name);
}

}  // namespace quillworks
