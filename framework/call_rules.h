// SPDX-License-Identifier: ISC
// The rules of vnk/effect.h about threads, order and buffers, checked in debug builds and under the
// sanitizers; elsewhere nothing of it is left.
#pragma once

#include <atomic>

#include "vnk/effect.h"

namespace quillworks {

#if !defined(NDEBUG) || defined(QUILLWORKS_CHECK_RULES)
inline constexpr bool kChecksRules = true;
#else
inline constexpr bool kChecksRules = false;
#endif

/// Ends the program with one line on standard error: the caller has a fault that no return value
/// can tell of.
[[noreturn]] void ruleBroken(const char* rule) noexcept;

/// Who is at work on an instance. Scopes check when they begin; they synchronise nothing, so that a
/// thread sanitizer still sees what races.
class CallRules {
public:
    /// An operation marked [main thread]: one at a time, though it may call others, and not from
    /// within a block.
    class MainThread {
    public:
        explicit MainThread(CallRules& rules) noexcept : rules_(rules)
        {
            if constexpr (kChecksRules) rules_.enterMain();
        }
        ~MainThread()
        {
            if constexpr (kChecksRules) rules_.leaveMain();
        }
        MainThread(const MainThread&) = delete;
        MainThread& operator=(const MainThread&) = delete;

    private:
        CallRules& rules_;
    };

    /// A block, or an operation marked [not processing]: alone of its kind. Such an operation may
    /// call another.
    class Exclusive {
    public:
        enum Kind { Block, NotProcessing };
        Exclusive(CallRules& rules, Kind kind) noexcept : rules_(rules), kind_(kind)
        {
            if constexpr (kChecksRules) rules_.enterExclusive(kind);
        }
        ~Exclusive()
        {
            if constexpr (kChecksRules) rules_.leaveExclusive(kind_);
        }
        Exclusive(const Exclusive&) = delete;
        Exclusive& operator=(const Exclusive&) = delete;

    private:
        CallRules& rules_;
        Kind kind_;
    };

private:
    void enterMain() noexcept;
    void leaveMain() noexcept;
    void enterExclusive(Exclusive::Kind kind) noexcept;
    void leaveExclusive(Exclusive::Kind kind) noexcept;

    std::atomic<const void*> main_{nullptr}, exclusive_{nullptr};  // threads
    int mainDepth_ = 0, exclusiveDepth_ = 0;                       // of the threads above
};

/// An output is an input as it is or overlaps none, and never the side-chain; two outputs are one
/// buffer (for hosts that hear neither) or do not overlap.
template <typename T> void checkAliasing(const VNK::ProcessData& data) noexcept;

}  // namespace quillworks
