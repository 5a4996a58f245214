// SPDX-License-Identifier: ISC
// Carries measured values to the main thread: one 32-bit word each, stored once per block. Each
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

/// The meters of a class by tag, the same for all of its instances.
class MeterTags {
public:
    MeterTags() = default;
    /// In declaration order. Allocates. [main thread]
    explicit MeterTags(const std::vector<VNK::Tag>& tags)
    {
        for (std::size_t i = 0; i < tags.size(); ++i)
            places_.emplace_back(tags[i], static_cast<std::uint32_t>(i));
        std::sort(places_.begin(), places_.end());
    }

    using Place = std::pair<VNK::Tag, std::uint32_t>;  // tag and slot
    std::size_t size() const noexcept { return places_.size(); }
    /// The first place whose tag is not below `tag`.
    const Place* from(VNK::Tag tag) const noexcept
    {
        return std::lower_bound(places_.data(), end(), Place(tag, 0));
    }
    const Place* end() const noexcept { return places_.data() + places_.size(); }

private:
    std::vector<Place> places_;
};

class MeterSlots {
public:
    /// The tags outlive the slots; start values in declaration order. Allocates. [main thread]
    MeterSlots(const MeterTags& tags, const std::vector<float>& starts)
        : slots_(std::make_unique<std::atomic<std::uint32_t>[]>(starts.size())), tags_(&tags)
    {
        for (std::size_t i = 0; i < starts.size(); ++i) set(i, starts[i]);
    }

    /// Publishes under a tag; a tag without a slot is ignored. [the slot's writer]
    void publish(VNK::Tag tag, float value) noexcept
    {
        const auto* const at = tags_->from(tag);
        if (at != tags_->end() && at->first == tag) set(at->second, value);
    }
    /// Publishes value(i) under the tags base .. base + n - 1 of a family. [the
    /// slots' writer]
    template <class F> void publishFamily(VNK::Tag base, int n, F&& value) noexcept
    {
        const auto* at = tags_->from(base);
        for (int i = 0; i < n && at != tags_->end(); ++i, ++at)
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
        slots_[i].store(std::bit_cast<std::uint32_t>(value), std::memory_order_relaxed);
    }

    std::unique_ptr<std::atomic<std::uint32_t>[]> slots_;
    const MeterTags* tags_;
};

}  // namespace quillworks
