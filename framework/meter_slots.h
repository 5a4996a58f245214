// SPDX-License-Identifier: ISC
// Carries measured values to the main thread: one 32-bit word each, exchanged once per block. Each
// slot has one writer, the audio thread or whoever else measures.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "vnk/parameter.h"

namespace quillworks {

class MeterSlots {
public:
    /// Tags with their start values, in declaration order. Allocates. [main thread]
    explicit MeterSlots(const std::vector<std::pair<VNK::Tag, float>>& meters)
        : slots_(std::make_unique<std::atomic<std::uint32_t>[]>(meters.size()))
    {
        for (std::size_t i = 0; i < meters.size(); ++i) {
            set(i, meters[i].second);
            byTag_.emplace_back(meters[i].first, i);
        }
        std::sort(byTag_.begin(), byTag_.end());
    }

    /// Publishes under a tag; a tag without a slot is ignored. [the slot's writer]
    void publish(VNK::Tag tag, float value) noexcept
    {
        const auto at =
            std::lower_bound(byTag_.begin(), byTag_.end(), std::pair(tag, std::size_t{0}));
        if (at != byTag_.end() && at->first == tag) set(at->second, value);
    }
    /// Publishes value(i) under the tags base .. base + n - 1 of a family. [the
    /// slots' writer]
    template <class F> void publishFamily(VNK::Tag base, int n, F&& value) noexcept
    {
        auto at = std::lower_bound(byTag_.begin(), byTag_.end(), std::pair(base, std::size_t{0}));
        for (int i = 0; i < n && at != byTag_.end(); ++i, ++at)
            if (at->first == base + static_cast<VNK::Tag>(i)) set(at->second, value(i));
    }
    /// The latest value of the i-th meter. [any thread]
    float read(std::size_t i) const noexcept
    {
        return std::bit_cast<float>(slots_[i].load(std::memory_order_relaxed));
    }

private:
    void set(std::size_t i, float value) noexcept
    {
        const auto bits = std::bit_cast<std::uint32_t>(value);
        if (slots_[i].load(std::memory_order_relaxed) != bits)  // exchange costs a bus lock
            slots_[i].exchange(bits, std::memory_order_relaxed);
    }

    std::unique_ptr<std::atomic<std::uint32_t>[]> slots_;
    std::vector<std::pair<VNK::Tag, std::size_t>> byTag_;
};

}  // namespace quillworks
