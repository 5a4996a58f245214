// SPDX-License-Identifier: ISC
// Whole objects from another thread to the audio thread and back, without a lock or a wait.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

namespace quillworks {

/// One place for an object on its way to the audio thread and one for its way back. The audio
/// thread takes a new object only while the way back is free, so that it never has to destroy one;
/// what is overtaken on its way is destroyed by the giver.
///
/// The audio thread keeps the object it had, for a cross-fade, until it says `release`.
template <class T> class Handover {
public:
    Handover() = default;
    /// [not processing]
    ~Handover()
    {
        for (T* object : {incoming_.load(), outgoing_.load(), current_, previous_}) delete object;
    }
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

    /// Sends an object, in place of one that has not been taken yet, and destroys what has come
    /// back. [one thread at a time, not the audio thread]
    void give(std::unique_ptr<T> object)
    {
        collect();
        delete incoming_.exchange(object.release(), std::memory_order_acq_rel);
    }
    /// Destroys what has come back. To be called now and then by the giving thread.
    void collect() { delete outgoing_.exchange(nullptr, std::memory_order_acquire); }

    /// Takes a new object if there is one; true if current() has changed. Not while the one before
    /// is still held or on its way back. [audio thread]
    bool take() noexcept { return mayRelease() && takeEarly(); }
    /// The same while another is still on its way back, for those who say `release` only where
    /// mayRelease(): so when a change comes does not depend on when the giver was last here.
    bool takeEarly() noexcept
    {
        if (previous_) return false;
        T* const fresh = incoming_.exchange(nullptr, std::memory_order_acquire);
        if (!fresh) return false;
        previous_ = std::exchange(current_, fresh);
        return true;
    }
    /// Whether there is one to be taken. [audio thread]
    bool isWaiting() const noexcept { return incoming_.load(std::memory_order_relaxed); }
    /// Whether the way back is free. [audio thread]
    bool mayRelease() const noexcept { return !outgoing_.load(std::memory_order_relaxed); }
    /// The object in use, null before the first. [audio thread]
    T* current() const noexcept { return current_; }
    /// The one before, until it is released. [audio thread]
    T* previous() const noexcept { return previous_; }
    /// Sends the one before back. [audio thread]
    void release() noexcept
    {
        if (previous_)
            outgoing_.store(std::exchange(previous_, nullptr), std::memory_order_release);
    }

private:
    std::atomic<T*> incoming_{nullptr}, outgoing_{nullptr};
    T* current_ = nullptr;   // of the audio thread
    T* previous_ = nullptr;  // likewise
};

}  // namespace quillworks
