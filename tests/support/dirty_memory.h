// SPDX-License-Identifier: ISC
// Buffers that come with what must not be heard.
#pragma once

#include <cstdlib>
#include <cstring>

#include "dsp/aligned_buffer.h"

namespace quillworks::test {

/// Memory that is full of what must not be heard, as freed memory may be.
class DirtyMemory {
public:
    ~DirtyMemory() { BufferMemory::exchangeService(usual_); }

private:
    static constexpr BufferMemory kDirty{
        [](std::size_t bytes) noexcept {
            void* const memory = std::malloc(bytes);
            std::memset(memory, 0xff, bytes);  // not-a-number, as float and as double
            return memory;
        },
        [](void* memory) noexcept { std::free(memory); }};
    const BufferMemory& usual_ = BufferMemory::exchangeService(kDirty);
};

}  // namespace quillworks::test
