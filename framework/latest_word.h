// SPDX-License-Identifier: ISC
// A word that several threads work out anew whenever something that it depends on has changed.
#pragma once

#include <atomic>
#include <cstdint>

namespace quillworks {

/// Of the words published the one with the latest stamp stands. Whoever changes what the word
/// depends on stores the change, then draws a stamp, then works the word out and publishes it: a
/// thread that is overtaken on the way cannot put back what is out of date. Lock-free.
class LatestWord {
public:
    /// Where stamps are drawn; words that are worked out together share one.
    class Stamps {
    public:
        std::uint32_t draw() noexcept { return last_.fetch_add(1, std::memory_order_acq_rel) + 1; }

    private:
        std::atomic<std::uint32_t> last_{0};
    };

    void publish(std::uint32_t stamp, std::uint32_t word) noexcept
    {
        const auto mine = std::uint64_t{stamp} << 32 | word;
        auto present = stamped_.load(std::memory_order_relaxed);
        const auto isNewer = [&] {  // stamps wrap around
            return static_cast<std::int32_t>(stamp - static_cast<std::uint32_t>(present >> 32)) > 0;
        };
        while (isNewer() &&
               !stamped_.compare_exchange_weak(present, mine, std::memory_order_relaxed)) {}
    }
    std::uint32_t read() const noexcept
    {
        return static_cast<std::uint32_t>(stamped_.load(std::memory_order_relaxed));
    }

private:
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

    std::atomic<std::uint64_t> stamped_{0};
};

}  // namespace quillworks
