// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/limiting_curve.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/vector_math-inl.h"
#include "dynamics/limiting_curve.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<double>;
using V = hn::Vec<D>;

/// How far a rounded corner at 0 with half-width k lies below the straight line: 0 up to -k, then
/// (x + k)^2 / (4k), x from k on.
HWY_INLINE V rounded(V x, double k, double factor)
{
    const D d;
    const V zero = hn::Zero(d), half = hn::Set(d, k);
    const V z = hn::Min(hn::Max(hn::Add(x, half), zero), hn::Set(d, 2 * k));
    return hn::MulAdd(hn::Mul(z, z), hn::Set(d, factor), hn::Max(hn::Sub(x, half), zero));
}

/// `n` a multiple of the lanes or the arrays padded to it.
template <bool isHard>
HWY_INLINE void reduceAll(const LimitingCurve::Shape& s, const double* levels, double* wanted,
                          double* due, int n)
{
    const D d;
    const V gate = hn::Set(d, s.gate), zero = hn::Zero(d);
    for (int i = 0; i < n; i += static_cast<int>(hn::Lanes(d))) {
        const V linear = hn::LoadU(d, levels + i);
        const auto passes = hn::Gt(linear, gate);
        if (hn::AllFalse(d, passes)) {
            hn::StoreU(zero, d, wanted + i);
            hn::StoreU(zero, d, due + i);
            continue;
        }
        const V level =
            hn::Mul(vec::HWY_NAMESPACE::log10(d, hn::Max(linear, gate)), hn::Set(d, 20.0));
        const V over = hn::Max(hn::Sub(level, hn::Set(d, s.ceiling)), zero);
        if (isHard) {
            const V all = hn::IfThenElseZero(passes, over);
            hn::StoreU(all, d, wanted + i);
            hn::StoreU(all, d, due + i);
            continue;
        }
        const V low = rounded(hn::Sub(level, hn::Set(d, s.corner)), s.knee, s.kneeFactor);
        const V high =
            rounded(hn::Sub(level, hn::Set(d, s.wallCorner)), s.wallKnee, s.wallKneeFactor);
        const V sum = hn::MulAdd(low, hn::Set(d, s.below), hn::Mul(high, hn::Set(d, s.above)));
        hn::StoreU(hn::IfThenElseZero(passes, hn::Max(sum, over)), d, wanted + i);
        hn::StoreU(hn::IfThenElseZero(passes, over), d, due + i);
    }
}

void reduce(const LimitingCurve::Shape& s, const double* levels, double* wanted, double* due, int n)
{
    if (s.isHard())
        reduceAll<true>(s, levels, wanted, due, n);
    else
        reduceAll<false>(s, levels, wanted, due, n);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(reduce);
namespace {
void (*const chosenReduce)(const LimitingCurve::Shape&, const double*, double*, double*,
                           int) = SIMD_CHOOSE(reduce);
}

double LimitingCurve::kneeOf(double threshold) noexcept
{
    return std::min(-0.33 * threshold, 3.0);
}

LimitingCurve::Shape LimitingCurve::shapeOf(double threshold, double ratio) noexcept
{
    Shape s;
    s.corner = s.ceiling + threshold;
    s.wallCorner = s.corner - threshold * ratio;
    s.knee = kneeOf(threshold);
    s.wallKnee = s.knee * ratio;
    s.above = 1 / ratio;
    s.below = 1 - s.above;
    s.kneeFactor = s.knee > 0 ? 0.25 / s.knee : 0;
    s.wallKneeFactor = s.knee > 0 ? 0.25 / s.wallKnee : 0;
    s.gate = dbToGain(s.corner - s.knee);
    return s;
}

void LimitingCurve::setTarget(double threshold, double ratio) noexcept
{
    threshold = std::min(threshold, 0.0);
    ratio = std::clamp(ratio, 1.0, 20.0);
    if (threshold == target_.threshold && ratio == target_.ratio) return;
    start_ = now_;
    target_ = {threshold, ratio};
    step_ = 0;
    wait_ = 0;
}

void LimitingCurve::snap() noexcept
{
    now_ = target_;
    step_ = kSteps;
    shape_ = shapeOf(now_.threshold, now_.ratio);
}

bool LimitingCurve::advance() noexcept
{
    if (step_ == kSteps || wait_-- > 0) return false;
    wait_ = subBlocksPerStep_ - 1;
    const double way = double(++step_) / kSteps;
    now_ = step_ == kSteps
               ? target_
               : Setting{start_.threshold + (target_.threshold - start_.threshold) * way,
                         start_.ratio + (target_.ratio - start_.ratio) * way};
    shape_ = shapeOf(now_.threshold, now_.ratio);
    return true;
}

void LimitingCurve::reductions(const double* levels, double* wanted, double* due,
                               int n) const noexcept
{
    chosenReduce(shape_, levels, wanted, due, n);
}

}  // namespace quillworks
#endif
