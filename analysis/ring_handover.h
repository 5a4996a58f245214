// SPDX-License-Identifier: ISC
// Hands memory for longer windows to the audio thread and takes what it replaced back.
#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "dsp/aligned_buffer.h"

namespace quillworks {

/// Rings of integers, one per channel. They are allocated and freed on the main thread alone.
class RingHandover {
public:
    using Rings = std::vector<AlignedBuffer<std::int64_t>>;

    RingHandover() = default;
    RingHandover(const RingHandover&) = delete;
    ~RingHandover()
    {
        release(offered_);
        release(spent_);
    }

    /// Offers rings of `length` zeros; an offer that has not been taken is withdrawn. False, and
    /// nothing offered, if memory cannot be had. [main thread]
    bool offer(int channels, std::size_t length) noexcept
    {
        release(spent_);
        try {
            auto offer = std::make_unique<Offer>();
            offer->rings.resize(static_cast<std::size_t>(channels));
            for (auto& ring : offer->rings) ring.require(length);
            delete offered_.exchange(offer.release(), std::memory_order_acq_rel);
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    /// f(rings) on what has been offered, if anything; f puts what it has no more use for in their
    /// place. [audio thread]
    template <class F> void take(F&& f) noexcept
    {
        Offer* const taken = offered_.exchange(nullptr, std::memory_order_acq_rel);
        if (!taken) return;
        f(taken->rings);
        taken->next = spent_.exchange(nullptr, std::memory_order_acq_rel);
        spent_.store(taken, std::memory_order_release);
    }

private:
    struct Offer {
        Rings rings;
        Offer* next = nullptr;
    };
    static void release(std::atomic<Offer*>& list) noexcept
    {
        for (Offer* o = list.exchange(nullptr, std::memory_order_acq_rel); o;)
            delete std::exchange(o, o->next);
    }

    std::atomic<Offer*> offered_{nullptr}, spent_{nullptr};
};

}  // namespace quillworks
