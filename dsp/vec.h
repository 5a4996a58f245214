// SPDX-License-Identifier: ISC
// Block arithmetic on arrays of float and double: the typed front of the vector kernels.
#pragma once
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/vector_table.h"

/// One function per row of vectorlib/operations.h, which tells what it computes, over `n` elements:
///
///     front(d, s1, s2, c1, c2, c3, n)        what the law has of these, in this order
///     const T peak = vec::peak(d, n)         those that meter return what they find
///     vec::rampGainCopy(d, s1, from, to, n)  the constants of a ramp: before the block, at its end
///
/// A count of 0 does nothing. Working in place (a source equal to the destination) is allowed
/// everywhere, other overlaps nowhere. Any element offset will do. Results are the scalar law's bit
/// for bit, whatever the processor. [any thread]
namespace quillworks::vec {

/// Keeps constants out of template deduction, so that literals of any type will do.
template <class T> using Value = std::type_identity_t<T>;

namespace detail {

/// An argument as kernels take it: pointers as they are, constants by reference.
template <class X> struct Argument {
    X pointer;
    operator X() const { return pointer; }
};

/// Stored from an integer register: where the stores of a block fill the queue, a load after a
/// store from a vector register waits for the whole queue on some processors (Zen 4: 9 cycles a
/// call, a sixth of filling 512 floats).
template <std::floating_point X> struct Argument<X> {
    explicit Argument(X x)
    {
#if defined(__x86_64__)
        using Bits = std::conditional_t<sizeof(X) == 4, std::uint32_t, std::uint64_t>;
        asm("mov %1, %0" : "=m"(value) : "r"(std::bit_cast<Bits>(x)));
#else
        value = x;
#endif
    }
    X value;
    operator const X*() const
    {
        return &value;
    }
};

template <class X> using PassedAs = std::conditional_t<std::is_pointer_v<X>, X, const X*>;

/// Calls the kernel for `n` elements: sources, constants and output in the order of the kernel.
template <class T, class... Args> void call(int entry, int n, T* d, const Args&... args)
{
    if (n <= 0) return;
    using Kernel = void (*)(T*, PassedAs<Args>..., std::int32_t);
    const auto raw = vectorTable.entries[entry].slots[n & 15];
    reinterpret_cast<Kernel>(raw)(d, Argument<Args>{args}..., n);
}

using DSP::VectorLib::Result;

/// What a function returns; T is constant where the destination is.
template <Result result, class T>
using Returned = std::conditional_t<result == Result::Stores, void, std::remove_const_t<T>>;

template <Result result, class T, class... Args>
Returned<result, T> typed(VectorOp op, int n, T* destination, const Args&... args)
{
    using Element = std::remove_const_t<T>;
    static_assert(std::is_floating_point_v<T> && (result == Result::Meters || !std::is_const_v<T>));
    const int entry = static_cast<int>(op) + std::is_same_v<Element, double>;
    auto* const d = const_cast<Element*>(destination);
    if constexpr (result == Result::Stores) {
        call(entry, n, d, args...);
    } else {
        Element metered = 0;
        call(entry, n, d, args..., &metered);
        return metered;
    }
}

}  // namespace detail

// Parameters and arguments for a number of sources or constants.
#define VEC_SOURCES_0(T)
#define VEC_SOURCES_1(T) const T *s1,
#define VEC_SOURCES_2(T) const T *s1, const T *s2,
#define VEC_CONSTANTS_0(T)
#define VEC_CONSTANTS_1(T) T c1,
#define VEC_CONSTANTS_2(T) T c1, T c2,
#define VEC_CONSTANTS_3(T) T c1, T c2, T c3,
#define VEC_GIVE_SOURCES_0
#define VEC_GIVE_SOURCES_1 , s1
#define VEC_GIVE_SOURCES_2 , s1, s2
#define VEC_GIVE_CONSTANTS_0
#define VEC_GIVE_CONSTANTS_1 , c1
#define VEC_GIVE_CONSTANTS_2 , c1, c2
#define VEC_GIVE_CONSTANTS_3 , c1, c2, c3

#define TYPED(front, operation, operands, sources, constants, result, law)                         \
    template <class T>                                                                             \
    detail::Returned<detail::Result::result, T> front(                                             \
        T* d, VEC_SOURCES_##sources(T) VEC_CONSTANTS_##constants(Value<T>) int n)                  \
    {                                                                                              \
        return detail::typed<detail::Result::result>(                                              \
            VectorOp::front, n, d VEC_GIVE_SOURCES_##sources VEC_GIVE_CONSTANTS_##constants);      \
    }
#define MIXED(id, front, name, D, S, C, constants, law)                                            \
    inline void front(D* d, const S* s1, VEC_CONSTANTS_##constants(C) int n)                       \
    {                                                                                              \
        detail::call(static_cast<int>(VectorOp::id), n, d, s1 VEC_GIVE_CONSTANTS_##constants);     \
    }
VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED
#undef VEC_SOURCES_0
#undef VEC_SOURCES_1
#undef VEC_SOURCES_2
#undef VEC_CONSTANTS_0
#undef VEC_CONSTANTS_1
#undef VEC_CONSTANTS_2
#undef VEC_CONSTANTS_3
#undef VEC_GIVE_SOURCES_0
#undef VEC_GIVE_SOURCES_1
#undef VEC_GIVE_SOURCES_2
#undef VEC_GIVE_CONSTANTS_0
#undef VEC_GIVE_CONSTANTS_1
#undef VEC_GIVE_CONSTANTS_2
#undef VEC_GIVE_CONSTANTS_3

}  // namespace quillworks::vec
