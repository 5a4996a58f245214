// SPDX-License-Identifier: ISC
// Channels in slots (see ChannelSlots) as lanes of a filter; compiled once per instruction set.
#if defined(QUILLWORKS_MODULATION_SLOTS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_MODULATION_SLOTS_INL_H
#undef QUILLWORKS_MODULATION_SLOTS_INL_H
#else
#define QUILLWORKS_MODULATION_SLOTS_INL_H
#endif

#include "dsp/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

/// Left and right sides by turns: two pairs at once, or what fits.
template <typename T> using SlotTag = hwy::HWY_NAMESPACE::CappedTag<T, 4>;
template <typename T> using SlotVec = hwy::HWY_NAMESPACE::Vec<SlotTag<T>>;
template <typename T>
constexpr int kSlotLanes = static_cast<int>(hwy::HWY_NAMESPACE::MaxLanes(SlotTag<T>()));

/// Two values, of the left and of the right side, in all pairs of lanes; where there is one lane,
/// the one of its side.
template <class D, typename T = hwy::HWY_NAMESPACE::TFromD<D>>
HWY_INLINE hwy::HWY_NAMESPACE::Vec<D> sides(D d, const T* of, int slot)
{
#if HWY_TARGET == HWY_SCALAR
    return hwy::HWY_NAMESPACE::Set(d, of[slot % 2]);
#else
    (void)d, (void)slot;
    return PairLanes<D>::load(of);
#endif
}

/// The channels of one vector of slots: one pair, or two.
template <typename T> class SlotLanes {
    using D = SlotTag<T>;
    using V = SlotVec<T>;
    static constexpr int kLanes = kSlotLanes<T>;

public:
    /// `x`: a channel for each slot, or null, which reads another's.
    HWY_INLINE explicit SlotLanes(T* const* x)
    {
        for (int i = 0; i < kLanes; ++i) {
            out_[i] = x[i];
            in_[i] = x[i] ? x[i] : i > 0 ? in_[i - 1] : nullptr;
        }
    }
    HWY_INLINE bool isEmpty() const { return in_[kLanes - 1] == nullptr; }
    HWY_INLINE bool isPair() const { return kLanes <= 2 || !out_[2]; }

    template <bool isPair> HWY_INLINE V load(int i) const
    {
        namespace hn = hwy::HWY_NAMESPACE;
        const D d;
#if HWY_TARGET == HWY_SCALAR
        return hn::Set(d, in_[0][i]);
#else
        const V first = hn::OddEven(hn::Set(d, in_[1][i]), hn::Set(d, in_[0][i]));
        if constexpr (isPair || kLanes == 2) {
            return first;
        } else {
            const V second = hn::OddEven(hn::Set(d, in_[3][i]), hn::Set(d, in_[2][i]));
            return hn::ConcatUpperLower(d, second, first);
        }
#endif
    }
    template <bool isPair> HWY_INLINE void store(V y, int i) const
    {
        HWY_ALIGN T lane[kLanes];
        hwy::HWY_NAMESPACE::Store(y, D(), lane);
#pragma GCC unroll 4
        for (int l = 0; l < (isPair && kLanes > 2 ? 2 : kLanes); ++l)
            if (out_[l]) out_[l][i] = lane[l];
    }

private:
    const T* in_[kLanes];
    T* out_[kLanes];
};

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
