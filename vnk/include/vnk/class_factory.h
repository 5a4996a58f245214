// SPDX-License-Identifier: ISC
// What a module offers: its information, its class descriptions and the factory that creates them.
#pragma once

#include <cstdint>

#include "vnk/object.h"
#include "vnk/string.h"

namespace VNK {

/// Strings are UTF-8 constants of the module.
struct ModuleInformation {
    const char* title = "";
    const char* version = "";
    const char* vendor = "";
    const char* legalNotice = "";
    const char* webAddress = "";
};

struct ClassDescription {
    std::uint32_t flags = 0;
    UID classId;
    IString* category = nullptr;
    IString* name = nullptr;
    IString* subCategory = nullptr;
    IString* description = nullptr;
};

/// A class property for the host's browser: a text, or where that is null an integer.
struct ClassAttribute {
    const char* key = "";
    const char* text = nullptr;
    std::int32_t integer = 0;
};

/// Builds an object with one reference, as IObject; null when memory cannot be had. Never throws.
using CreateFunction = IObject* (*)(const ClassDescription& description);

/// [main thread]
class IClassFactory : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D21}");

    virtual const ModuleInformation& moduleInformation() const noexcept = 0;
    virtual const char* moduleId() const noexcept = 0;
    virtual std::int32_t countClasses() const noexcept = 0;
    /// Null beyond the end.
    virtual const ClassDescription* getClass(std::int32_t index) const noexcept = 0;
    /// Attributes of a class in the order they were attached; null beyond the end.
    virtual const ClassAttribute* getAttribute(std::int32_t classIndex,
                                               std::int32_t index) const noexcept = 0;
    /// A new object that belongs to the caller; null for an unknown class or without memory.
    virtual IObject* createInstance(const UID& classId) noexcept = 0;

    // The module's side.
    /// Texts that are null are taken for empty ones.
    virtual void setModuleInformation(const ModuleInformation& information) noexcept = 0;
    virtual void setModuleId(const char* id) noexcept = 0;
    /// Records are kept by reference. False for a class ID that is registered already, for a record
    /// that lacks a text or the create function, for attributes without a key, or without memory.
    virtual bool registerClass(const ClassDescription& description, CreateFunction create,
                               const ClassAttribute* attributes = nullptr,
                               std::int32_t attributeCount = 0) noexcept = 0;

protected:
    ~IClassFactory() = default;
};

}  // namespace VNK

extern "C" {
/// An empty factory that belongs to the caller; null when memory cannot be had.
VNK_API VNK::IClassFactory* VNKCreateClassFactory() noexcept;

// What a module exports.
using VNKModuleMainFunction = bool (*)(void* module, std::int32_t reason);
using VNKGetClassFactoryFunction = VNK::IClassFactory* (*)();
}

namespace VNK {
inline constexpr std::int32_t kModuleLoad = 1;
inline constexpr std::int32_t kModuleUnload = 2;
}  // namespace VNK
