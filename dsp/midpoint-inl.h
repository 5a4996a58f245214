// SPDX-License-Identifier: ISC
// Points midway between samples, as sums over pairs; compiled once per instruction set.
#if defined(QUILLWORKS_DSP_MIDPOINT_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_DSP_MIDPOINT_INL_H
#undef QUILLWORKS_DSP_MIDPOINT_INL_H
#else
#define QUILLWORKS_DSP_MIDPOINT_INL_H
#endif

#include <hwy/highway.h>
#include <utility>

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

/// Vectors of 32 bytes at most: the blocks are short, and unaligned loads of whole cache lines cost
/// double.
template <typename T> using PairTag = hwy::HWY_NAMESPACE::CappedTag<T, 32 / sizeof(T)>;

/// out[i] = sum of tap[k] (x[i - k] + x[i + 1 + k]), k = 0 .. size - 1, for `n` values, rounded up
/// to whole vectors. No value depends on its place in the block.
template <typename T> HWY_INLINE void midpoints(const T* tap, int size, const T* x, T* out, int n)
{
    namespace hn = hwy::HWY_NAMESPACE;
    const PairTag<T> d;
    using V = hn::Vec<PairTag<T>>;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(d));
    int i = 0;
    for (; i + 4 * kLanes <= n; i += 4 * kLanes) {  // four at a time: the sums wait for no other
        V a = hn::Zero(d), b = a, c = a, e = a;
        for (int k = 0; k < size; ++k) {
            const V gain = hn::Set(d, tap[k]);
            const T *l = x + i - k, *r = x + i + 1 + k;
            a = hn::MulAdd(gain, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), a);
            l += kLanes, r += kLanes;
            b = hn::MulAdd(gain, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), b);
            l += kLanes, r += kLanes;
            c = hn::MulAdd(gain, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), c);
            l += kLanes, r += kLanes;
            e = hn::MulAdd(gain, hn::Add(hn::LoadU(d, l), hn::LoadU(d, r)), e);
        }
        hn::StoreU(a, d, out + i);
        hn::StoreU(b, d, out + i + kLanes);
        hn::StoreU(c, d, out + i + 2 * kLanes);
        hn::StoreU(e, d, out + i + 3 * kLanes);
    }
    for (; i < n; i += kLanes) {
        V a = hn::Zero(d);
        for (int k = 0; k < size; ++k)
            a = hn::MulAdd(hn::Set(d, tap[k]),
                           hn::Add(hn::LoadU(d, x + i - k), hn::LoadU(d, x + i + 1 + k)), a);
        hn::StoreU(a, d, out + i);
    }
}

// A signal may be kept in phases: its sample `index` is x[index mod phases][index / phases].

constexpr int phaseOf(int index, int phases)
{
    return (index % phases + phases) % phases;
}
constexpr int frameOf(int index, int phases)
{
    return (index - phaseOf(index, phases)) / phases;
}

template <int phases, int index, typename T>
HWY_INLINE hwy::HWY_NAMESPACE::Vec<PairTag<T>> sampleAt(const T* const* x, int i)
{
    return hwy::HWY_NAMESPACE::LoadU(PairTag<T>(),
                                     x[phaseOf(index, phases)] + frameOf(index, phases) + i);
}

template <int phases, int index, typename T, int... k>
HWY_INLINE hwy::HWY_NAMESPACE::Vec<PairTag<T>> midpointOf(const T* tap, const T* const* x, int i,
                                                          std::integer_sequence<int, k...>)
{
    namespace hn = hwy::HWY_NAMESPACE;
    const PairTag<T> d;
    auto sum = hn::Zero(d);
    ((sum = hn::MulAdd(
          hn::Set(d, tap[k]),
          hn::Add(sampleAt<phases, index - k>(x, i), sampleAt<phases, index + 1 + k>(x, i)), sum)),
     ...);
    return sum;
}

/// The points midway between the samples `index` and `index` + 1 of frame i and of those behind it.
template <int phases, int index, int size, typename T>
HWY_INLINE auto midpointAt(const T* tap, const T* const* x, int i)
{
    return midpointOf<phases, index>(tap, x, i, std::make_integer_sequence<int, size>());
}

/// out[i] = that of frame i, for `n` frames, rounded up to whole vectors.
template <int phases, int index, int size, typename T>
HWY_INLINE void midpoints(const T* tap, const T* const* x, T* out, int n)
{
    namespace hn = hwy::HWY_NAMESPACE;
    const PairTag<T> d;
    for (int i = 0; i < n; i += static_cast<int>(hn::MaxLanes(d)))
        hn::StoreU(midpointAt<phases, index, size>(tap, x, i), d, out + i);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
