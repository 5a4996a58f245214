// SPDX-License-Identifier: ISC
// Gestures on their way from the main thread to the block that tells the host of them.
#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

namespace quillworks::clap {

struct Gesture {
    int place;  // of the parameter in the plug-in's list
    bool begins;
};

/// One thread pushes, one pops. Without locks.
class GestureQueue {
public:
    /// For a plug-in of so many parameters: a switch to another set may hold and let go of them
    /// all, and be taken back before the host asks.
    explicit GestureQueue(std::size_t parameters) : slots_(4 * parameters + 64) {}

    /// False where it is full: the host is not processing and has not asked for long.
    bool push(const Gesture& gesture) noexcept
    {
        const auto end = end_.load(std::memory_order_relaxed);
        if (end - begin_.load(std::memory_order_acquire) == slots_.size()) return false;
        slots_[end % slots_.size()] = gesture;
        end_.store(end + 1, std::memory_order_release);
        return true;
    }
    /// The oldest, or null; it stays until drop().
    const Gesture* front() const noexcept
    {
        const auto begin = begin_.load(std::memory_order_relaxed);
        if (begin == end_.load(std::memory_order_acquire)) return nullptr;
        return &slots_[begin % slots_.size()];
    }
    void drop() noexcept { begin_.fetch_add(1, std::memory_order_release); }

private:
    std::vector<Gesture> slots_;
    std::atomic<std::size_t> begin_{0}, end_{0};
};

}  // namespace quillworks::clap
