// SPDX-License-Identifier: ISC
// Interfaces of an effect: what editors need beside the parameters, and the user's own presets.
#pragma once

#include <cstdint>

#include "vnk/object.h"

namespace VNK {

/// Two settings to compare, A and B, of which one is heard; what has changed; editors counted.
/// Both settings are stored with the song.
class IEffectEditing : public IObject {
public:
    static constexpr UID iid = UID::constant("{2F0B6E51-9E0D-4E6C-8F53-7B5E7C0A9D21}");

    /// 0 for A, 1 for B.
    virtual std::int32_t comparedSet() const noexcept = 0;
    /// Makes the other set heard, every change of it within one group edit. False beyond 1.
    virtual bool selectSet(std::int32_t set) noexcept = 0;
    /// The set that is not heard becomes as the one that is.
    virtual void copyToOtherSet() noexcept = 0;
    virtual bool setsDiffer() const noexcept = 0;

    /// Counts whatever an editor shows and no parameter's changeCount tells: the program's name,
    /// the presets, texts, the sets, the wet lock. [any thread]
    virtual std::uint32_t editCount() const noexcept = 0;
    /// Whether anything stored has been changed since a preset was loaded or saved.
    virtual bool isModified() const noexcept = 0;
    /// While locked, presets and the other set leave the mix as it is.
    virtual bool isWetLocked() const noexcept = 0;
    virtual void setWetLocked(bool locked) noexcept = 0;

protected:
    ~IEffectEditing() = default;
};

/// The presets that a user has saved, as files in the user's data directory. Names may hold a
/// folder: "Vocals/Lead". False with IEffectState::refusalReason() where a file or a name refuses.
class IEffectUserPresets : public IObject {
public:
    static constexpr UID iid = UID::constant("{2F0B6E51-9E0D-4E6C-8F53-7B5E7C0A9D22}");

    /// Looks at the directory anew.
    virtual void findPresets() noexcept = 0;
    virtual std::int32_t countUserPresets() const noexcept = 0;
    virtual const char* userPresetName(std::int32_t index) const noexcept = 0;  // null beyond
    virtual bool loadUserPreset(std::int32_t index) noexcept = 0;
    /// Saves the present setting; one of that name is replaced only if `replace`.
    virtual bool saveUserPreset(const char* name, bool replace) noexcept = 0;
    virtual bool renameUserPreset(std::int32_t index, const char* name) noexcept = 0;
    virtual bool removeUserPreset(std::int32_t index) noexcept = 0;

protected:
    ~IEffectUserPresets() = default;
};

}  // namespace VNK
