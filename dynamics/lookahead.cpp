// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/lookahead.cpp"
#include "dsp/simd.h"
//
#include "dynamics/lookahead.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR
template <int, class D, class V> HWY_INLINE void spread(D, V&, V&) {}  // one lane
#else
/// Gains spread from the lanes where they are taken to the lanes after them, up to the next; the
/// lanes that none has reached stay unset in `taken`. `distance` is how far the spread has come.
template <int distance, class D, class V> HWY_INLINE void spread(D d, V& gain, V& taken)
{
    if constexpr (distance < int(hn::MaxLanes(D()))) {
        gain = hn::IfThenElse(hn::MaskFromVec(taken), gain, hn::ShiftLeftLanes<distance>(d, gain));
        taken = hn::Or(taken, hn::ShiftLeftLanes<distance>(d, taken));
        spread<2 * distance>(d, gain, taken);
    }
}
#endif

/// Without a branch, since a noisy signal changes its sign at any time.
template <class T> T heldGain(T* x, const T* s, const T* gain, T held, int n)
{
    const hn::CappedTag<T, 16 / sizeof(T)> d;
    constexpr int lanes = int(hn::MaxLanes(decltype(d)()));
    const auto zero = hn::Zero(d);
    auto last = hn::Set(d, held);
    int i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto now = hn::LoadU(d, s + i), before = hn::LoadU(d, s + i - 1);
        auto taken = hn::Or(hn::Xor(hn::VecFromMask(d, hn::Gt(now, zero)),
                                    hn::VecFromMask(d, hn::Gt(before, zero))),
                            hn::VecFromMask(d, hn::Eq(now, zero)));
        auto g = hn::LoadU(d, gain + i);
        spread<1>(d, g, taken);
        g = hn::IfThenElse(hn::MaskFromVec(taken), g, last);
        last = hn::Broadcast<lanes - 1>(g);
        hn::StoreU(hn::Mul(now, g), d, x + i);
    }
    held = hn::GetLane(last);
    for (; i < n; ++i) {
        if ((s[i] > 0) != (s[i - 1] > 0) || s[i] == 0) held = gain[i];
        x[i] = s[i] * held;
    }
    return held;
}

float heldGainFloat(float* x, const float* s, const float* gain, float held, int n)
{
    return heldGain(x, s, gain, held, n);
}
double heldGainDouble(double* x, const double* s, const double* gain, double held, int n)
{
    return heldGain(x, s, gain, held, n);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(heldGainFloat);
HWY_EXPORT(heldGainDouble);
static const auto chosenFloat = SIMD_CHOOSE(heldGainFloat);
static const auto chosenDouble = SIMD_CHOOSE(heldGainDouble);

float applyHeldGain(float* x, const float* s, const float* gain, float held, int n) noexcept
{
    return chosenFloat(x, s, gain, held, n);
}
double applyHeldGain(double* x, const double* s, const double* gain, double held, int n) noexcept
{
    return chosenDouble(x, s, gain, held, n);
}

}  // namespace quillworks
#endif
