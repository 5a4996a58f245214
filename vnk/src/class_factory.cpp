// SPDX-License-Identifier: ISC
#include "vnk/class_factory.h"

#include <algorithm>
#include <span>
#include <string>
#include <vector>

namespace VNK {
namespace {

class ClassFactory final : public Object<IClassFactory> {
public:
    const ModuleInformation& moduleInformation() const noexcept override { return information_; }
    const char* moduleId() const noexcept override { return moduleId_; }
    std::int32_t countClasses() const noexcept override
    {
        return static_cast<std::int32_t>(classes_.size());
    }
    const ClassDescription* getClass(std::int32_t index) const noexcept override
    {
        const auto* c = at(index);
        return c ? c->description : nullptr;
    }
    const ClassAttribute* getAttribute(std::int32_t classIndex,
                                       std::int32_t index) const noexcept override
    {
        const auto* c = at(classIndex);
        const auto i = static_cast<std::size_t>(index);
        return c && index >= 0 && i < c->attributes.size() ? &c->attributes[i] : nullptr;
    }
    IObject* createInstance(const UID& classId) noexcept override
    {
        for (const auto& c : classes_)
            if (c.description->classId == classId) return c.create(*c.description);
        return nullptr;
    }

    void setModuleInformation(const ModuleInformation& information) noexcept override
    {
        const auto text = [](const char* given) { return given ? given : ""; };
        information_ = {text(information.title), text(information.version),
                        text(information.vendor), text(information.legalNotice),
                        text(information.webAddress)};
    }
    void setModuleId(const char* id) noexcept override { moduleId_ = id ? id : ""; }
    bool registerClass(const ClassDescription& description, CreateFunction create,
                       const ClassAttribute* attributes,
                       std::int32_t attributeCount) noexcept override
    {
        const auto count = static_cast<std::size_t>(attributes ? std::max(0, attributeCount) : 0);
        const auto& d = description;
        if (!create || !d.category || !d.name || !d.subCategory || !d.description) return false;
        const std::span all(attributes, count);
        for (const auto& attribute : all)
            if (!attribute.key) return false;
        for (const auto& c : classes_)
            if (c.description->classId == d.classId) return false;
        try {
            classes_.push_back({&description, create, all});
            return true;
        } catch (...) {
            return false;
        }
    }

private:
    struct Class {
        const ClassDescription* description;
        CreateFunction create;
        std::span<const ClassAttribute> attributes;
    };

    const Class* at(std::int32_t index) const noexcept
    {
        const auto i = static_cast<std::size_t>(index);
        return index >= 0 && i < classes_.size() ? &classes_[i] : nullptr;
    }

    ModuleInformation information_;
    const char* moduleId_ = "";
    std::vector<Class> classes_;
};

}  // namespace
}  // namespace VNK

VNK::IClassFactory* VNKCreateClassFactory() noexcept
{
    try {
        return new VNK::ClassFactory;
    } catch (...) {
        return nullptr;
    }
}
