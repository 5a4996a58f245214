// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/gain_computer.cpp"
#include "dsp/simd.h"
//
#include "dynamics/gain_computer.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

template <class D, typename T> HWY_INLINE void reducePart(D d, T* x, const CompressionCurve& c)
{
    const auto over = hn::Sub(hn::LoadU(d, x), hn::Set(d, T(c.threshold)));
    const auto root = hn::Max(
        hn::MulAdd(over, hn::Set(d, T(c.kneeSlope)), hn::Set(d, T(c.kneeOffset))), hn::Zero(d));
    const auto isStraight = hn::Gt(over, hn::Set(d, T(c.knee)));
    const auto reduction = hn::IfThenElse(isStraight, over, hn::Mul(root, root));
    hn::StoreU(hn::Mul(reduction, hn::Set(d, T(c.slope))), d, x);
}

template <typename T> void reduceLevels(T* x, int n, const CompressionCurve& c)
{
    const hn::CappedTag<T, 32 / sizeof(T)> d;
    const int lanes = int(hn::Lanes(d));
    int i = 0;
    for (; i + lanes <= n; i += lanes) reducePart(d, x + i, c);
    for (; i < n; ++i) reducePart(hn::CappedTag<T, 1>(), x + i, c);
}

void reduceFloats(float* x, int n, const CompressionCurve& c)
{
    reduceLevels(x, n, c);
}
void reduceDoubles(double* x, int n, const CompressionCurve& c)
{
    reduceLevels(x, n, c);
}

void followReduction(ReductionEnvelope& state, double* x, const double* delayed, double release,
                     int n)
{
    // What the release heads for, weighted: off the chain from sample to sample.
    double goal[kSubBlock];
    const double share = 1 - release;
    const double* const towards = state.holds ? delayed : x;
    for (int i = 0; i < n; ++i) goal[i] = share * towards[i];

    const hn::CappedTag<double, 1> d;
    const auto factor = hn::Set(d, release);
    const bool holds = state.holds;
    double r = state.reduction;
    bool latched = state.isLatched;
    for (int i = 0; i < n; ++i) {
        if (x[i] > r) {
            r = x[i];
            latched = holds;
        } else if (latched) {
            latched = r < delayed[i];
        } else {
            r = hn::GetLane(hn::MulAdd(factor, hn::Set(d, r), hn::Set(d, goal[i])));
        }
        x[i] = r;
    }
    state.reduction = r;
    state.isLatched = latched;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {

HWY_EXPORT(reduceFloats);
HWY_EXPORT(reduceDoubles);
HWY_EXPORT(followReduction);
static const auto chosenFloats = SIMD_CHOOSE(reduceFloats);
static const auto chosenDoubles = SIMD_CHOOSE(reduceDoubles);
static const auto chosenFollow = SIMD_CHOOSE(followReduction);

CompressionCurve CompressionCurve::of(double threshold, double slope, double knee) noexcept
{
    const double root = std::sqrt(knee);
    return {threshold, slope, knee, knee > 0 ? 0.5 / root : 0, 0.5 * root};
}

template <> void CompressionCurve::reduce(float* x, int n) const noexcept
{
    chosenFloats(x, n, *this);
}
template <> void CompressionCurve::reduce(double* x, int n) const noexcept
{
    chosenDoubles(x, n, *this);
}

void ReductionEnvelope::run(double* x, const double* delayed, double release, int n) noexcept
{
    chosenFollow(*this, x, delayed, release, n);
}

void GainComputer::prepare(int holdFrames)
{
    history_.prepare(holdFrames);
    reset();
}

void GainComputer::reset() noexcept
{
    history_.reset();
    quiet_ = history_.delay() + kSubBlock;
    envelope_.reduction = 0;
    envelope_.isLatched = false;
}

void GainComputer::setHold(bool holds) noexcept
{
    envelope_.holds = holds;
    envelope_.isLatched = false;
}

void GainComputer::takeOver(const GainComputer& other) noexcept
{
    history_.takeOver(other.history_);
    quiet_ = other.quiet_;
    envelope_ = other.envelope_;
    largest_ = other.largest_;
}

/// Levels to reductions; true if there are none.
bool GainComputer::reductions(double* x, const CompressionCurve& curve, double release,
                              GridSlice slice) noexcept
{
    constexpr double kFloor = 1e-8;     // power added to the level: -80 dB
    constexpr double kNothing = 1e-13;  // dB, below which a release is over
    const int n = slice.frames;
    if (slice.begins() && quiet_ >= history_.delay() && envelope_.reduction < kNothing) {
        envelope_.reduction = 0;
        envelope_.isLatched = false;
    }
    if (curve.slope > 0) {
        vec::decibelsFromPower(x, x, kFloor, n);
        curve.reduce(x, n);
    } else {
        vec::clear(x, n);
    }
    const double* const delayed = history_.push(x, n);
    if (x[n - 1] == 0 && vec::peak(x, n) == 0) {
        quiet_ = std::min(quiet_ + n, history_.delay() + kSubBlock);
    } else {
        for (quiet_ = 0; x[n - 1 - quiet_] == 0;) ++quiet_;
    }
    if (envelope_.reduction == 0 && quiet_ >= history_.delay() + n) return true;
    envelope_.run(x, delayed, release, n);
    largest_ = std::max(largest_, vec::peak(x, n));
    return false;
}

template <typename T>
bool GainComputer::run(double* level, T* gain, const CompressionCurve& curve, double release,
                       double makeUpDb, GridSlice slice) noexcept
{
    const int n = slice.frames;
    if (reductions(level, curve, release, slice)) {
        T makeUp = 1;
        if (makeUpDb != 0) {  // as it comes out of the array below
            makeUp = T(makeUpDb);
            vec::gainFromDecibels(&makeUp, &makeUp, 1);
        }
        vec::set(gain, makeUp, n);
        return true;
    }
    for (int i = 0; i < n; ++i) gain[i] = T(makeUpDb - level[i]);
    vec::gainFromDecibels(gain, gain, n);
    return false;
}

template bool GainComputer::run(double*, float*, const CompressionCurve&, double, double,
                                GridSlice) noexcept;
template bool GainComputer::run(double*, double*, const CompressionCurve&, double, double,
                                GridSlice) noexcept;

}  // namespace quillworks
#endif
