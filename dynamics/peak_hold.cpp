// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/peak_hold.cpp"
#include "dsp/simd.h"
//
#include "dsp/control_grid.h"
#include "dsp/lanes-inl.h"
#include "dynamics/peak_hold.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr double kSame = 0.05;  // dB below u that are still its peak
constexpr double kDone = 1e-6;  // dB of v that are nothing

/// Lanes of keys; the rows of PeakHold, and what follows from them.
template <class D> struct Detector {
    using V = hn::Vec<D>;

    HWY_INLINE Detector(D, const double* rows, int stride)
        : release(hn::LoadU(D(), rows)),
          attack(hn::LoadU(D(), rows + stride)),
          hold(hn::LoadU(D(), rows + 2 * stride)),
          u(hn::LoadU(D(), rows + 3 * stride)),
          v(hn::LoadU(D(), rows + 4 * stride)),
          left(hn::LoadU(D(), rows + 5 * stride)),
          releaseShare(hn::Sub(hn::Set(D(), 1.0), release)),
          attackShare(hn::Sub(hn::Set(D(), 1.0), attack)),
          over(hn::Div(hn::Set(D(), kSame), release)),
          gone(hn::Div(hn::Set(D(), kDone), attack))
    {}
    HWY_INLINE void save(double* rows, int stride) const
    {
        hn::StoreU(u, D(), rows + 3 * stride);
        hn::StoreU(v, D(), rows + 4 * stride);
        hn::StoreU(left, D(), rows + 5 * stride);
    }

    /// One sample: r in, v out. The way from u to u and from v to v is what limits the speed, so
    /// all that does not lie on it is worked out beside it: r + cr (u - r) as two products, and
    /// whether an end is reached from the value before.
    HWY_INLINE V next(V r)
    {
        const D d;
        const V zero = hn::Zero(d);
        const auto asks = hn::Gt(r, zero);
        const V peak = hn::IfThenElse(asks, hn::Add(r, hn::Set(d, kSame)), hn::Set(d, -1.0));
        const auto isPeak = hn::Gt(peak, u);
        const auto holds = hn::Gt(left, zero);
        const auto isOver = hn::AndNot(asks, hn::Le(u, over));
        const V falling = hn::MulAdd(release, u, hn::Mul(releaseShare, r));
        const V still = hn::IfThenElse(holds, u, hn::IfThenElse(isOver, zero, falling));
        u = hn::IfThenElse(isPeak, hn::Max(u, r), still);
        left = hn::IfThenElse(isPeak, hold, hn::Max(hn::Sub(left, hn::Set(d, 1.0)), zero));
        const auto isGone = hn::And(hn::Eq(u, zero), hn::Lt(v, gone));
        v = hn::IfThenElse(isGone, zero, hn::MulAdd(attack, v, hn::Mul(attackShare, u)));
        return v;
    }

    V release, attack, hold, u, v, left;
    V releaseShare, attackShare;  // 1 - coefficient
    V over, gone;                 // below these u and v, falling, are at their ends
};

/// share x0 + x1, rounded once where the processor can.
HWY_INLINE double weighted(double share, double x0, double x1)
{
    const hn::CappedTag<double, 1> d;
    return hn::GetLane(hn::MulAdd(hn::Set(d, share), hn::Set(d, x0), hn::Set(d, x1)));
}

template <typename T> HWY_INLINE double largest(const T* x, int n)
{
    double most[4] = {};  // side by side
    for (int i = 0; i < n; ++i) most[i % 4] = HWY_MAX(most[i % 4], double(x[i]));
    return HWY_MAX(HWY_MAX(most[0], most[1]), HWY_MAX(most[2], most[3]));
}

