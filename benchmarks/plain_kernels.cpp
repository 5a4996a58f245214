// SPDX-License-Identifier: ISC
// Compiled for the processor it is built on.
#include "benchmarks/plain_kernels.h"

#include <cmath>

namespace plain {
namespace {

template <class T> T lesser(T a, T b)
{
    return a < b ? a : b;
}
template <class T> T greater(T a, T b)
{
    return a > b ? a : b;
}

}  // namespace

template <class T> void set(T* d, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = c;
}

template <class T> void clear(T* d, int n)
{
    for (int i = 0; i < n; ++i) d[i] = 0;
}

template <class T> void copy(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = s[i];
}

template <class T> void negateCopy(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = -s[i];
}

template <class T> void addInplace(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] += s[i];
}

template <class T> void subInplace(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] -= s[i];
}

template <class T> void mulInplace(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] *= s[i];
}

template <class T> void addCopy(T* d, const T* s1, const T* s2, int n)
{
    for (int i = 0; i < n; ++i) d[i] = s1[i] + s2[i];
}

template <class T> void subCopy(T* d, const T* s1, const T* s2, int n)
{
    for (int i = 0; i < n; ++i) d[i] = s1[i] - s2[i];
}

template <class T> void mulCopy(T* d, const T* s1, const T* s2, int n)
{
    for (int i = 0; i < n; ++i) d[i] = s1[i] * s2[i];
}

template <class T> void scale(T* d, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] *= c;
}

template <class T> void scaleCopy(T* d, const T* s, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = s[i] * c;
}

template <class T> void addConst(T* d, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] += c;
}

template <class T> void addScaled(T* d, const T* s, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] += s[i] * c;
}

template <class T> void addScaledCopy(T* d, const T* s1, const T* s2, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = s1[i] + s2[i] * c;
}

template <class T> void mixScaled(T* d, const T* s1, const T* s2, T c1, T c2, int n)
{
    for (int i = 0; i < n; ++i) d[i] = s1[i] * c1 + s2[i] * c2;
}

template <class T> void addScale(T* d, const T* s1, const T* s2, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = (s1[i] + s2[i]) * c;
}

template <class T> void subScale(T* d, const T* s1, const T* s2, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = (s1[i] - s2[i]) * c;
}

template <class T> void complement(T* d, T c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = c - d[i];
}

template <class T> void ramp(T* d, T from, T to, int n)
{
    const T step = (to - from) / T(n);
    for (int i = 0; i < n; ++i) d[i] = to - step * T(n - 1 - i);
}

template <class T> void rampGain(T* d, T from, T to, int n)
{
    const T step = (to - from) / T(n);
    for (int i = 0; i < n; ++i) d[i] *= to - step * T(n - 1 - i);
}

template <class T> void rampGainCopy(T* d, const T* s, T from, T to, int n)
{
    const T step = (to - from) / T(n);
    for (int i = 0; i < n; ++i) d[i] = s[i] * (to - step * T(n - 1 - i));
}

template <class T> void addRampGain(T* d, const T* s, T from, T to, int n)
{
    const T step = (to - from) / T(n);
    for (int i = 0; i < n; ++i) d[i] += s[i] * (to - step * T(n - 1 - i));
}

template <class T> void offsetRange(T* d, T offset, T low, T high, int n)
{
    for (int i = 0; i < n; ++i) d[i] = lesser(greater(d[i] + offset, low), high);
}

template <class T> void offsetRangeCopy(T* d, const T* s, T offset, T low, T high, int n)
{
    for (int i = 0; i < n; ++i) d[i] = lesser(greater(s[i] + offset, low), high);
}

template <class T> void clampMax(T* d, T limit, int n)
{
    for (int i = 0; i < n; ++i) d[i] = lesser(d[i], limit);
}

template <class T> void clampMin(T* d, T limit, int n)
{
    for (int i = 0; i < n; ++i) d[i] = greater(d[i], limit);
}

template <class T> void max(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = greater(d[i], s[i]);
}

template <class T> void min(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = lesser(d[i], s[i]);
}

template <class T> void maxAbsCopy(T* d, const T* s1, const T* s2, int n)
{
    for (int i = 0; i < n; ++i) d[i] = greater(std::abs(s1[i]), std::abs(s2[i]));
}

template <class T> void maxAbs(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = greater(d[i], std::abs(s[i]));
}

template <class T> void absMaxCopy(T* d, const T* s1, const T* s2, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::abs(s1[i]) >= std::abs(s2[i]) ? s1[i] : s2[i];
}

template <class T> void absMax(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::abs(d[i]) >= std::abs(s[i]) ? d[i] : s[i];
}

template <class T> void absCopy(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::abs(s[i]);
}

template <class T> void abs(T* d, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::abs(d[i]);
}

template <class T> T peak(const T* s, int n)
{
    T result = 0;
    for (int i = 0; i < n; ++i) result = greater(std::abs(s[i]), result);
    return result;
}

template <class T> T rampGainPeak(T* d, T from, T to, int n)
{
    const T step = (to - from) / T(n);
    T result = 0;
    for (int i = 0; i < n; ++i) {
        d[i] *= to - step * T(n - 1 - i);
        result = greater(std::abs(d[i]), result);
    }
    return result;
}

