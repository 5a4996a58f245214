// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "reverb/reflection_kernels.cpp"
#include "dsp/simd.h"
//
#include <hwy/highway.h>

#include "reverb/reflection_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Two rows become one of pairs, and back. Frames up to a multiple of the vector.
template <typename T> HWY_INLINE void interleave(const T* a, const T* b, T* pairs, int frames)
{
    const hn::CappedTag<T, 32 / sizeof(T)> d;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(decltype(d)()));
    for (int i = 0; i < frames; i += lanes)
        hn::StoreInterleaved2(hn::LoadU(d, a + i), hn::LoadU(d, b + i), d, pairs + 2 * i);
}
template <typename T> HWY_INLINE void separate(const T* pairs, T* a, T* b, int frames)
{
    const hn::CappedTag<T, 32 / sizeof(T)> d;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(decltype(d)()));
    for (int i = 0; i < frames; i += lanes) {
        hn::Vec<decltype(d)> x, y;
        hn::LoadInterleaved2(d, pairs + 2 * i, x, y);
        hn::StoreU(x, d, a + i);
        hn::StoreU(y, d, b + i);
    }
}

/// Sources in lanes; each order takes what the one before it gives.
template <bool moves, typename T> HWY_INLINE void runWallsOf(const WallRun<T>& run)
{
    const hn::CappedTag<T, kReflectionSources> d;
    using V = hn::Vec<decltype(d)>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(decltype(d)()));
    constexpr int pairs = kReflectionSources * kReflectionRow;
    HWY_ALIGN T x[pairs], y[kReflectionOrders][pairs];
    interleave(run.in[0], run.in[1], x, run.frames);
    for (int first = 0; first < kReflectionSources; first += lanes) {
        V z[kReflectionOrders];
        for (int k = 0; k < kReflectionOrders; ++k)
            z[k] = hn::LoadU(d, run.states + k * kReflectionSources + first);
        const auto at = [&](T to, T step, V ahead) HWY_ATTR {
            const V end = hn::Set(d, to);
            return moves ? hn::NegMulAdd(hn::Set(d, step), ahead, end) : end;
        };
        for (int i = 0; i < run.frames; ++i) {
            const V ahead = hn::Set(d, T(kSubBlock - 1 - run.phase - i));
            const V keep = at(run.to.keep, run.step.keep, ahead),
                    feed = at(run.to.feed, run.step.feed, ahead),
                    through = at(run.to.through, run.step.through, ahead);
            const int place = i * kReflectionSources + first;
            V v = hn::LoadU(d, x + place);
            for (int k = 0; k < kReflectionOrders; ++k) {
                const V out = hn::MulAdd(through, v, z[k]);
                z[k] = hn::MulAdd(keep, z[k], hn::Mul(feed, v));
                hn::StoreU(out, d, y[k] + place);
                v = out;
            }
        }
        for (int k = 0; k < kReflectionOrders; ++k)
            hn::StoreU(z[k], d, run.states + k * kReflectionSources + first);
    }
    for (int k = 0; k < kReflectionOrders; ++k)
        separate(y[k], run.out[0][k], run.out[1][k], run.frames);
}

template <typename T> HWY_INLINE void runWallsAs(const WallRun<T>& run)
{
    if (run.moves)
        runWallsOf<true>(run);
    else
        runWallsOf<false>(run);
}

/// `vectors` of consecutive frames stay in registers while all taps go by; even and odd taps have
/// sums of their own, since each waits for the one before it.
template <int vectors, class D, typename T>
HWY_INLINE void addRun(D d, const ReflectionRun<T>& run, int from)
{
    using V = hn::Vec<D>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    V even[vectors], odd[vectors];
    for (int v = 0; v < vectors; ++v) {
        even[v] = hn::LoadU(d, run.out + from + v * lanes);
        odd[v] = hn::Zero(d);
    }
    const auto add = [&](V* sums, const T* ring, const ReflectionTap<T>& tap) HWY_ATTR {
        const V gain = hn::Set(d, tap.gain);
        for (int v = 0; v < vectors; ++v)
            sums[v] = hn::MulAdd(gain, hn::LoadU(d, ring + tap.offset + v * lanes), sums[v]);
    };
    const auto* const taps = run.taps;
    const T *const near = run.place + from, *const far = near + run.capacity;
    int t = 0;
    for (; t + 1 < run.wrapped; t += 2) {
        add(even, near, taps[t]);
        add(odd, near, taps[t + 1]);
    }
    if (t < run.wrapped) {
        add(even, near, taps[t]);
        if (t + 1 < run.count) add(odd, far, taps[t + 1]);
        t += 2;
    }
    for (; t + 1 < run.count; t += 2) {
        add(even, far, taps[t]);
        add(odd, far, taps[t + 1]);
    }
    if (t < run.count) add(even, far, taps[t]);
    for (int v = 0; v < vectors; ++v)
        hn::StoreU(hn::Add(even[v], odd[v]), d, run.out + from + v * lanes);
}

template <typename T> HWY_INLINE void addAll(const ReflectionRun<T>& run)
{
    // Wider loads would each cross a cache line.
    const hn::CappedTag<T, 32 / sizeof(T)> d;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(decltype(d)()));
    constexpr int wide = HWY_MIN(4, kSubBlock / lanes);  // what the registers hold
    int at = 0;
    for (; run.frames - at > (wide - 1) * lanes; at += wide * lanes) addRun<wide>(d, run, at);
    for (; at < run.frames; at += lanes) addRun<1>(d, run, at);
}

void wallsOfFloats(const WallRun<float>& run)
{
    runWallsAs(run);
}
void wallsOfDoubles(const WallRun<double>& run)
{
    runWallsAs(run);
}
void addFloats(const ReflectionRun<float>& run)
{
    addAll(run);
}
void addDoubles(const ReflectionRun<double>& run)
{
    addAll(run);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(wallsOfFloats);
HWY_EXPORT(wallsOfDoubles);
HWY_EXPORT(addFloats);
HWY_EXPORT(addDoubles);
static const auto chosenWallsOfFloats = SIMD_CHOOSE(wallsOfFloats);
static const auto chosenWallsOfDoubles = SIMD_CHOOSE(wallsOfDoubles);
static const auto chosenAddFloats = SIMD_CHOOSE(addFloats);
static const auto chosenAddDoubles = SIMD_CHOOSE(addDoubles);

void runWalls(const WallRun<float>& run)
{
    chosenWallsOfFloats(run);
}
void runWalls(const WallRun<double>& run)
{
    chosenWallsOfDoubles(run);
}
void addReflections(const ReflectionRun<float>& run)
{
    chosenAddFloats(run);
}
void addReflections(const ReflectionRun<double>& run)
{
    chosenAddDoubles(run);
}

}  // namespace quillworks
#endif
