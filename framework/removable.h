// SPDX-License-Identifier: ISC
// A pointer that one thread takes away while another may be calling through it.
#pragma once

#include <atomic>
#include <thread>

namespace quillworks {

/// Not owning. Who takes the object away may free it at once: set() returns only when no other
/// thread is within call() any more. Callers never wait. A call may itself set, where no two
/// threads call at once.
template <class T> class Removable {
public:
    /// f(object) unless there is none. Lock-free. [any thread]
    template <class F> void call(F&& f) noexcept
    {
        const auto self = std::this_thread::get_id();
        const bool isNested = caller_.load(std::memory_order_relaxed) == self;
        // Entered first and looked second, as set() writes first and looks second: in the one order
        // of all four either the caller sees the new pointer or set() sees the caller.
        if (!isNested) callers_.fetch_add(1);
        if (T* const object = object_.load()) {
            caller_.store(self, std::memory_order_relaxed);
            f(*object);
        }
        if (isNested) return;
        caller_.store({}, std::memory_order_relaxed);
        callers_.fetch_sub(1);
    }
    /// One thread at a time.
    void set(T* object) noexcept
    {
        object_.store(object);
        const auto own = [this] {
            return caller_.load(std::memory_order_relaxed) == std::this_thread::get_id() ? 1 : 0;
        };
        while (callers_.load() > own()) std::this_thread::yield();
    }
    /// What was set last. [the thread that sets]
    T* get() const noexcept { return object_.load(std::memory_order_relaxed); }

private:
    std::atomic<T*> object_{nullptr};
    std::atomic<int> callers_{0};
    std::atomic<std::thread::id> caller_{};  // empty outside of a call
    static_assert(std::atomic<T*>::is_always_lock_free &&
                  std::atomic<std::thread::id>::is_always_lock_free);
};

}  // namespace quillworks