template <class T> T gainPeak(T* d, T c, int n)
{
    T result = 0;
    for (int i = 0; i < n; ++i) {
        d[i] *= c;
        result = greater(std::abs(d[i]), result);
    }
    return result;
}

template <class T, class S> void convert(T* d, const S* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = static_cast<T>(s[i]);
}

template <class T, class S> void convertScaled(T* d, const S* s, double c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = static_cast<T>(s[i] * c);
}

template <class T, class S> void addScaledMixed(T* d, const S* s, float c, int n)
{
    for (int i = 0; i < n; ++i) d[i] = static_cast<T>(d[i] + static_cast<double>(s[i]) * c);
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

template <class T> void exp10(T* d, const T* s, int n)
{
    for (int i = 0; i < n; ++i) d[i] = std::pow(T(10), s[i]);
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
template void set(float*, float, int);
template void set(double*, double, int);
template void clear(float*, int);
template void clear(double*, int);
template void copy(float*, const float*, int);
template void copy(double*, const double*, int);
template void negateCopy(float*, const float*, int);
template void negateCopy(double*, const double*, int);
template void addInplace(float*, const float*, int);
template void addInplace(double*, const double*, int);
template void subInplace(float*, const float*, int);
template void subInplace(double*, const double*, int);
template void mulInplace(float*, const float*, int);
template void mulInplace(double*, const double*, int);
template void addCopy(float*, const float*, const float*, int);
template void addCopy(double*, const double*, const double*, int);
template void subCopy(float*, const float*, const float*, int);
template void subCopy(double*, const double*, const double*, int);
template void mulCopy(float*, const float*, const float*, int);
template void mulCopy(double*, const double*, const double*, int);
template void scale(float*, float, int);
template void scale(double*, double, int);
template void scaleCopy(float*, const float*, float, int);
template void scaleCopy(double*, const double*, double, int);
template void addConst(float*, float, int);
template void addConst(double*, double, int);
template void addScaled(float*, const float*, float, int);
template void addScaled(double*, const double*, double, int);
template void addScaledCopy(float*, const float*, const float*, float, int);
template void addScaledCopy(double*, const double*, const double*, double, int);
template void mixScaled(float*, const float*, const float*, float, float, int);
template void mixScaled(double*, const double*, const double*, double, double, int);
template void addScale(float*, const float*, const float*, float, int);
template void addScale(double*, const double*, const double*, double, int);
template void subScale(float*, const float*, const float*, float, int);
template void subScale(double*, const double*, const double*, double, int);
template void complement(float*, float, int);
template void complement(double*, double, int);
template void ramp(float*, float, float, int);
template void ramp(double*, double, double, int);
template void rampGain(float*, float, float, int);
template void rampGain(double*, double, double, int);
template void rampGainCopy(float*, const float*, float, float, int);
template void rampGainCopy(double*, const double*, double, double, int);
template void addRampGain(float*, const float*, float, float, int);
template void addRampGain(double*, const double*, double, double, int);
template void offsetRange(float*, float, float, float, int);
template void offsetRange(double*, double, double, double, int);
template void offsetRangeCopy(float*, const float*, float, float, float, int);
template void offsetRangeCopy(double*, const double*, double, double, double, int);
template void clampMax(float*, float, int);
template void clampMax(double*, double, int);
template void clampMin(float*, float, int);
template void clampMin(double*, double, int);
template void max(float*, const float*, int);
template void max(double*, const double*, int);
template void min(float*, const float*, int);
template void min(double*, const double*, int);
template void maxAbsCopy(float*, const float*, const float*, int);
template void maxAbsCopy(double*, const double*, const double*, int);
template void maxAbs(float*, const float*, int);
template void maxAbs(double*, const double*, int);
template void absMaxCopy(float*, const float*, const float*, int);
template void absMaxCopy(double*, const double*, const double*, int);
template void absMax(float*, const float*, int);
template void absMax(double*, const double*, int);
template void absCopy(float*, const float*, int);
template void absCopy(double*, const double*, int);
template void abs(float*, int);
template void abs(double*, int);
template float peak(const float*, int);
template double peak(const double*, int);
template float rampGainPeak(float*, float, float, int);
template double rampGainPeak(double*, double, double, int);
template float gainPeak(float*, float, int);
template double gainPeak(double*, double, int);
template void convert(float*, const double*, int);
template void convert(double*, const float*, int);
template void convertScaled(float*, const double*, double, int);
template void convertScaled(double*, const float*, double, int);
template void addScaledMixed(float*, const double*, float, int);
template void addScaledMixed(double*, const float*, float, int);
template void log2(float*, const float*, int);
template void log2(double*, const double*, int);
template void log10(float*, const float*, int);
template void log10(double*, const double*, int);
template void exp(float*, const float*, int);
template void exp(double*, const double*, int);
template void exp2(float*, const float*, int);
template void exp2(double*, const double*, int);
template void exp10(float*, const float*, int);
template void exp10(double*, const double*, int);
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