/// One key: in branches what happens rarely costs less than if all were worked out for each sample,
/// and most runs hold throughout or fall throughout, where nothing has to be decided.
template <typename T> void followOne(double* rows, int stride, T* x, int n)
{
    const double release = rows[0], attack = rows[stride], hold = rows[2 * stride];
    double u = rows[3 * stride], v = rows[4 * stride], left = rows[5 * stride];
    const double goal = 1 - release, approach = 1 - attack;
    const auto done = [&] {
        rows[3 * stride] = u;
        rows[4 * stride] = v;
        rows[5 * stride] = left;
    };
    const double most = u > kSame ? largest(x, n) : 0;
    if (u > kSame && left >= n && most <= u - kSame) {
        left -= n;
        const double towards = approach * u;
        for (int i = 0; i < n; ++i) x[i] = T(v = weighted(attack, v, towards));
        return done();
    }
    if (u > kSame && left == 0) {
        double body = u, result = v;
        T y[kSubBlock];
        for (int i = 0; i < n; ++i) {
            body = weighted(release, body, goal * double(x[i]));
            y[i] = T(result = weighted(attack, result, approach * body));
        }
        if (body > kSame && most <= body - kSame) {
            u = body;
            v = result;
            for (int i = 0; i < n; ++i) x[i] = y[i];
            return done();
        }
    }
    for (int i = 0; i < n; ++i) {
        const double r = double(x[i]);
        if (r > 0 && r > u - kSame) {
            u = HWY_MAX(u, r);
            left = hold;
        } else if (left > 0) {
            left -= 1;
        } else {
            u = weighted(release, u, goal * r);
            if (u <= kSame && !(r > 0)) u = 0;
        }
        v = weighted(attack, v, approach * u);
        if (v < kDone && u == 0) v = 0;
        x[i] = T(v);
    }
    done();
}

#if HWY_TARGET == HWY_SCALAR

template <typename T> void followAll(double* rows, int stride, T* x, int keys, int n)
{
    for (int k = 0; k < keys; ++k) followOne(rows + k, stride, x + k * kSubBlock, n);
}

#else

template <class D> HWY_INLINE hn::Vec<D> loadSamples(D d, const double* x)
{
    return hn::LoadU(d, x);
}
template <class D> HWY_INLINE hn::Vec<D> loadSamples(D d, const float* x)
{
    return hn::PromoteTo(d, hn::LoadU(hn::Rebind<float, D>(), x));
}
template <class D> HWY_INLINE void storeSamples(D d, hn::Vec<D> v, double* x)
{
    hn::StoreU(v, d, x);
}
template <class D> HWY_INLINE void storeSamples(D, hn::Vec<D> v, float* x)
{
    const hn::Rebind<float, D> narrow;
    hn::StoreU(hn::DemoteTo(narrow, v), narrow, x);
}

/// Keys side by side, in one vector or in two.
template <int vectors, typename T> void followLanes(double* rows, int stride, T* x, int keys, int n)
{
    static_assert(vectors <= 2);
    const hn::CappedTag<double, 4> d;
    using D = hn::CappedTag<double, 4>;
    using V = hn::Vec<D>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(d));
    T unused[kSubBlock] = {};  // stands for the rows that the last vector has too many
    T* row[vectors * lanes];
    for (int k = 0; k < vectors * lanes; ++k) row[k] = k < keys ? x + k * kSubBlock : unused;
    Detector<D> s(d, rows, stride), more(d, rows + (vectors - 1) * lanes, stride);
    for (int at = 0; at < n; at += lanes) {
        V w[lanes], z[lanes];
        for (int k = 0; k < lanes; ++k) w[k] = loadSamples(d, row[k] + at);
        transpose(d, w);
        if (vectors == 2) {
            for (int k = 0; k < lanes; ++k)
                z[k] = loadSamples(d, row[(vectors - 1) * lanes + k] + at);
            transpose(d, z);
        }
        const int steps = HWY_MIN(lanes, n - at);
        if (steps == lanes) {
            for (int i = 0; i < lanes; ++i) {
                w[i] = s.next(w[i]);
                if (vectors == 2) z[i] = more.next(z[i]);
            }
        } else {
            for (int i = 0; i < steps; ++i) {
                w[i] = s.next(w[i]);
                if (vectors == 2) z[i] = more.next(z[i]);
            }
        }
        transpose(d, w);
        for (int k = 0; k < lanes; ++k) storeSamples(d, w[k], row[k] + at);
        if (vectors == 2) {
            transpose(d, z);
            for (int k = 0; k < lanes; ++k)
                storeSamples(d, z[k], row[(vectors - 1) * lanes + k] + at);
        }
    }
    s.save(rows, stride);
    if (vectors == 2) more.save(rows + (vectors - 1) * lanes, stride);
}

