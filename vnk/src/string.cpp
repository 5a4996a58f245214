// SPDX-License-Identifier: ISC
#include "vnk/string.h"

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace VNK {
namespace {

template <class Interface> class StringOf : public Object<Interface> {
public:
    explicit StringOf(const char* text) : text_(text ? text : "") {}
    const char* text() const noexcept override { return text_.c_str(); }
    std::int32_t length() const noexcept override
    {
        return static_cast<std::int32_t>(text_.size());
    }

protected:
    std::string text_;
};

class MutableCString final : public StringOf<IMutableCString> {
public:
    using StringOf::StringOf;
    void* queryInterface(const UID& id) noexcept override
    {
        return id == IString::iid ? static_cast<IString*>(this) : StringOf::queryInterface(id);
    }
    bool assign(const char* text) noexcept override
    {
        try {
            text_ = text ? text : "";
            return true;
        } catch (...) {
            return false;
        }
    }
    bool append(const char* text) noexcept override
    {
        try {
            text_ += text ? text : "";
            return true;
        } catch (...) {
            return false;
        }
    }
};

IString* constantString(const char* text) noexcept
{
    // Never destroyed: static records of modules hold the strings until the process ends.
    static auto& pool = *new std::unordered_map<std::string, Ref<IString>>;
    static std::mutex mutex;
    try {
        const std::lock_guard lock(mutex);
        auto& entry = pool[text ? text : ""];
        if (!entry) entry = Ref<IString>::adopt(new StringOf<IString>(text));
        return entry.get();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace
}  // namespace VNK

VNK::IString* VNKGetEmptyString() noexcept
{
    return VNK::constantString("");
}
VNK::IString* VNKGetConstantString(const char* utf8) noexcept
{
    return VNK::constantString(utf8);
}
VNK::IString* VNKGetConstantCString(const char* text) noexcept
{
    return VNK::constantString(text);
}

VNK::IMutableCString* VNKCreateMutableCString(const char* text) noexcept
{
    try {
        return new VNK::MutableCString(text);
    } catch (...) {
        return nullptr;
    }
}
