// SPDX-License-Identifier: ISC
// Block arithmetic on arrays of float and double: the typed front of the vector kernels.
#pragma once
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/vector_table.h"

/// `d` is the destination, `s`, `s1`, `s2` are sources, `n` the element count; a count of 0 does
/// nothing. Working in place (a source equal to the destination) is allowed everywhere, other
/// overlaps nowhere. Any element offset will do. Results are the scalar formula's bit for bit,
/// whatever the processor. [any thread]
///
/// min(a, b) is a < b ? a : b and max(a, b) is a > b ? a : b, so that b wins over a NaN: clamping
/// turns a NaN into the limit.
///
/// Ramps run linearly from `from`, the value before the block, to `to`, which the last element
/// reaches exactly: g[i] = to - (to - from)/n (n - 1 - i).
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

template <std::floating_point T, class... Args>
void typed(VectorOp op, int n, T* d, const Args&... args)
{
    call(static_cast<int>(op) + std::same_as<T, double>, n, d, args...);
}

template <class T, class... Args> void mixed(VectorOp op, int n, T* d, const Args&... args)
{
    call(static_cast<int>(op), n, d, args...);
}

}  // namespace detail

// Filling and copying

/// d = c
template <class T> void set(T* d, Value<T> c, int n)
{
    detail::typed(VectorOp::Set, n, d, c);
}

/// d = 0
template <class T> void clear(T* d, int n)
{
    detail::typed(VectorOp::Clear, n, d);
}

/// d = s
template <class T> void copy(T* d, const T* s, int n)
{
    detail::typed(VectorOp::Copy, n, d, s);
}

/// d = -s, the polarity inverted
template <class T> void negateCopy(T* d, const T* s, int n)
{
    detail::typed(VectorOp::NegateCopy, n, d, s);
}

/// d = s in the other precision
inline void convert(double* d, const float* s, int n)
{
    detail::mixed(VectorOp::FloatToDouble, n, d, s);
}
inline void convert(float* d, const double* s, int n)
{
    detail::mixed(VectorOp::DoubleToFloat, n, d, s);
}

/// d = s * gain, computed in double
inline void convertScaled(double* d, const float* s, double gain, int n)
{
    detail::mixed(VectorOp::FloatToDoubleGain, n, d, s, gain);
}
inline void convertScaled(float* d, const double* s, double gain, int n)
{
    detail::mixed(VectorOp::DoubleToFloatGain, n, d, s, gain);
}

// Two vectors

/// d = d + s
template <class T> void addInplace(T* d, const T* s, int n)
{
    detail::typed(VectorOp::AddInplace, n, d, s);
}

/// d = d - s
template <class T> void subInplace(T* d, const T* s, int n)
{
    detail::typed(VectorOp::SubInplace, n, d, s);
}

/// d = d * s
template <class T> void mulInplace(T* d, const T* s, int n)
{
    detail::typed(VectorOp::MulInplace, n, d, s);
}

/// d = s1 + s2
template <class T> void addCopy(T* d, const T* s1, const T* s2, int n)
{
    detail::typed(VectorOp::AddCopy, n, d, s1, s2);
}

/// d = s1 - s2
template <class T> void subCopy(T* d, const T* s1, const T* s2, int n)
{
    detail::typed(VectorOp::SubCopy, n, d, s1, s2);
}

/// d = s1 * s2
template <class T> void mulCopy(T* d, const T* s1, const T* s2, int n)
{
    detail::typed(VectorOp::MulCopy, n, d, s1, s2);
}

// Gains and mixing

/// d = d * gain
template <class T> void scale(T* d, Value<T> gain, int n)
{
    detail::typed(VectorOp::Scale, n, d, gain);
}

/// d = s * gain
template <class T> void scaleCopy(T* d, const T* s, Value<T> gain, int n)
{
    detail::typed(VectorOp::ScaleCopy, n, d, s, gain);
}

/// d = d + c
template <class T> void addConst(T* d, Value<T> c, int n)
{
    detail::typed(VectorOp::AddConst, n, d, c);
}

/// d = d + s * gain
template <class T> void addScaled(T* d, const T* s, Value<T> gain, int n)
{
    detail::typed(VectorOp::AddScaled, n, d, s, gain);
}

/// d = d + s * gain, computed in double and rounded once
inline void addScaled(float* d, const double* s, float gain, int n)
{
    detail::mixed(VectorOp::AddScaledFromDouble, n, d, s, gain);
}
inline void addScaled(double* d, const float* s, float gain, int n)
{
    detail::mixed(VectorOp::AddScaledFromFloat, n, d, s, gain);
}

/// d = s1 + s2 * gain
template <class T> void addScaledCopy(T* d, const T* s1, const T* s2, Value<T> gain, int n)
{
    detail::typed(VectorOp::AddScaledCopy, n, d, s1, s2, gain);
}