template <typename T> void followAll(double* rows, int stride, T* x, int keys, int n)
{
    constexpr int lanes = static_cast<int>(hn::MaxLanes(hn::CappedTag<double, 4>()));
    for (int k = 0; k < keys; k += 2 * lanes) {
        const int count = HWY_MIN(2 * lanes, keys - k);
        T* const y = x + k * kSubBlock;
        if (count == 1)
            followOne(rows + k, stride, y, n);
        else if (count <= lanes)
            followLanes<1>(rows + k, stride, y, count, n);
        else
            followLanes<2>(rows + k, stride, y, count, n);
    }
}

#endif

void followFloats(double* rows, int stride, float* x, int keys, int n)
{
    followAll(rows, stride, x, keys, n);
}
void followDoubles(double* rows, int stride, double* x, int keys, int n)
{
    followAll(rows, stride, x, keys, n);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include <algorithm>
#include <cassert>
#include <cmath>

#include "dsp/vec.h"

namespace quillworks {

HWY_EXPORT(followFloats);
HWY_EXPORT(followDoubles);
static const auto chosenFloats = SIMD_CHOOSE(followFloats);
static const auto chosenDoubles = SIMD_CHOOSE(followDoubles);

namespace {

enum Row { Release, Attack, Hold, Body, Result, Left, kRowCount };
constexpr double kLongestHold = 0.0125;  // seconds: half a period at 40 Hz

void follow(double* rows, int stride, float* x, int keys, int n)
{
    chosenFloats(rows, stride, x, keys, n);
}
void follow(double* rows, int stride, double* x, int keys, int n)
{
    chosenDoubles(rows, stride, x, keys, n);
}

}  // namespace

void PeakHold::prepare(int keys)
{
    keys_ = keys;
    stride_ = (keys + 7) / 8 * 8;
    lanes_.assign(static_cast<std::size_t>(kRowCount * stride_), 0);
    reset();
}

void PeakHold::reset() noexcept
{
    std::fill(lanes_.begin() + Body * stride_, lanes_.end(), 0.0);
    isIdle_ = true;
}

int PeakHold::holdFrames(double sampleRate, double lowest) noexcept
{
    const double seconds = lowest > 0 ? std::min(kLongestHold, 1 / lowest) : kLongestHold;
    return std::max(1, static_cast<int>(sampleRate * seconds + 0.5));
}

void PeakHold::setTimes(int key, double attack, double release, int hold) noexcept
{
    assert(key < keys_);
    row(Attack)[key] = attack;
    row(Release)[key] = release;
    row(Hold)[key] = hold;
}

template <typename T> bool PeakHold::run(T* x, int n) noexcept
{
    if (isIdle_) {
        T largest = 0;
        if (n == kSubBlock)
            largest = vec::peak(x, keys_ * kSubBlock);
        else
            for (int k = 0; k < keys_; ++k)
                largest = std::max(largest, vec::peak(x + k * kSubBlock, n));
        if (largest == 0) return true;
    }
    follow(lanes_.data(), stride_, x, keys_, n);
    isIdle_ = std::all_of(row(Body), row(Left), [](double value) { return value == 0; });
    return false;
}

PeakHold::Reached PeakHold::reached(int key) const noexcept
{
    return {row(Body)[key], row(Result)[key]};
}

void PeakHold::takeOver(int key, const Reached& from) noexcept
{
    row(Body)[key] = from.body;
    row(Result)[key] = from.result;
    row(Left)[key] = row(Hold)[key];
    isIdle_ = isIdle_ && from.body == 0 && from.result == 0;
}

template bool PeakHold::run(float*, int) noexcept;
template bool PeakHold::run(double*, int) noexcept;

}  // namespace quillworks
#endif
