// SPDX-License-Identifier: ISC
// Logarithms, exponentials and the like over arrays of float and double.
#pragma once
#include <type_traits>

/// `d` is the destination, `s` the source, which may be the same array; other overlaps are not
/// allowed. Any count `n` and any element offset will do; 0 does nothing. [any thread]
///
/// Relative error: at most 1e-6 in float, 1e-14 in double. Results may differ in the last bits
/// between processors and, for one processor, do not depend on the position in the array.
///
/// Logarithms: 0 and anything below the smallest normal number give -inf, negative numbers NaN,
/// +inf gives +inf. Exponentials: results above the largest number are +inf, those below the
/// smallest normal number 0. NaN gives NaN everywhere.
namespace quillworks::vec {

namespace detail {

template <class T> struct MathKernels {
    using Map = void (*)(T* d, const T* s, int n);
    Map log2, log10, exp, exp2, tanh, sqrt, gainFromDecibels;
    void (*decibelsFromPower)(T* d, const T* s, T floor, int n);
};

// Chosen for this processor when the binary is loaded, ahead of ordinary static objects.
extern const MathKernels<float> floatMath;
extern const MathKernels<double> doubleMath;

template <class T> const MathKernels<T>& math()
{
    if constexpr (std::is_same_v<T, float>)
        return floatMath;
    else
        return doubleMath;
}

/// The kernels for a bit set of DSP::VectorLib::Permitted; null if the processor has none of them.
template <class T> const MathKernels<T>* mathFor(int permitted);

}  // namespace detail

/// d = log2(s)
template <class T> void log2(T* d, const T* s, int n)
{
    detail::math<T>().log2(d, s, n);
}

/// d = log10(s)
template <class T> void log10(T* d, const T* s, int n)
{
    detail::math<T>().log10(d, s, n);
}

/// d = e^s
template <class T> void exp(T* d, const T* s, int n)
{
    detail::math<T>().exp(d, s, n);
}

/// d = 2^s
template <class T> void exp2(T* d, const T* s, int n)
{
    detail::math<T>().exp2(d, s, n);
}

/// d = tanh(s)
template <class T> void tanh(T* d, const T* s, int n)
{
    detail::math<T>().tanh(d, s, n);
}

/// d = sqrt(s), correctly rounded; NaN below 0
template <class T> void sqrt(T* d, const T* s, int n)
{
    detail::math<T>().sqrt(d, s, n);
}

/// d = 10 log10(s + floor): power to decibels; `floor` > 0 keeps silence finite.
template <class T> void decibelsFromPower(T* d, const T* s, std::type_identity_t<T> floor, int n)
{
    detail::math<T>().decibelsFromPower(d, s, floor, n);
}

/// d = 10^(s / 20): decibels to linear gain.
template <class T> void gainFromDecibels(T* d, const T* s, int n)
{
    detail::math<T>().gainFromDecibels(d, s, n);
}

}  // namespace quillworks::vec
