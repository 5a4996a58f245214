// SPDX-License-Identifier: ISC
// Strings that cross the module boundary. All texts are UTF-8.
#pragma once

#include "vnk/object.h"

namespace VNK {

/// A text that never changes.
class IString : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D10}");

    virtual const char* text() const noexcept = 0;     // ends with 0
    virtual std::int32_t length() const noexcept = 0;  // bytes

protected:
    ~IString() = default;
};

/// An 8-bit text that its owner may change.
class IMutableCString : public IString {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D11}");

    /// False, and nothing changed, when memory cannot be had.
    virtual bool assign(const char* text) noexcept = 0;
    virtual bool append(const char* text) noexcept = 0;

protected:
    ~IMutableCString() = default;
};

}  // namespace VNK

extern "C" {

/// Constant strings live as long as the process, equal texts are one object: the caller does not
/// release them. Null only when memory cannot be had.
VNK_API VNK::IString* VNKGetEmptyString() noexcept;
VNK_API VNK::IString* VNKGetConstantString(const char* utf8) noexcept;
VNK_API VNK::IString* VNKGetConstantCString(const char* text) noexcept;
/// A new string that belongs to the caller; null when memory cannot be had.
VNK_API VNK::IMutableCString* VNKCreateMutableCString(const char* text) noexcept;
}
