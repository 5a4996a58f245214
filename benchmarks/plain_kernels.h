// SPDX-License-Identifier: ISC
// The loops one would write without a library, as the compiler vectorises them for this processor.
#pragma once
#include "vectorlib/reference.h"

namespace plain {

/// An operation of the vector library as a loop over its law; returns the peak, or 0.
template <class Law, DSP::VectorLib::Result result, class D, class S, class C>
D loop(D* d, const S* s1, const S* s2, C c1, C c2, C c3, int n);

// clang-format off
template <class T> void log2(T* d, const T* s, int n);
template <class T> void log10(T* d, const T* s, int n);
template <class T> void exp(T* d, const T* s, int n);
template <class T> void exp2(T* d, const T* s, int n);
template <class T> void tanh(T* d, const T* s, int n);
template <class T> void sqrt(T* d, const T* s, int n);
template <class T> void gainFromDecibels(T* d, const T* s, int n);
template <class T> void decibelsFromPower(T* d, const T* s, T floor, int n);
// clang-format on

}  // namespace plain