/// d = s1 * gain1 + s2 * gain2
template <class T>
void mixScaled(T* d, const T* s1, const T* s2, Value<T> gain1, Value<T> gain2, int n)
{
    detail::typed(VectorOp::MixScaled, n, d, s1, s2, gain1, gain2);
}

/// d = (s1 + s2) * gain
template <class T> void addScale(T* d, const T* s1, const T* s2, Value<T> gain, int n)
{
    detail::typed(VectorOp::AddScale, n, d, s1, s2, gain);
}

/// d = (s1 - s2) * gain
template <class T> void subScale(T* d, const T* s1, const T* s2, Value<T> gain, int n)
{
    detail::typed(VectorOp::SubScale, n, d, s1, s2, gain);
}

/// d = c - d
template <class T> void complement(T* d, Value<T> c, int n)
{
    detail::typed(VectorOp::Complement, n, d, c);
}

// Ramps

/// d = ramp
template <class T> void ramp(T* d, Value<T> from, Value<T> to, int n)
{
    detail::typed(VectorOp::Ramp, n, d, from, to);
}

/// d = d * ramp
template <class T> void rampGain(T* d, Value<T> from, Value<T> to, int n)
{
    detail::typed(VectorOp::RampGain, n, d, from, to);
}

/// d = s * ramp
template <class T> void rampGainCopy(T* d, const T* s, Value<T> from, Value<T> to, int n)
{
    detail::typed(VectorOp::RampGainCopy, n, d, s, from, to);
}

/// d = d + s * ramp
template <class T> void addRampGain(T* d, const T* s, Value<T> from, Value<T> to, int n)
{
    detail::typed(VectorOp::AddRampGain, n, d, s, from, to);
}

// Limits and magnitudes

/// d = min(max(d + offset, low), high)
template <class T> void offsetRange(T* d, Value<T> offset, Value<T> low, Value<T> high, int n)
{
    detail::typed(VectorOp::OffsetRange, n, d, offset, low, high);
}

/// d = min(max(s + offset, low), high)
template <class T>
void offsetRangeCopy(T* d, const T* s, Value<T> offset, Value<T> low, Value<T> high, int n)
{
    detail::typed(VectorOp::OffsetRangeCopy, n, d, s, offset, low, high);
}

/// d = min(d, limit)
template <class T> void clampMax(T* d, Value<T> limit, int n)
{
    detail::typed(VectorOp::ClampMax, n, d, limit);
}

/// d = max(d, limit)
template <class T> void clampMin(T* d, Value<T> limit, int n)
{
    detail::typed(VectorOp::ClampMin, n, d, limit);
}

/// d = max(d, s)
template <class T> void max(T* d, const T* s, int n)
{
    detail::typed(VectorOp::Max, n, d, s);
}

/// d = min(d, s)
template <class T> void min(T* d, const T* s, int n)
{
    detail::typed(VectorOp::Min, n, d, s);
}

/// d = max(|s1|, |s2|)
template <class T> void maxAbsCopy(T* d, const T* s1, const T* s2, int n)
{
    detail::typed(VectorOp::MaxAbsCopy, n, d, s1, s2);
}

/// d = max(d, |s|)
template <class T> void maxAbs(T* d, const T* s, int n)
{
    detail::typed(VectorOp::MaxAbs, n, d, s);
}

/// d = the one of s1 and s2 that is larger in magnitude, with its sign; s1 if they are equal
template <class T> void absMaxCopy(T* d, const T* s1, const T* s2, int n)
{
    detail::typed(VectorOp::AbsMaxCopy, n, d, s1, s2);
}

/// d = the one of d and s that is larger in magnitude, with its sign; d if they are equal
template <class T> void absMax(T* d, const T* s, int n)
{
    detail::typed(VectorOp::AbsMax, n, d, s);
}

/// d = |s|
template <class T> void absCopy(T* d, const T* s, int n)
{
    detail::typed(VectorOp::AbsCopy, n, d, s);
}

/// d = |d|
template <class T> void abs(T* d, int n)
{
    detail::typed(VectorOp::Abs, n, d);
}

// Metering: the largest magnitude, 0 or more; NaNs are passed over

/// The peak of s.
template <class T> std::remove_const_t<T> peak(T* s, int n)
{
    std::remove_const_t<T> result = 0;
    detail::typed(VectorOp::Peak, n, const_cast<std::remove_const_t<T>*>(s), &result);
    return result;
}

/// d = d * ramp; returns the peak of the result.
template <class T> T rampGainPeak(T* d, Value<T> from, Value<T> to, int n)
{
    T result = 0;
    detail::typed(VectorOp::RampGainPeak, n, d, from, to, &result);
    return result;
}

/// d = d * gain; returns the peak of the result.
template <class T> T gainPeak(T* d, Value<T> gain, int n)
{
    T result = 0;
    detail::typed(VectorOp::GainPeak, n, d, gain, &result);
    return result;
}

}  // namespace quillworks::vec
