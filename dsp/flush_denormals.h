// SPDX-License-Identifier: ISC
// Flushes denormals to zero while in scope and gives the caller's floating-point mode back.
#pragma once

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <cstdint>
#endif

namespace quillworks {

/// A decaying tail that reaches denormal numbers costs a hundred times as much per operation, and
/// other code in the process may have changed the mode: so every process call sets it.
class FlushDenormals {
public:
    FlushDenormals(const FlushDenormals&) = delete;
    FlushDenormals& operator=(const FlushDenormals&) = delete;
#if defined(__SSE2__)
    FlushDenormals() noexcept : saved_(_mm_getcsr())
    {
        _mm_setcsr(saved_ | 0x8040u);  // flush to zero, denormals are zero
    }
    ~FlushDenormals()
    {
        _mm_setcsr(saved_);
    }

private:
    unsigned saved_;
#elif defined(__aarch64__)
    FlushDenormals() noexcept
    {
        asm volatile("mrs %0, fpcr" : "=r"(saved_));
        asm volatile("msr fpcr, %0" ::"r"(saved_ | (std::uint64_t{1} << 24)));
    }
    ~FlushDenormals()
    {
        asm volatile("msr fpcr, %0" ::"r"(saved_));
    }

private:
    std::uint64_t saved_;
#else
    FlushDenormals() noexcept {}
#endif
};

}  // namespace quillworks
