// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/peak_hold.cpp"
#include "dsp/simd.h"
//
#include "dsp/control_grid.h"
#include "dsp/lanes-inl.h"
#include "dynamics/peak_hold.h"

#ifndef QUILLWORKS_KEY_KERNELS
#define QUILLWORKS_KEY_KERNELS
namespace quillworks {
namespace {

/// Rows of lanes, how far apart, samples of all keys, their number, and how many of each.
template <typename T> using FollowKeys = void (*)(double*, int, T*, int, int);
struct KeyKernels {
    FollowKeys<float> peaksOfFloats;
    FollowKeys<double> peaksOfDoubles;
    FollowKeys<float> troughsOfFloats;
    FollowKeys<double> troughsOfDoubles;
};

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr double kSame = 0.05;  // dB below u that are still its peak
constexpr double kDone = 1e-6;  // dB of v that are nothing
constexpr double kNone = 1e30;  // dB that nothing asks for

/// Lanes of keys; the rows that all detectors have, and what follows from them. The way from u to u
/// and from v to v is what limits the speed, so all that does not lie on it is worked out beside
/// it: r + cr (u - r) as two products, and whether an end is reached from the value before.
template <class D> struct Lanes {
    using V = hn::Vec<D>;

    HWY_INLINE Lanes(const double* rows, int stride)
        : release(hn::LoadU(D(), rows)),
          attack(hn::LoadU(D(), rows + stride)),
          hold(hn::LoadU(D(), rows + 2 * stride)),
          u(hn::LoadU(D(), rows + 3 * stride)),
          v(hn::LoadU(D(), rows + 4 * stride)),
          left(hn::LoadU(D(), rows + 5 * stride)),
          releaseShare(hn::Sub(hn::Set(D(), 1.0), release)),
          attackShare(hn::Sub(hn::Set(D(), 1.0), attack)),
          gone(hn::Div(hn::Set(D(), kDone), attack))
    {}
    HWY_INLINE void save(double* rows, int stride) const
    {
        hn::StoreU(u, D(), rows + 3 * stride);
        hn::StoreU(v, D(), rows + 4 * stride);
        hn::StoreU(left, D(), rows + 5 * stride);
    }
    HWY_INLINE V attacked()
    {
        const auto isGone = hn::And(hn::Eq(u, hn::Zero(D())), hn::Lt(v, gone));
        v = hn::IfThenElseZero(hn::Not(isGone), hn::MulAdd(attack, v, hn::Mul(attackShare, u)));
        return v;
    }

    V release, attack, hold, u, v, left;
    V releaseShare, attackShare;  // 1 - coefficient
    V gone;                       // below this v, falling, is at its end
};

template <class D> struct Peaks : Lanes<D> {
    using typename Lanes<D>::V;
    using Lanes<D>::u, Lanes<D>::left;

    HWY_INLINE Peaks(const double* rows, int stride)
        : Lanes<D>(rows, stride), over(hn::Div(hn::Set(D(), kSame), this->release))
    {}
    /// One sample: r in, v out.
    HWY_INLINE V next(V r)
    {
        const D d;
        const V zero = hn::Zero(d);
        const auto asks = hn::Gt(r, zero);
        const V peak = hn::IfThenElse(asks, hn::Add(r, hn::Set(d, kSame)), hn::Set(d, -1.0));
        const auto isPeak = hn::Gt(peak, u);
        const auto holds = hn::Gt(left, zero);
        const auto isOver = hn::AndNot(asks, hn::Le(u, over));
        const V falling = hn::MulAdd(this->release, u, hn::Mul(this->releaseShare, r));
        const V still = hn::IfThenElse(holds, u, hn::IfThenElse(isOver, zero, falling));
        u = hn::IfThenElse(isPeak, hn::Max(u, r), still);
        left = hn::IfThenElse(isPeak, this->hold, hn::Max(hn::Sub(left, hn::Set(d, 1.0)), zero));
        return this->attacked();
    }

    V over;  // below this u, falling, is at its end
};

template <class D> struct Troughs : Lanes<D> {
    using typename Lanes<D>::V;
    using Lanes<D>::u, Lanes<D>::left;
    static constexpr int kStretches = 4;

    HWY_INLINE Troughs(const double* rows, int stride) : Lanes<D>(rows, stride)
    {
        present = hn::LoadU(D(), rows + 6 * stride);
        for (int i = 0; i < kStretches; ++i) past[i] = hn::LoadU(D(), rows + (7 + i) * stride);
        older = smallestOfPast();
    }
    HWY_INLINE void save(double* rows, int stride) const
    {
        Lanes<D>::save(rows, stride);
        hn::StoreU(present, D(), rows + 6 * stride);
        for (int i = 0; i < kStretches; ++i) hn::StoreU(past[i], D(), rows + (7 + i) * stride);
    }
    /// One sample: q in, v out.
    HWY_INLINE V next(V q)
    {
        const D d;
        present = hn::Min(present, q);
        const V least = hn::Min(present, older);
        const auto isRising = hn::Gt(hn::Sub(least, hn::Set(d, kSame)), u);
        const V rising = hn::MulAdd(this->release, u, hn::Mul(this->releaseShare, least));
        u = hn::IfThenElse(hn::Lt(q, u), q, hn::IfThenElse(isRising, rising, u));
        left = hn::Sub(left, hn::Set(d, 1.0));
        const auto ends = hn::Le(left, hn::Zero(d));
        if (HWY_UNLIKELY(!hn::AllFalse(d, ends))) turn(ends);
        return this->attacked();
    }

    V present, past[kStretches];  // smallest q of the stretch under way, and of those before
    V older;                      // of all of those

private:
    HWY_INLINE V smallestOfPast() const
    {
        return hn::Min(hn::Min(past[0], past[1]), hn::Min(past[2], past[3]));
    }
    /// Stretches end in some lanes.
    template <class M> HWY_INLINE void turn(M ends)
    {
        for (int i = kStretches - 1; i > 0; --i)
            past[i] = hn::IfThenElse(ends, past[i - 1], past[i]);
        past[0] = hn::IfThenElse(ends, present, past[0]);
        present = hn::IfThenElse(ends, hn::Set(D(), kNone), present);
        left = hn::IfThenElse(ends, this->hold, left);
        older = smallestOfPast();
    }
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

/// One key that is held at its peaks: in branches what happens rarely costs less than if all were
/// worked out for each sample, and most runs hold throughout or fall throughout, where nothing has
/// to be decided.
template <typename T> void followOnePeak(double* rows, int stride, T* x, int n)
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

template <template <class> class Law> constexpr bool kHoldsPeaks = false;
template <> constexpr bool kHoldsPeaks<Peaks> = true;

/// One key.
template <template <class> class Law, typename T>
void followOne(double* rows, int stride, T* x, int n)
{
    if constexpr (kHoldsPeaks<Law>) {
        followOnePeak(rows, stride, x, n);
    } else {
        const hn::CappedTag<double, 1> d;
        Law<hn::CappedTag<double, 1>> s(rows, stride);
        for (int i = 0; i < n; ++i) x[i] = T(hn::GetLane(s.next(hn::Set(d, double(x[i])))));
        s.save(rows, stride);
    }
}

#if HWY_TARGET == HWY_SCALAR

template <template <class> class Law, typename T>
void followAll(double* rows, int stride, T* x, int keys, int n)
{
    for (int k = 0; k < keys; ++k) followOne<Law>(rows + k, stride, x + k * kSubBlock, n);
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
template <template <class> class Law, int vectors, typename T>
void followLanes(double* rows, int stride, T* x, int keys, int n)
{
    static_assert(vectors <= 2);
    const hn::CappedTag<double, 4> d;
    using D = hn::CappedTag<double, 4>;
    using V = hn::Vec<D>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(d));
    T unused[kSubBlock] = {};  // stands for the rows that the last vector has too many
    T* row[vectors * lanes];
    for (int k = 0; k < vectors * lanes; ++k) row[k] = k < keys ? x + k * kSubBlock : unused;
    Law<D> s(rows, stride), more(rows + (vectors - 1) * lanes, stride);
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

template <template <class> class Law, typename T>
void followAll(double* rows, int stride, T* x, int keys, int n)
{
    constexpr int lanes = static_cast<int>(hn::MaxLanes(hn::CappedTag<double, 4>()));
    for (int k = 0; k < keys; k += 2 * lanes) {
        const int count = HWY_MIN(2 * lanes, keys - k);
        T* const y = x + k * kSubBlock;
        if (count == 1)
            followOne<Law>(rows + k, stride, y, n);
        else if (count <= lanes)
            followLanes<Law, 1>(rows + k, stride, y, count, n);
        else
            followLanes<Law, 2>(rows + k, stride, y, count, n);
    }
}

#endif

template <template <class> class Law> struct Follow {
    static void floats(double* rows, int stride, float* x, int keys, int n)
    {
        followAll<Law>(rows, stride, x, keys, n);
    }
    static void doubles(double* rows, int stride, double* x, int keys, int n)
    {
        followAll<Law>(rows, stride, x, keys, n);
    }
};

constexpr KeyKernels kKernels{Follow<Peaks>::floats, Follow<Peaks>::doubles,
                              Follow<Troughs>::floats, Follow<Troughs>::doubles};

const KeyKernels* keyKernels()
{
    return &kKernels;
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

HWY_EXPORT(keyKernels);
static const KeyKernels& chosen = *SIMD_CHOOSE(keyKernels)();

namespace {

constexpr double kLongestHold = 0.0125;  // seconds: half a period at 40 Hz
constexpr int kTroughRows = 11;          // and the smallest q of five stretches

void follow(const KeyKernels& k, double* rows, int stride, float* x, int keys, int n)
{
    k.peaksOfFloats(rows, stride, x, keys, n);
}
void follow(const KeyKernels& k, double* rows, int stride, double* x, int keys, int n)
{
    k.peaksOfDoubles(rows, stride, x, keys, n);
}
void followTroughs(const KeyKernels& k, double* rows, int stride, float* x, int keys, int n)
{
    k.troughsOfFloats(rows, stride, x, keys, n);
}
void followTroughs(const KeyKernels& k, double* rows, int stride, double* x, int keys, int n)
{
    k.troughsOfDoubles(rows, stride, x, keys, n);
}

}  // namespace

void KeyDetectors::prepare(int keys, int rows)
{
    keys_ = keys;
    stride_ = (keys + 7) / 8 * 8;
    lanes_.assign(static_cast<std::size_t>(rows * stride_), 0);
}

void KeyDetectors::rest() noexcept
{
    std::fill(lanes_.begin() + Body * stride_, lanes_.end(), 0.0);
    isIdle_ = true;
}

int KeyDetectors::holdFrames(double sampleRate, double lowest) noexcept
{
    const double seconds = lowest > 0 ? std::min(kLongestHold, 1 / lowest) : kLongestHold;
    return std::max(1, static_cast<int>(sampleRate * seconds + 0.5));
}

void KeyDetectors::setTimes(int key, double attack, double release, int hold) noexcept
{
    assert(key < stride_);
    row(Attack)[key] = attack;
    row(Release)[key] = release;
    row(Hold)[key] = hold;
}

KeyDetectors::Reached KeyDetectors::reached(int key) const noexcept
{
    return {row(Body)[key], row(Result)[key]};
}

void KeyDetectors::takeOver(const KeyDetectors& before, int bands) noexcept
{
    rest();
    for (int key = 0; key < keys_; ++key) {
        Reached most;
        for (int k = key % bands; k < before.keys_; k += bands) {
            const auto reached = before.reached(k);
            most.body = std::max(most.body, reached.body);
            most.result = std::max(most.result, reached.result);
        }
        takeOver(key, most);
    }
}

void KeyDetectors::takeOver(int key, const Reached& from) noexcept
{
    row(Body)[key] = from.body;
    row(Result)[key] = from.result;
    row(Left)[key] = row(Hold)[key];
    isIdle_ = isIdle_ && from.body == 0 && from.result == 0;
}

void PeakHold::prepare(int keys)
{
    KeyDetectors::prepare(keys, kRows);
    reset();
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
    follow(chosen, lanes_.data(), stride_, x, keys_, n);
    isIdle_ = std::all_of(row(Body), row(Left), [](double value) { return value == 0; });
    return false;
}

void TroughHold::prepare(int keys)
{
    KeyDetectors::prepare(keys, kTroughRows);
    reset();
}

void TroughHold::reset() noexcept
{
    rest();
    std::copy_n(row(Hold), stride_, row(Left));
}

void TroughHold::setTimes(int key, double attack, double release, int hold) noexcept
{
    KeyDetectors::setTimes(key, attack, release, hold / 4 + 1);
}

template <typename T> void TroughHold::run(T* x, int n) noexcept
{
    followTroughs(chosen, lanes_.data(), stride_, x, keys_, n);
    isIdle_ = std::all_of(row(Body), row(Left), [](double value) { return value == 0; });
}

template bool PeakHold::run(float*, int) noexcept;
template bool PeakHold::run(double*, int) noexcept;
template void TroughHold::run(float*, int) noexcept;
template void TroughHold::run(double*, int) noexcept;

}  // namespace quillworks
#endif
