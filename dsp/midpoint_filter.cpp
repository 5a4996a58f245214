// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/midpoint_filter.cpp"
#include "dsp/simd.h"
//
#include "dsp/midpoint-inl.h"
#include "dsp/midpoint_filter.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

void midpointsFloat(const float* tap, int size, const float* x, float* out, int n)
{
    midpoints(tap, size, x, out, n);
}
void midpointsDouble(const double* tap, int size, const double* x, double* out, int n)
{
    midpoints(tap, size, x, out, n);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>

namespace quillworks {
namespace {

HWY_EXPORT(midpointsFloat);
HWY_EXPORT(midpointsDouble);
template <typename T> void (*const chosenMidpoints)(const T*, int, const T*, T*, int) = nullptr;
template <>
void (*const chosenMidpoints<float>)(const float*, int, const float*, float*,
                                     int) = SIMD_CHOOSE(midpointsFloat);
template <>
void (*const chosenMidpoints<double>)(const double*, int, const double*, double*,
                                      int) = SIMD_CHOOSE(midpointsDouble);

}  // namespace

/// As the kernel, but n values and no more.
template <typename T> void MidpointFilter<T>::interpolate(const T* x, int n, T* out) noexcept
{
    constexpr int kPiece = 32;
    T piece[kPiece + kPadding];
    for (int i = 0; i < n; i += kPiece) {
        const int m = std::min(kPiece, n - i);
        chosenMidpoints<T>(taps_.data(), latency(), x + i, piece, m);
        std::copy_n(piece, m, out + i);
    }
}

template <typename T> void MidpointFilter<T>::up(const T* x, int n, T* even, T* odd) noexcept
{
    std::copy_n(x, n, recent_[0].append(n));
    const T* const late = recent_[0].end() - n - latency();
    interpolate(late, n, odd);
    std::copy_n(late, n, even);
}

template <typename T>
void MidpointFilter<T>::down(const T* even, const T* odd, int n, T* out) noexcept
{
    std::copy_n(even, n, recent_[0].append(n));
    std::copy_n(odd, n, recent_[1].append(n));
    const T* const late = recent_[0].end() - n - latency() + 1;
    interpolate(recent_[1].end() - n - latency(), n, out);
    for (int i = 0; i < n; ++i) out[i] = T(0.5) * (late[i] + out[i]);
}

template class MidpointFilter<float>;
template class MidpointFilter<double>;

}  // namespace quillworks
#endif
