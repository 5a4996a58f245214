// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/short_fir.cpp"
#include "dsp/simd.h"
//
#include "dsp/short_fir.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// Several vectors of frames, with two sums for each of them: enough not to wait for one another.
template <int vectors, typename T> HWY_INLINE void sum(T* y, const T* x, const T* h, int taps)
{
    const hn::CappedTag<T, 16> d;
    using V = hn::Vec<hn::CappedTag<T, 16>>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(hn::CappedTag<T, 16>()));
    V even[vectors], odd[vectors];
    for (int v = 0; v < vectors; ++v) even[v] = odd[v] = hn::Zero(d);
    int k = 0;
    for (; k + 2 <= taps; k += 2) {
        const auto h0 = hn::Set(d, h[k]), h1 = hn::Set(d, h[k + 1]);
        for (int v = 0; v < vectors; ++v) {
            even[v] = hn::MulAdd(h0, hn::LoadU(d, x + v * lanes - k), even[v]);
            odd[v] = hn::MulAdd(h1, hn::LoadU(d, x + v * lanes - k - 1), odd[v]);
        }
    }
    if (k < taps)
        for (int v = 0; v < vectors; ++v)
            even[v] = hn::MulAdd(hn::Set(d, h[k]), hn::LoadU(d, x + v * lanes - k), even[v]);
    for (int v = 0; v < vectors; ++v) hn::StoreU(hn::Add(even[v], odd[v]), d, y + v * lanes);
}

template <typename T> void addFir(T* y, const T* x, const T* h, int taps, int n)
{
    constexpr int lanes = static_cast<int>(hn::MaxLanes(hn::CappedTag<T, 16>()));
    constexpr int vectors = lanes > 4 ? 2 : 4;
    HWY_ALIGN T filtered[64 + 16];
    for (int i = 0; i < n;) {
        if (n - i > lanes) {
            sum<vectors>(filtered + i, x + i, h, taps);
            i += vectors * lanes;
        } else {
            sum<1>(filtered + i, x + i, h, taps);
            i += lanes;
        }
    }
    for (int i = 0; i < n; ++i) y[i] += filtered[i];
}

void addFloats(float* y, const float* x, const float* h, int taps, int n)
{
    addFir(y, x, h, taps, n);
}
void addDoubles(double* y, const double* x, const double* h, int taps, int n)
{
    addFir(y, x, h, taps, n);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(addFloats);
HWY_EXPORT(addDoubles);
static const auto chosenFloats = SIMD_CHOOSE(addFloats);
static const auto chosenDoubles = SIMD_CHOOSE(addDoubles);

void addFiltered(float* y, const float* x, const float* h, int taps, int n) noexcept
{
    chosenFloats(y, x, h, taps, n);
}
void addFiltered(double* y, const double* x, const double* h, int taps, int n) noexcept
{
    chosenDoubles(y, x, h, taps, n);
}

}  // namespace quillworks
#endif
