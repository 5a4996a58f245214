// SPDX-License-Identifier: ISC
// The host's memory service and clock.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnk/export.h"

extern "C" {

/// As malloc, free, calloc and realloc; null when memory cannot be had. Not for the audio thread.
/// Large blocks of core_calloc take no memory before they are written.
VNK_API void* core_malloc(std::size_t bytes) noexcept;
VNK_API void core_free(void* memory) noexcept;
VNK_API void* core_calloc(std::size_t count, std::size_t bytes) noexcept;
VNK_API void* core_realloc(void* memory, std::size_t bytes) noexcept;

/// Milliseconds of a clock that never goes back.
VNK_API std::uint64_t VNKGetSystemTicks() noexcept;
}
