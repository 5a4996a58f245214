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
        BufferMemory::service() = {[](std::size_t bytes) noexcept -> void* {
                                       if (isExhausted) return nullptr;
                                       ++allocations;
                                       return std::malloc(bytes);
                                   },
                                   [](void* memory) noexcept {
                                       ++releases;
                                       std::free(memory);
                                   }};
    }
    ~CountingMemory() { BufferMemory::service() = usual_; }
    CountingMemory(const CountingMemory&) = delete;
    CountingMemory& operator=(const CountingMemory&) = delete;

    static inline int allocations = 0;
    static inline int releases = 0;
    static inline bool isExhausted = false;

private:
    BufferMemory usual_ = BufferMemory::service();
};

}  // namespace quillworks
