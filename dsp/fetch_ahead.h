// SPDX-License-Identifier: ISC
// Asks for memory before it is needed.
#pragma once

namespace quillworks {

/// Asks for the cache lines of the n values from x on: where hundreds of instances run in turn,
/// none finds its memory where it left it, and what is asked for together comes together, while
/// something else is worked on. Never faults: any address will do.
template <bool toWrite = false, typename T> void fetchAhead(const T* x, int n) noexcept
{
    constexpr auto kStep = static_cast<int>(64 / sizeof(T));  // of a cache line
    for (int i = 0; i < n; i += kStep) __builtin_prefetch(x + i, toWrite);
    if (n > 0) __builtin_prefetch(x + n - 1, toWrite);
}

}  // namespace quillworks
