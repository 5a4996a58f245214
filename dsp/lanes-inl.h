// SPDX-License-Identifier: ISC
// Vectors as lanes of filters: what comes in and goes out of them; compiled once per instruction
// set.
#if defined(QUILLWORKS_DSP_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_DSP_LANES_INL_H
#undef QUILLWORKS_DSP_LANES_INL_H
#else
#define QUILLWORKS_DSP_LANES_INL_H
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

#if HWY_TARGET != HWY_SCALAR

/// Rows become columns: as many vectors as one has lanes, 16 or 32 bytes each.
template <class D> HWY_INLINE void transpose(D d, hwy::HWY_NAMESPACE::Vec<D>* v)
{
    namespace hn = hwy::HWY_NAMESPACE;
    using T = hn::TFromD<D>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    static_assert(lanes * sizeof(T) == 16 || lanes * sizeof(T) == 32);
    hn::Vec<D> w[lanes];
    // Within blocks of 16 bytes: single lanes, then (floats) pairs of them.
    for (int i = 0; i < lanes; i += 2) {
        w[i] = hn::InterleaveLower(d, v[i], v[i + 1]);
        w[i + 1] = hn::InterleaveUpper(d, v[i], v[i + 1]);
    }
    if constexpr (sizeof(T) == 4) {
        const hn::Repartition<double, D> wide;
        for (int i = 0; i < lanes; i += 4)
            for (int k = 0; k < 2; ++k) {
                const auto a = hn::BitCast(wide, w[i + k]), b = hn::BitCast(wide, w[i + k + 2]);
                v[i + 2 * k] = hn::BitCast(d, hn::InterleaveLower(wide, a, b));
                v[i + 2 * k + 1] = hn::BitCast(d, hn::InterleaveUpper(wide, a, b));
            }
    } else {
        for (int i = 0; i < lanes; ++i) v[i] = w[i];
    }
    if constexpr (lanes * sizeof(T) == 32) {
        for (int i = 0; i < lanes / 2; ++i) {
            const auto a = v[i], b = v[i + lanes / 2];
            v[i] = hn::ConcatLowerLower(d, b, a);
            v[i + lanes / 2] = hn::ConcatUpperUpper(d, b, a);
        }
    }
}

/// Chains of filters over a pair of channels: filter s of channel c sits in lane 2 s + c.
template <class D> struct PairLanes {
    using T = hwy::HWY_NAMESPACE::TFromD<D>;
    using V = hwy::HWY_NAMESPACE::Vec<D>;
    using Table = decltype(hwy::HWY_NAMESPACE::IndicesFromVec(
        D(), hwy::HWY_NAMESPACE::Zero(hwy::HWY_NAMESPACE::RebindToSigned<D>())));
    static constexpr int kLanes = static_cast<int>(hwy::HWY_NAMESPACE::MaxLanes(D()));

    /// Two samples, one of each channel, in all pairs of lanes.
    static HWY_INLINE V load(const T* in)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        if constexpr (sizeof(T) == 8) {
            return hn::LoadDup128(D(), in);
        } else {
            const hn::Repartition<double, D> wide;
            double both;
            hwy::CopySameSize(reinterpret_cast<const T(*)[2]>(in), &both);
            return hn::BitCast(D(), hn::Set(wide, both));
        }
    }
    /// The first two lanes.
    static HWY_INLINE void store(V v, T* out)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        hn::StoreU(lowest(D(), v), hn::CappedTag<T, 2>(), out);
    }
    /// The lanes two further on; what leaves at the end comes to the first two lanes.
    static HWY_INLINE V turned(V y, Table by)
    {
        if constexpr (kLanes == 2) return y;
        return hwy::HWY_NAMESPACE::TableLookupLanes(y, by);
    }
    /// For turned(): `last` is the lane that comes first.
    static HWY_INLINE Table turn(int last)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        using I = hn::RebindToSigned<D>;
        HWY_ALIGN hn::TFromD<I> from[kLanes];
        for (int i = 0; i < kLanes; ++i)
            from[i] = static_cast<hn::TFromD<I>>(i < 2 ? last + i : i - 2);
        return hn::SetTableIndices(D(), from);
    }
    /// The filter of each lane of the v-th vector.
    static HWY_INLINE V filter(int v)
    {
        HWY_ALIGN T s[kLanes];
        for (int i = 0; i < kLanes; ++i) s[i] = T((v * kLanes + i) / 2);
        return hwy::HWY_NAMESPACE::Load(D(), s);
    }

private:
    template <class Lanes> static HWY_INLINE auto lowest(Lanes, hwy::HWY_NAMESPACE::Vec<Lanes> v)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        if constexpr (hn::MaxLanes(Lanes()) == 2)
            return v;
        else
            return lowest(hn::Half<Lanes>(), hn::LowerHalf(hn::Half<Lanes>(), v));
    }
};

#endif

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
