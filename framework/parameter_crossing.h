// SPDX-License-Identifier: ISC
// Carries parameter values from the main to the audio thread without a lock or an allocation.
#pragma once

#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace quillworks {

/// One slot per tag, in declaration order. The latest value wins and no change is lost. A trigger
/// is a counter instead, so that one set and cleared within a block still acts.
class ParameterCrossing {
public:
    /// `isTrigger[i]` tells the kind of slot i. Allocates. [main thread]
    explicit ParameterCrossing(const std::vector<bool>& isTrigger)
        : size_(isTrigger.size()),
          words_((size_ + 63) / 64),
          values_(std::make_unique<std::atomic<std::uint32_t>[]>(size_)),
          dirty_(std::make_unique<std::atomic<std::uint64_t>[]>(words_)),
          seen_(size_, 0),
          isTrigger_(isTrigger)
    {}

    /// Values that are not finite are ignored; a trigger counts each value other than 0. Full
    /// barrier. [any thread]
    void write(std::size_t slot, float value) noexcept
    {
        if (slot >= size_ || !std::isfinite(value)) return;
        if (isTrigger_[slot]) {
            if (value == 0) return;
            values_[slot].fetch_add(1, std::memory_order_relaxed);
        } else {
            values_[slot].store(std::bit_cast<std::uint32_t>(value), std::memory_order_relaxed);
        }
        dirty_[slot / 64].fetch_or(std::uint64_t{1} << slot % 64, std::memory_order_release);
        hasChanges_.exchange(true, std::memory_order_seq_cst);
    }

    /// Calls apply(slot, value) for every slot written since the last call, in declaration order;
    /// a trigger gives 1. Returns whether there was any. [audio thread]
    template <class F> bool drain(F&& apply)
    {
        if (!hasChanges_.load(std::memory_order_relaxed)) return false;
        hasChanges_.exchange(false, std::memory_order_acquire);
        bool any = false;
        for (std::size_t w = 0; w < words_; ++w) {
            if (dirty_[w].load(std::memory_order_relaxed) == 0)
                continue;  // exchange costs a bus lock
            auto bits = dirty_[w].exchange(0, std::memory_order_acquire);
            while (bits != 0) {
                const auto slot = w * 64 + static_cast<std::size_t>(std::countr_zero(bits));
                bits &= bits - 1;
                const auto word = values_[slot].load(std::memory_order_relaxed);
                if (!isTrigger_[slot])
                    apply(slot, std::bit_cast<float>(word));
                else if (word != seen_[slot])
                    apply(slot, 1.0f);
                seen_[slot] = word;
                any = true;
            }
        }
        return any;
    }

private:
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

    std::atomic<bool> hasChanges_{false};  // set last: all that a block without changes looks at
    std::size_t size_, words_;
    std::unique_ptr<std::atomic<std::uint32_t>[]> values_;
    std::unique_ptr<std::atomic<std::uint64_t>[]> dirty_;
    std::vector<std::uint32_t> seen_;  // audio thread only
    std::vector<bool> isTrigger_;      // constant
};

}  // namespace quillworks
