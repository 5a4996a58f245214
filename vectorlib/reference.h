// SPDX-License-Identifier: ISC
// The laws of the operations on numbers, which the kernels equal bit for bit; for tests and timing.
#pragma once
#include <cmath>

#include "vectorlib/operations.h"

namespace DSP::VectorLib::reference {

template <class T> T min(T a, T b)
{
    return a < b ? a : b;
}
template <class T> T max(T a, T b)
{
    return a > b ? a : b;
}
template <class T> T abs(T a)
{
    return std::fabs(a);
}
template <class T> T larger(T a, T b)
{
    return abs(a) >= abs(b) ? a : b;
}
template <class T> T negative(T a)
{
    return -a;
}
VECTORLIB_OPERATIONS(VECTORLIB_TYPED_LAW, VECTORLIB_MIXED_LAW)

/// f(d, s1, s2, c1, c2, c3, n) with as many sources and constants as an operation has.
template <int sources, int constants, class F, class D, class S, class C>
auto callWithOperands(F f, D* d, const S* s1, const S* s2, C c1, C c2, C c3, int n)
{
    const auto with = [=](auto... s) {
        if constexpr (constants == 0)
            return f(d, s..., n);
        else if constexpr (constants == 1)
            return f(d, s..., c1, n);
        else if constexpr (constants == 2)
            return f(d, s..., c1, c2, n);
        else
            return f(d, s..., c1, c2, c3, n);
    };
    if constexpr (sources == 0)
        return with();
    else if constexpr (sources == 1)
        return with(s1);
    else
        return with(s1, s2);
}

}  // namespace DSP::VectorLib::reference
