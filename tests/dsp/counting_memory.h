// SPDX-License-Identifier: ISC
// Counts what buffers allocate, and makes them fail, while it lives.
#pragma once
#include "dsp/aligned_buffer.h"

namespace quillworks {

class CountingMemory {
public:
    CountingMemory()
    {
        allocations = releases = 0;
        isExhausted = false;
    }
    ~CountingMemory() { BufferMemory::exchangeService(usual_); }
    CountingMemory(const CountingMemory&) = delete;
    CountingMemory& operator=(const CountingMemory&) = delete;

    static inline int allocations = 0;
    static inline int releases = 0;
    static inline bool isExhausted = false;

private:
    static constexpr BufferMemory kCounting{[](std::size_t bytes) noexcept -> void* {
                                                if (isExhausted) return nullptr;
                                                ++allocations;
                                                return std::malloc(bytes);
                                            },
                                            [](void* memory) noexcept {
                                                ++releases;
                                                std::free(memory);
                                            }};
    const BufferMemory& usual_ = BufferMemory::exchangeService(kCounting);
};

}  // namespace quillworks
