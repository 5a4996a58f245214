// SPDX-License-Identifier: ISC
// Interfaces of an effect: values beside the parameters, and what is laid out for hosts to show.
#pragma once

#include <cstdint>

#include "vnk/buffer.h"
#include "vnk/object.h"

namespace VNK {

/// Values by key beside the parameters ("channelcount", "remotepages", ...). The getters return
/// false where the key is missing or of another type.
class IEffectAttributes : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D09}");

    virtual bool getInteger(const char* key, std::int64_t& value) const noexcept = 0;
    virtual bool getFloat(const char* key, float& value) const noexcept = 0;
    virtual const char* getString(const char* key) const noexcept = 0;  // null where missing
    /// False for keys that the host may only read.
    virtual bool setInteger(const char* key, std::int64_t value) noexcept = 0;

protected:
    ~IEffectAttributes() = default;
};

/// Editor views, and pages for hardware controllers.
class IEffectViews : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D0A}");

    /// Names of the editor views ("Compressor/Editor", ...), null beyond the end.
    virtual const char* viewName(std::int32_t index) const noexcept = 0;
    /// The document that lays the parameters onto hardware controllers; false without one.
    virtual bool remotePages(IByteSink* sink) const noexcept = 0;

protected:
    ~IEffectViews() = default;
};

}  // namespace VNK
