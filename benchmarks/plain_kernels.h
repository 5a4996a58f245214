// SPDX-License-Identifier: ISC
// The loops one would write without a library, as the compiler vectorises them for this processor.
#pragma once

namespace plain {

// clang-format off
template <class T> void set(T* d, T c, int n);
template <class T> void clear(T* d, int n);
template <class T> void copy(T* d, const T* s, int n);
template <class T> void negateCopy(T* d, const T* s, int n);
template <class T> void addInplace(T* d, const T* s, int n);
template <class T> void subInplace(T* d, const T* s, int n);
template <class T> void mulInplace(T* d, const T* s, int n);
template <class T> void addCopy(T* d, const T* s1, const T* s2, int n);
template <class T> void subCopy(T* d, const T* s1, const T* s2, int n);
template <class T> void mulCopy(T* d, const T* s1, const T* s2, int n);
template <class T> void scale(T* d, T c, int n);
template <class T> void scaleCopy(T* d, const T* s, T c, int n);
template <class T> void addConst(T* d, T c, int n);
template <class T> void addScaled(T* d, const T* s, T c, int n);
template <class T> void addScaledCopy(T* d, const T* s1, const T* s2, T c, int n);
template <class T> void mixScaled(T* d, const T* s1, const T* s2, T c1, T c2, int n);
template <class T> void addScale(T* d, const T* s1, const T* s2, T c, int n);
template <class T> void subScale(T* d, const T* s1, const T* s2, T c, int n);
template <class T> void complement(T* d, T c, int n);
template <class T> void ramp(T* d, T from, T to, int n);
template <class T> void rampGain(T* d, T from, T to, int n);
template <class T> void rampGainCopy(T* d, const T* s, T from, T to, int n);
template <class T> void addRampGain(T* d, const T* s, T from, T to, int n);
template <class T> void offsetRange(T* d, T offset, T low, T high, int n);
template <class T> void offsetRangeCopy(T* d, const T* s, T offset, T low, T high, int n);
template <class T> void clampMax(T* d, T limit, int n);
template <class T> void clampMin(T* d, T limit, int n);
template <class T> void max(T* d, const T* s, int n);
template <class T> void min(T* d, const T* s, int n);
template <class T> void maxAbsCopy(T* d, const T* s1, const T* s2, int n);
template <class T> void maxAbs(T* d, const T* s, int n);
template <class T> void absMaxCopy(T* d, const T* s1, const T* s2, int n);
template <class T> void absMax(T* d, const T* s, int n);
template <class T> void absCopy(T* d, const T* s, int n);
template <class T> void abs(T* d, int n);
template <class T> T peak(const T* s, int n);
template <class T> T rampGainPeak(T* d, T from, T to, int n);
template <class T> T gainPeak(T* d, T c, int n);
template <class T, class S> void convert(T* d, const S* s, int n);
template <class T, class S> void convertScaled(T* d, const S* s, double c, int n);
template <class T, class S> void addScaledMixed(T* d, const S* s, float c, int n);
template <class T> void log2(T* d, const T* s, int n);
template <class T> void log10(T* d, const T* s, int n);
template <class T> void exp(T* d, const T* s, int n);
template <class T> void exp2(T* d, const T* s, int n);
template <class T> void exp10(T* d, const T* s, int n);
template <class T> void tanh(T* d, const T* s, int n);
template <class T> void sqrt(T* d, const T* s, int n);
template <class T> void gainFromDecibels(T* d, const T* s, int n);
template <class T> void decibelsFromPower(T* d, const T* s, T floor, int n);
// clang-format on

}  // namespace plain
