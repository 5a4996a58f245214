// SPDX-License-Identifier: ISC
// Doublings of the rate by midpoint filters; compiled once per instruction set.
#if defined(QUILLWORKS_DSP_MIDPOINT_FILTER_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_DSP_MIDPOINT_FILTER_INL_H
#undef QUILLWORKS_DSP_MIDPOINT_FILTER_INL_H
#else
#define QUILLWORKS_DSP_MIDPOINT_FILTER_INL_H
#endif

#include <hwy/highway.h>

#include "dsp/midpoint_filter.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE::midpoint {
namespace hn = hwy::HWY_NAMESPACE;

// Eight lanes at most: the blocks are short, and unaligned loads of whole cache lines cost double.
using D = hn::CappedTag<float, 8>;
using V = hn::Vec<D>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

HWY_INLINE V at(const float* x)
{
    return hn::LoadU(D(), x);
}

/// out[i] = sum of h[k] (x[i - k] + x[i + 1 + k]) for `n` values, rounded up to whole vectors.
template <int size>
HWY_INLINE void halves(const MidpointFilter<size>& h, const float* x, float* out, int n)
{
    const D d;
    int i = 0;
    for (; i + 4 * kLanes <= n; i += 4 * kLanes) {  // four at a time: the sums wait for no other
        V a = hn::Zero(d), b = a, c = a, e = a;
        for (int k = 0; k < size; ++k) {
            const V gain = hn::Set(d, h.tap[k]);
            const float *l = x + i - k, *r = x + i + 1 + k;
            a = hn::MulAdd(gain, hn::Add(at(l), at(r)), a);
            b = hn::MulAdd(gain, hn::Add(at(l + kLanes), at(r + kLanes)), b);
            c = hn::MulAdd(gain, hn::Add(at(l + 2 * kLanes), at(r + 2 * kLanes)), c);
            e = hn::MulAdd(gain, hn::Add(at(l + 3 * kLanes), at(r + 3 * kLanes)), e);
        }
        hn::StoreU(a, d, out + i);
        hn::StoreU(b, d, out + i + kLanes);
        hn::StoreU(c, d, out + i + 2 * kLanes);
        hn::StoreU(e, d, out + i + 3 * kLanes);
    }
    for (; i < n; i += kLanes) {
        V a = hn::Zero(d);
        for (int k = 0; k < size; ++k)
            a = hn::MulAdd(hn::Set(d, h.tap[k]), hn::Add(at(x + i - k), at(x + i + 1 + k)), a);
        hn::StoreU(a, d, out + i);
    }
}

/// The sums of the pairs around a point, nearest first, weighted.
template <int size, class... Pairs>
HWY_INLINE V weigh(const MidpointFilter<size>& h, Pairs... pairs)
{
    static_assert(sizeof...(pairs) == size);
    V sum = hn::Zero(D());
    int k = 0;
    ((sum = hn::MulAdd(hn::Set(D(), h.tap[k++]), pairs, sum)), ...);
    return sum;
}

HWY_INLINE V pair(const float* a, const float* b)
{
    return hn::Add(at(a), at(b));
}

/// Points at i + 1/4 of a chain, from the samples and the points midway.
HWY_INLINE void firsts(const MidpointFilter<6>& h, const float* x, const float* m, float* out,
                       int n)
{
    for (int i = 0; i < n; i += kLanes, x += kLanes, m += kLanes)
        hn::StoreU(weigh(h, pair(x, m), pair(m - 1, x + 1), pair(x - 1, m + 1), pair(m - 2, x + 2),
                         pair(x - 2, m + 2), pair(m - 3, x + 3)),
                   D(), out + i);
}

/// Points at i + 3/4.
HWY_INLINE void thirds(const MidpointFilter<6>& h, const float* x, const float* m, float* out,
                       int n)
{
    for (int i = 0; i < n; i += kLanes, x += kLanes, m += kLanes)
        hn::StoreU(weigh(h, pair(m, x + 1), pair(x, m + 1), pair(m - 1, x + 2), pair(x - 1, m + 2),
                         pair(m - 2, x + 3), pair(x - 2, m + 3)),
                   D(), out + i);
}

/// Points at i + 1/8, 3/8, 5/8 and 7/8 from the samples, the points midway and the quarters at x,
/// m, p (i + 1/4) and t (i + 3/4), for the lanes from there on.
HWY_INLINE void eighths(const MidpointFilter<3>& h, const float* x, const float* m, const float* p,
                        const float* t, V* out)
{
    out[0] = weigh(h, pair(x, p), pair(t - 1, m), pair(m - 1, t));
    out[1] = weigh(h, pair(p, m), pair(x, t), pair(t - 1, x + 1));
    out[2] = weigh(h, pair(m, t), pair(p, x + 1), pair(x, p + 1));
    out[3] = weigh(h, pair(t, x + 1), pair(m, p + 1), pair(p, m + 1));
}

}  // namespace quillworks::HWY_NAMESPACE::midpoint
HWY_AFTER_NAMESPACE();
#endif
