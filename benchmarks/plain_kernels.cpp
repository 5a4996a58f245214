// SPDX-License-Identifier: ISC
// Compiled for the processor it is built on.
#include "benchmarks/plain_kernels.h"

#include <cmath>
#include <type_traits>

namespace plain {

namespace lib = DSP::VectorLib;
namespace reference = lib::reference;

template <class Law, lib::Result result, class D, class S, class C>
D loop(D* d, const S* s1, const S* s2, C c1, C c2, C c3, int n)
{
    using Work = std::conditional_t<(sizeof(D) > sizeof(S)), D, S>;
    const Work step = (Work(c2) - Work(c1)) / Work(n);
    D peak = 0;
    for (int i = 0; i < n; ++i) {
        const Work g = Work(c2) - step * Work(n - 1 - i);
        const D value = static_cast<D>(Law::of(Work(d[i]), Work(s1[i]), Work(s2[i]), Work(c1),
                                               Work(c2), Work(c3), g, Work(0)));
        if constexpr (result != lib::Result::Meters) d[i] = value;
        if constexpr (result != lib::Result::Stores)
            peak = reference::max(reference::abs(value), peak);
    }
    return peak;
}

template <class T> void log2(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::log2(s[i]);
}

template <class T> void log10(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::log10(s[i]);
}

template <class T> void exp(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::exp(s[i]);
}

template <class T> void exp2(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::exp2(s[i]);
}

template <class T> void tanh(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::tanh(s[i]);
}

template <class T> void sqrt(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::sqrt(s[i]);
}

template <class T> void gainFromDecibels(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::pow(T(10), s[i] / 20);
}

template <class T> void decibelsFromPower(T* d, const T* s, T floor, int n)
{
    for (int i = 0; i < n; ++i) d[i] = 10 * std::log10(s[i] + floor);
}

// clang-format off
#define TYPED(front, operation, operands, sources, constants, result, law)                         \
    template float loop<reference::front##Law, lib::Result::result>(                               \
        float*, const float*, const float*, float, float, float, int);                             \
    template double loop<reference::front##Law, lib::Result::result>(                              \
        double*, const double*, const double*, double, double, double, int);
#define MIXED(id, front, name, D, S, C, constants, law)                                            \
    template D loop<reference::id##Law, lib::Result::Stores>(D*, const S*, const S*, C, C, C, int);
VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED

template void log2(float*, const float*, int);
template void log2(double*, const double*, int);
template void log10(float*, const float*, int);
template void log10(double*, const double*, int);
template void exp(float*, const float*, int);
template void exp(double*, const double*, int);
template void exp2(float*, const float*, int);
template void exp2(double*, const double*, int);
template void tanh(float*, const float*, int);
template void tanh(double*, const double*, int);
template void sqrt(float*, const float*, int);
template void sqrt(double*, const double*, int);
template void gainFromDecibels(float*, const float*, int);
template void gainFromDecibels(double*, const double*, int);
template void decibelsFromPower(float*, const float*, float, int);
template void decibelsFromPower(double*, const double*, double, int);
// clang-format on

}  // namespace plain
