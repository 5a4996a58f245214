// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/gain_computer.cpp"
#include "dsp/simd.h"
//
#include "dynamics/gain_computer.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <class D, class T> HWY_INLINE void reducePart(D d, T* x, const CompressionCurve<T>& c)
{
    const auto over = hn::Sub(hn::LoadU(d, x), hn::Set(d, c.threshold));
    const auto root =
        hn::Max(hn::MulAdd(over, hn::Set(d, c.kneeSlope), hn::Set(d, c.kneeOffset)), hn::Zero(d));
    const auto isStraight = hn::Gt(over, hn::Set(d, c.knee));
    const auto reduction = hn::IfThenElse(isStraight, over, hn::Mul(root, root));
    hn::StoreU(hn::Mul(reduction, hn::Set(d, c.slope)), d, x);
}

template <class T> HWY_INLINE void reduceLevels(T* x, int n, const CompressionCurve<T>& c)
{
    const hn::CappedTag<T, 32 / sizeof(T)> d;
    const int lanes = int(hn::Lanes(d));
    int i = 0;
    for (; i + lanes <= n; i += lanes) reducePart(d, x + i, c);
    for (; i < n; ++i) reducePart(hn::CappedTag<T, 1>(), x + i, c);
}

template <class T>
HWY_INLINE void followReduction(ReductionEnvelope& state, T* x, const T* delayed, double release,
                                int n)
{
    // What the release heads for, weighted: off the chain from sample to sample.
    double goal[kSubBlock];
    const double share = 1 - release;
    const T* const towards = state.holds ? delayed : x;
    for (int i = 0; i < n; ++i) goal[i] = share * double(towards[i]);

    const hn::CappedTag<double, 1> d;
    const auto factor = hn::Set(d, release);
    const bool holds = state.holds;
    double r = state.reduction;
    bool latched = state.isLatched;
    for (int i = 0; i < n; ++i) {
        const double g = double(x[i]);
        if (g > r) {
            r = g;
            latched = holds;
        } else if (latched) {
            latched = r < double(delayed[i]);
        } else {
            r = hn::GetLane(hn::MulAdd(factor, hn::Set(d, r), hn::Set(d, goal[i])));
        }
        x[i] = T(r);
    }
    state.reduction = r;
    state.isLatched = latched;
}

void reduceFloat(float* x, int n, const CompressionCurve<float>& c)
{
    reduceLevels(x, n, c);
}
void reduceDouble(double* x, int n, const CompressionCurve<double>& c)
{
    reduceLevels(x, n, c);
}
void followFloat(ReductionEnvelope& s, float* x, const float* delayed, double release, int n)
{
    followReduction(s, x, delayed, release, n);
}
void followDouble(ReductionEnvelope& s, double* x, const double* delayed, double release, int n)
{
    followReduction(s, x, delayed, release, n);
}

}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>
#include <cmath>
#include <type_traits>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {

HWY_EXPORT(reduceFloat);
HWY_EXPORT(reduceDouble);
HWY_EXPORT(followFloat);
HWY_EXPORT(followDouble);
static const auto chosenReduceFloat = SIMD_CHOOSE(reduceFloat);
static const auto chosenReduceDouble = SIMD_CHOOSE(reduceDouble);
static const auto chosenFollowFloat = SIMD_CHOOSE(followFloat);
static const auto chosenFollowDouble = SIMD_CHOOSE(followDouble);

template <typename T>
CompressionCurve<T> CompressionCurve<T>::of(double threshold, double slope, double knee) noexcept
{
    const double root = std::sqrt(knee);
    return {T(threshold), T(slope), T(knee), T(knee > 0 ? 0.5 / root : 0), T(0.5 * root)};
}

template <typename T> void CompressionCurve<T>::reduce(T* x, int n) const noexcept
{
    if constexpr (std::is_same_v<T, float>)
        chosenReduceFloat(x, n, *this);
    else
        chosenReduceDouble(x, n, *this);
}

template <typename T>
void ReductionEnvelope::run(T* x, const T* delayed, double release, int n) noexcept
{
    if constexpr (std::is_same_v<T, float>)
        chosenFollowFloat(*this, x, delayed, release, n);
    else
        chosenFollowDouble(*this, x, delayed, release, n);
}

template <typename T>
bool GainComputer<T>::run(T* gain, const T* level, const CompressionCurve<T>& curve, double release,
                          T makeUpDb, int n) noexcept
{
    constexpr T kFloor = T(1e-8);       // power added to the level: -80 dB
    constexpr double kNothing = 1e-13;  // dB, below which a release is over
    T* const x = gain;
    if (curve.slope > 0) {
        vec::decibelsFromPower(x, level, kFloor, n);
        curve.reduce(x, n);
    } else {
        vec::clear(x, n);
    }
    const T* const delayed = history_.push(x, n);
    quiet_ = vec::peak(x, n) > 0 ? 0 : std::min(quiet_ + n, history_.delay() + kSubBlock);
    const bool isQuiet = quiet_ >= history_.delay() + n;
    if (envelope_.reduction == 0 && isQuiet) {
        vec::set(x, makeUpDb == 0 ? T(1) : dbToGain(makeUpDb), n);
        return true;
    }
    envelope_.run(x, delayed, release, n);
    largest_ = std::max(largest_, double(vec::peak(x, n)));
    if (isQuiet && envelope_.reduction < kNothing) {
        envelope_.reduction = 0;
        envelope_.isLatched = false;
    }
    vec::complement(x, makeUpDb, n);
    vec::gainFromDecibels(x, x, n);
    return false;
}

template struct CompressionCurve<float>;
template struct CompressionCurve<double>;
template class GainComputer<float>;
template class GainComputer<double>;

}  // namespace quillworks
#endif
