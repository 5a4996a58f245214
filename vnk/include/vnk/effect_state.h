// SPDX-License-Identifier: ISC
// Interfaces of an effect: what songs and presets keep of it, and its factory presets.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnk/buffer.h"
#include "vnk/object.h"

namespace VNK {

/// A refused state or preset leaves everything as it was; refusalReason() says why. After one that
/// was accepted it says what had to be put right in it (values out of range, values that are not
/// finite), or nothing; after savePreset() what it left out as too long for a preset. The text
/// lives until the next call.
class IEffectState : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D07}");

    virtual bool saveState(IByteSink* sink) const noexcept = 0;
    virtual bool loadState(const void* data, std::size_t bytes) noexcept = 0;
    virtual bool savePreset(const char* name, IByteSink* sink) const noexcept = 0;
    virtual bool loadPreset(const void* data, std::size_t bytes) noexcept = 0;
    virtual const char* refusalReason() const noexcept = 0;

protected:
    ~IEffectState() = default;
};

/// The program list: the effect's factory presets.
class IEffectPrograms : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D08}");

    virtual std::int32_t countPrograms() const noexcept = 0;
    virtual const char* programTitle(std::int32_t index) const noexcept = 0;  // null beyond the end
    virtual bool loadProgram(std::int32_t index) noexcept = 0;
    /// Name of the current program, "(Unnamed)" without one.
    virtual const char* programName() const noexcept = 0;

protected:
    ~IEffectPrograms() = default;
};

}  // namespace VNK
