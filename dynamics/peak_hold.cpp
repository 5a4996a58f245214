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
constexpr int kMostLanes = 8;   // keys of one pass

/// Rows of lanes: release, attack, hold, u, v, frames left.
template <class V> struct Detector {
    V release, attack, hold, u, v, left;
};

/// One sample of all lanes: r in, v out.
template <class D, class V> HWY_INLINE V follow(D d, Detector<V>& s, V r)
{
    const auto zero = hn::Zero(d), same = hn::Set(d, kSame);
    const auto asks = hn::Gt(r, zero);
    const auto isPeak = hn::And(asks, hn::Gt(r, hn::Sub(s.u, same)));
    const auto holds = hn::Gt(s.left, zero);
    const V falling = hn::MulAdd(s.release, hn::Sub(s.u, r), r);
    const auto isOver = hn::AndNot(asks, hn::Le(falling, same));
    const V lower = hn::IfThenElse(holds, s.u, hn::IfThenElse(isOver, zero, falling));
    s.u = hn::IfThenElse(isPeak, hn::Max(s.u, r), lower);
    s.left = hn::IfThenElse(isPeak, s.hold, hn::Max(hn::Sub(s.left, hn::Set(d, 1.0)), zero));
    const V v = hn::MulAdd(s.attack, hn::Sub(s.v, s.u), s.u);
    const auto isGone = hn::And(hn::Eq(s.u, zero), hn::Lt(v, hn::Set(d, kDone)));
    s.v = hn::IfThenElse(isGone, zero, v);
    return s.v;
}

template <class D> HWY_INLINE Detector<hn::Vec<D>> load(D d, const double* rows, int stride)
{
    return {hn::LoadU(d, rows),
            hn::LoadU(d, rows + stride),
            hn::LoadU(d, rows + 2 * stride),
            hn::LoadU(d, rows + 3 * stride),
            hn::LoadU(d, rows + 4 * stride),
            hn::LoadU(d, rows + 5 * stride)};
}

template <class D, class V>
HWY_INLINE void save(D d, const Detector<V>& s, double* rows, int stride)
{
    hn::StoreU(s.u, d, rows + 3 * stride);
    hn::StoreU(s.v, d, rows + 4 * stride);
    hn::StoreU(s.left, d, rows + 5 * stride);
}

/// One key.
template <typename T> void followOne(double* rows, int stride, T* x, int n)
{
    const hn::CappedTag<double, 1> d;
    auto s = load(d, rows, stride);
    for (int i = 0; i < n; ++i) x[i] = T(hn::GetLane(follow(d, s, hn::Set(d, double(x[i])))));
    save(d, s, rows, stride);
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

/// Keys side by side in `vectors` vectors.
template <int vectors, typename T> void followLanes(double* rows, int stride, T* x, int keys, int n)
{
    const hn::CappedTag<double, 4> d;
    using V = hn::Vec<decltype(d)>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(d));
    T unused[kSubBlock] = {};  // stands for the rows that the last vector has too many
    T* row[vectors * lanes];
    for (int k = 0; k < vectors * lanes; ++k) row[k] = k < keys ? x + k * kSubBlock : unused;
    Detector<V> s[vectors];
    for (int v = 0; v < vectors; ++v) s[v] = load(d, rows + v * lanes, stride);
    for (int at = 0; at < n; at += lanes) {
        V w[vectors][lanes];
        for (int v = 0; v < vectors; ++v) {
            for (int k = 0; k < lanes; ++k) w[v][k] = loadSamples(d, row[v * lanes + k] + at);
            transpose(d, w[v]);
        }
        const int steps = HWY_MIN(lanes, n - at);
        if (steps == lanes) {
            for (int i = 0; i < lanes; ++i)
                for (int v = 0; v < vectors; ++v) w[v][i] = follow(d, s[v], w[v][i]);
        } else {
            for (int i = 0; i < steps; ++i)
                for (int v = 0; v < vectors; ++v) w[v][i] = follow(d, s[v], w[v][i]);
        }
        for (int v = 0; v < vectors; ++v) {
            transpose(d, w[v]);
            for (int k = 0; k < lanes; ++k) storeSamples(d, w[v][k], row[v * lanes + k] + at);
        }
    }
    for (int v = 0; v < vectors; ++v) save(d, s[v], rows + v * lanes, stride);
}

template <typename T> void followAll(double* rows, int stride, T* x, int keys, int n)
{
    constexpr int lanes = static_cast<int>(hn::MaxLanes(hn::CappedTag<double, 4>()));
    for (int k = 0; k < keys; k += kMostLanes) {
        const int count = HWY_MIN(kMostLanes, keys - k);
        double* const r = rows + k;
        T* const y = x + k * kSubBlock;
        if (count == 1)
            followOne(r, stride, y, n);
        else if (count <= lanes)
            followLanes<1>(r, stride, y, count, n);
        else if (count <= 2 * lanes)
            followLanes<2>(r, stride, y, count, n);
        else
            followLanes<kMostLanes / lanes>(r, stride, y, count, n);
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
