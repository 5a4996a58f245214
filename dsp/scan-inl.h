// SPDX-License-Identifier: ISC
// Running results along the lanes of a vector; compiled once per instruction set.
#if defined(QUILLWORKS_DSP_SCAN_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_DSP_SCAN_INL_H
#undef QUILLWORKS_DSP_SCAN_INL_H
#else
#define QUILLWORKS_DSP_SCAN_INL_H
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

/// Inclusive scan in log2(lanes) steps (Hillis and Steele 1986), for up to 8 lanes of type D. Zero
/// must change nothing: for sums, and for maxima of values >= 0.
template <class D> class LaneScan {
    using V = hwy::HWY_NAMESPACE::Vec<D>;
    using I = hwy::HWY_NAMESPACE::RebindToSigned<D>;
    using Index = hwy::HWY_NAMESPACE::TFromD<I>;
    using Table = decltype(hwy::HWY_NAMESPACE::IndicesFromVec(D(), hwy::HWY_NAMESPACE::Vec<I>()));

public:
    static constexpr int kLanes = static_cast<int>(hwy::HWY_NAMESPACE::MaxLanes(D()));

    HWY_INLINE LaneScan() : one_(1), two_(2), four_(4), last_(lastLane()) {}

    /// Lane k becomes combine(lane 0, ..., lane k).
    template <class Combine> HWY_INLINE V of(V v, Combine combine) const
    {
        if constexpr (kLanes > 1) v = combine(v, one_.of(v));
        if constexpr (kLanes > 2) v = combine(v, two_.of(v));
        if constexpr (kLanes > 4) v = combine(v, four_.of(v));
        return v;
    }
    /// The last lane of v in every lane.
    HWY_INLINE V last(V v) const { return hwy::HWY_NAMESPACE::TableLookupLanes(v, last_); }

private:
    /// Lane k takes lane k - by, the first ones take 0.
    struct Shift {
        Table from;
        hwy::HWY_NAMESPACE::Mask<D> keeps;
        explicit HWY_INLINE Shift(Index by) : from(shifted(by)), keeps(moved(by)) {}
        HWY_INLINE V of(V v) const
        {
            namespace hn = hwy::HWY_NAMESPACE;
            return hn::IfThenElseZero(keeps, hn::TableLookupLanes(v, from));
        }
        static HWY_INLINE Table shifted(Index by)
        {
            namespace hn = hwy::HWY_NAMESPACE;
            const auto lane = hn::Sub(hn::Iota(I(), 0), hn::Set(I(), by));
            return hn::IndicesFromVec(D(), hn::Max(lane, hn::Zero(I())));
        }
        static HWY_INLINE hwy::HWY_NAMESPACE::Mask<D> moved(Index by)
        {
            namespace hn = hwy::HWY_NAMESPACE;
            return hn::RebindMask(D(), hn::Gt(hn::Iota(I(), 0), hn::Set(I(), by - 1)));
        }
    };
    static HWY_INLINE Table lastLane()
    {
        namespace hn = hwy::HWY_NAMESPACE;
        return hn::IndicesFromVec(D(), hn::Set(I(), static_cast<Index>(kLanes - 1)));
    }

    Shift one_, two_, four_;
    Table last_;
};

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
