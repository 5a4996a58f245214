// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mixing/image_kernel.cpp"
#include "dsp/simd.h"
//
#include "mixing/transpose-inl.h"
//
#include "dsp/control_grid.h"
#include "mixing/image_kernel.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR

template <typename T> void runImages(const ImageRun<T>& run)
{
    for (int i = 0; i < run.frames; ++i) {
        T sum[2] = {0, 0};
        for (int lane = 0; lane < run.lanes; ++lane) {
            const T x = run.from[lane][i];
            T& z = run.z[lane];
            sum[lane % 2] += run.l[lane] * z + run.h[lane] * x;
            z += run.b[lane] * (x - z);
        }
        for (int ear = 0; ear < 2; ++ear) run.ears[ear][i] = sum[ear];
    }
}

#else

/// The lanes of v added up until a left and a right one, or two of each, are left.
template <typename T, class D> HWY_INLINE hn::Vec<Short<T>> folded(D, hn::Vec<D> v)
{
    if constexpr (hn::MaxLanes(D()) > kShort<T>) {
        const hn::Half<D> half;
        return folded<T>(half, hn::Add(hn::LowerHalf(half, v), hn::UpperHalf(half, v)));
    } else {
        return v;
    }
}

template <typename T> using Wide = hn::CappedTag<T, 8>;
template <typename T> constexpr int kWide = static_cast<int>(hn::MaxLanes(Wide<T>()));

/// As many vectors as hold the lanes.
template <int vectors, typename T> HWY_INLINE void recur(const ImageRun<T>& run, const T* rows)
{
    const Wide<T> d;
    constexpr int n = kWide<T>;
    hn::Vec<Wide<T>> b[vectors], l[vectors], h[vectors], z[vectors];
    for (int v = 0; v < vectors; ++v) {
        b[v] = hn::LoadU(d, run.b + v * n);
        l[v] = hn::LoadU(d, run.l + v * n);
        h[v] = hn::LoadU(d, run.h + v * n);
        z[v] = hn::LoadU(d, run.z + v * n);
    }
    HWY_ALIGN T sums[kSubBlock * kShort<T>];
    for (int i = 0; i < run.frames; ++i) {
        auto sum = hn::Zero(d);
        for (int v = 0; v < vectors; ++v) {
            const auto x = hn::LoadU(d, rows + i * ImageRun<T>::kMostLanes + v * n);
            sum = hn::MulAdd(h[v], x, hn::MulAdd(l[v], z[v], sum));
            z[v] = hn::MulAdd(b[v], hn::Sub(x, z[v]), z[v]);
        }
        hn::StoreU(folded<T>(d, sum), Short<T>(), sums + i * kShort<T>);
    }
    for (int v = 0; v < vectors; ++v) hn::StoreU(z[v], d, run.z + v * n);
    for (int ear = 0; ear < 2; ++ear)
        for (int i = 0; i < run.frames; ++i) {
            const T* const sum = sums + i * kShort<T> + ear;
            run.ears[ear][i] = kShort<T> == 2 ? sum[0] : sum[0] + sum[kShort<T> - 2];
        }
}

template <typename T> void runImages(const ImageRun<T>& run)
{
    constexpr int kStride = ImageRun<T>::kMostLanes;
    HWY_ALIGN T rows[kSubBlock * kStride];
    toRows<T>(run.from, run.lanes, run.frames, rows, kStride);
    constexpr int kHalf = (kStride / 2 + kWide<T> - 1) / kWide<T>;
    if (run.lanes > kStride / 2) return recur<kStride / kWide<T>>(run, rows);
    for (int i = 0; i < run.frames; ++i)  // what fills the last vector
        for (int lane = run.lanes; lane < kHalf * kWide<T>; ++lane) rows[i * kStride + lane] = 0;
    recur<kHalf>(run, rows);
}

#endif

void runFloat(const ImageRun<float>& run)
{
    runImages(run);
}
void runDouble(const ImageRun<double>& run)
{
    runImages(run);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(runFloat);
HWY_EXPORT(runDouble);

}  // namespace

template <> void (*const ImageRun<float>::run)(const ImageRun<float>&) = SIMD_CHOOSE(runFloat);
template <> void (*const ImageRun<double>::run)(const ImageRun<double>&) = SIMD_CHOOSE(runDouble);

}  // namespace quillworks
#endif
