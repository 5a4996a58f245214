// SPDX-License-Identifier: ISC
// Reference-counted objects: the base of every interface that crosses the module boundary.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "vnk/uid.h"

namespace VNK {

/// Shared by reference counts, freed with the last reference. A new object starts with one
/// reference, which belongs to its creator. [any thread, save the last release: main thread]
class IObject {
public:
    virtual std::uint32_t retain() noexcept = 0;
    virtual std::uint32_t release() noexcept = 0;
    /// The interface of this identifier, or null. The pointer is borrowed: it lives as long as the
    /// object does.
    virtual void* queryInterface(const UID& id) noexcept = 0;

protected:
    ~IObject() = default;
};

/// Owning pointer to an interface.
template <class I> class Ref {
public:
    Ref() = default;
    Ref(const Ref& other) noexcept : p_(other.p_)
    {
        if (p_) p_->retain();
    }
    Ref(Ref&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    Ref& operator=(Ref other) noexcept
    {
        std::swap(p_, other.p_);
        return *this;
    }
    ~Ref()
    {
        if (p_) p_->release();
    }

    /// Takes over a reference that the caller owns.
    static Ref adopt(I* p) noexcept
    {
        Ref r;
        r.p_ = p;
        return r;
    }
    /// Adds a reference of its own.
    static Ref share(I* p) noexcept
    {
        if (p) p->retain();
        return adopt(p);
    }

    I* get() const noexcept { return p_; }
    I* operator->() const noexcept { return p_; }
    I& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    /// Gives the reference up without releasing it.
    I* detach() noexcept { return std::exchange(p_, nullptr); }

private:
    I* p_ = nullptr;
};

/// Implements the counting for classes that offer the interfaces `Is`, each with a static `iid`.
template <class... Is> class Object : public Is... {
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;

    std::uint32_t retain() noexcept override
    {
        return count_.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    std::uint32_t release() noexcept override
    {
        const auto left = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) delete this;
        return left;
    }
    void* queryInterface(const UID& id) noexcept override
    {
        void* found = nullptr;
        ((found = id == Is::iid ? static_cast<Is*>(this) : found), ...);
        return found;
    }

private:
    std::atomic<std::uint32_t> count_{1};
};

/// A class of objects with further interfaces, for what only some of its kind offer.
template <class Base, class... Is> class Extended : public Base, public Is... {
public:
    using Base::Base;

    std::uint32_t retain() noexcept override { return Base::retain(); }
    std::uint32_t release() noexcept override { return Base::release(); }
    void* queryInterface(const UID& id) noexcept override
    {
        void* found = nullptr;
        ((found = id == Is::iid ? static_cast<Is*>(this) : found), ...);
        return found ? found : Base::queryInterface(id);
    }
};

/// `object` as interface I, sharing ownership; empty where it does not offer it.
template <class I> Ref<I> queryInterface(IObject* object) noexcept
{
    return object ? Ref<I>::share(static_cast<I*>(object->queryInterface(I::iid))) : Ref<I>();
}

}  // namespace VNK
