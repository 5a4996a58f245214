// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "reverb/tank_kernels.cpp"
#include "dsp/simd.h"
//
#include <bit>
#include <utility>

#include "dsp/sine.h"
#include "reverb/tank_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Frames at a time: as many as the slack behind a slice allows, and registers hold 16 lines of.
template <typename T> using Frames = hn::CappedTag<T, 16>;
template <typename T> constexpr int kWidth = static_cast<int>(hn::MaxLanes(Frames<T>()));
template <typename T> using V = hn::Vec<Frames<T>>;

/// Fast Walsh-Hadamard transform of `lines` vectors, natural order, not scaled.
template <typename T, int lines, int half = 1> HWY_INLINE void walsh(V<T>* v)
{
    for (int i = 0; i < lines; i += 2 * half)
        for (int k = i; k < i + half; ++k) {
            const V<T> a = v[k], b = v[k + half];
            v[k] = hn::Add(a, b);
            v[k + half] = hn::Sub(a, b);
        }
    if constexpr (2 * half < lines) walsh<T, lines, 2 * half>(v);
}

template <typename T, int lines> HWY_INLINE void load(V<T>* v, const T* const* rows, int at)
{
    for (int i = 0; i < lines; ++i) v[i] = hn::LoadU(Frames<T>(), rows[i] + at);
}

template <typename T, int lines> void diffuseLines(const DiffusionRun<T>& run)
{
    const Frames<T> d;
    for (int at = 0; at < run.frames; at += kWidth<T>) {
        V<T> v[lines];
        load<T, lines>(v, run.in, at);
        walsh<T, lines>(v);
        for (int i = 0; i < lines; ++i)
            hn::StoreU(hn::Mul(v[i], hn::Set(d, run.factor[i])), d, run.out[i] + at);
    }
}

/// Rows 5 and 10: of the lowest two bits of a line's number, and of the others, each is in one row,
/// so that lines in fours give a sum to both.
template <typename T, int lines> HWY_INLINE void sumPair(const V<T>* v, V<T>* out)
{
    static_assert(kTankOutputs[0] == 5 && kTankOutputs[1] == 10);
    V<T> left[lines / 4], right[lines / 4];
    for (int i = 0; i < lines / 4; ++i) {
        const V<T> outer = hn::Sub(v[4 * i], v[4 * i + 3]);
        const V<T> inner = hn::Sub(v[4 * i + 2], v[4 * i + 1]);
        left[i] = hn::Add(outer, inner);
        right[i] = hn::Sub(outer, inner);
    }
    out[0] = hn::Sub(left[0], left[1]);
    out[1] = hn::Add(right[0], right[1]);
    if constexpr (lines == 16) {
        out[0] = hn::Add(out[0], hn::Sub(left[2], left[3]));
        out[1] = hn::Sub(out[1], hn::Add(right[2], right[3]));
    }
}

template <typename T, int lines> bool sumLines(const OutputRun<T>& run)
{
    const Frames<T> d;
    const auto factor = hn::Set(d, run.factor), most = hn::Set(d, hwy::HighestValue<T>());
    auto isSound = hn::FirstN(d, static_cast<std::size_t>(kWidth<T>));
    for (int at = 0; at < run.frames; at += kWidth<T>) {
        V<T> v[lines], sums[2];
        load<T, lines>(v, run.in, at);
        const bool isPair = run.outputs <= 2;
        if (isPair)
            sumPair<T, lines>(v, sums);
        else
            walsh<T, lines>(v);
        const auto unused =
            hn::Not(hn::FirstN(d, static_cast<std::size_t>(HWY_MIN(run.frames - at, kWidth<T>))));
        for (int o = 0; o < run.outputs; ++o) {
            const auto y = hn::Mul(factor, isPair ? sums[o] : v[kTankOutputs[o] % lines]);
            isSound = hn::And(isSound, hn::Or(unused, hn::Le(hn::Abs(y), most)));
            hn::StoreU(y, d, run.out[o] + at);
        }
    }
    return hn::AllTrue(d, isSound);
}

template <typename T, int lines, bool hasAllPasses> void feedBackLines(const FeedbackRun<T>& run)
{
    const Frames<T> d;
    for (int at = 0; at < run.frames; at += kWidth<T>) {
        const V<T> ahead = hn::Sub(hn::Set(d, T(kSubBlock - 1 - run.phase - at)), hn::Iota(d, 0));
        V<T> v[lines];
        load<T, lines>(v, run.in, at);
        if (hasAllPasses) {
            const V<T> g = hn::NegMulAdd(hn::Set(d, run.gStep), ahead, hn::Set(d, run.g));
            for (int i = 0; i < lines; ++i) {
                const V<T> kept =
                    hn::NegMulAdd(hn::Set(d, run.kept.step[i]), ahead, hn::Set(d, run.kept.to[i]));
                const V<T> delayed = hn::Mul(kept, hn::LoadU(d, run.delayed[i] + at));
                const V<T> in = hn::MulAdd(g, delayed, v[i]);
                hn::StoreU(in, d, run.allPass[i] + at);
                v[i] = hn::NegMulAdd(g, in, delayed);
            }
        }
        for (int p = 0; p < lines / 2; ++p) {
            const auto moving = [&](const Moving<T>& value) HWY_ATTR {
                return hn::NegMulAdd(hn::Set(d, value.step[p]), ahead, hn::Set(d, value.to[p]));
            };
            const auto entering = [&](int i) HWY_ATTR {
                return hn::Mul(hn::Set(d, run.factor[i]), hn::LoadU(d, run.entering[i] + at));
            };
            const V<T> c = moving(run.cosine), s = moving(run.sine);
            const int i = 2 * p, k = i + 1;
            const V<T> first = hn::NegMulAdd(s, v[k], hn::MulAdd(c, v[i], entering(i)));
            v[k] = hn::MulAdd(s, v[i], hn::MulAdd(c, v[k], entering(k)));
            v[i] = first;
        }
        walsh<T, lines>(v);
        for (int i = 0; i < lines; ++i) hn::StoreU(v[i], d, run.out[i] + at);
    }
}

using Angles = hn::CappedTag<double, 8>;
using Angle = hn::Vec<Angles>;

/// As sinPi of dsp/sine.h, |x| <= 0.5, by halves that do not wait for each other.
HWY_INLINE Angle sineOf(Angle x)
{
    const Angles d;
    const auto pair = [d](Angle s, int i) HWY_ATTR {
        return hn::MulAdd(hn::Set(d, kSinPi[i]), s, hn::Set(d, kSinPi[i + 1]));
    };
    const Angle s = hn::Mul(x, x), s2 = hn::Mul(s, s);
    const Angle upper = hn::MulAdd(pair(s, 0), s2, pair(s, 2));
    const Angle lower = hn::MulAdd(pair(s, 4), s2, pair(s, 6));
    return hn::Mul(hn::MulAdd(upper, hn::Mul(s2, s2), lower), x);
}
/// cos(pi x), |x| <= 0.5.
HWY_INLINE Angle cosineOf(Angle x)
{
    const Angle s = sineOf(hn::Mul(x, hn::Set(Angles(), 0.5)));
    return hn::NegMulAdd(hn::Add(s, s), s, hn::Set(Angles(), 1.0));
}

template <typename T> HWY_INLINE void glide(Moving<T>& value, const double* to, int count)
{
    for (int i = 0; i < count; ++i) {
        value.step[i] = (T(to[i]) - value.to[i]) * (T(1) / kSubBlock);
        value.to[i] = T(to[i]);
    }
}

template <typename T> void rotate(const RotationRun<T>& run)
{
    const Angles d;
    HWY_ALIGN double cosine[8];
    HWY_ALIGN double sine[8];
    for (int p = 0; p < run.pairs; p += static_cast<int>(hn::MaxLanes(d))) {
        const Angle c = hn::LoadU(d, run.cosine + p), s = hn::LoadU(d, run.sine + p);
        const Angle byCosine = hn::LoadU(d, run.cosineAdvance + p);
        const Angle bySine = hn::LoadU(d, run.sineAdvance + p);
        const Angle wave = hn::MulAdd(s, byCosine, hn::Mul(c, bySine));
        hn::StoreU(hn::NegMulAdd(s, bySine, hn::Mul(c, byCosine)), d, run.cosine + p);
        hn::StoreU(wave, d, run.sine + p);
        // Of half the angle, and from there by the addition theorem.
        const Angle half = hn::Mul(hn::Set(d, run.motion * 0.5), wave);
        const Angle y = sineOf(half), x = cosineOf(half);
        hn::Store(hn::NegMulAdd(hn::Add(y, y), y, hn::Set(d, 1.0)), d, cosine + p);
        hn::Store(hn::Mul(hn::Add(y, y), x), d, sine + p);
    }
    glide(*run.cosineTurn, cosine, run.pairs);
    glide(*run.sineTurn, sine, run.pairs);
}

template <typename T> void diffuse(const DiffusionRun<T>& run)
{
    run.lines == 8 ? diffuseLines<T, 8>(run) : diffuseLines<T, 16>(run);
}
template <typename T> bool sumUp(const OutputRun<T>& run)
{
    return run.lines == 8 ? sumLines<T, 8>(run) : sumLines<T, 16>(run);
}
template <typename T> void feedBack(const FeedbackRun<T>& run)
{
    if (run.delayed)
        run.lines == 8 ? feedBackLines<T, 8, true>(run) : feedBackLines<T, 16, true>(run);
    else
        run.lines == 8 ? feedBackLines<T, 8, false>(run) : feedBackLines<T, 16, false>(run);
}

template <typename T>
constexpr TankKernels<T> kKernels{diffuse<T>, sumUp<T>, feedBack<T>, rotate<T>};

const TankKernels<float>* floatKernels()
{
    return &kKernels<float>;
}
const TankKernels<double>* doubleKernels()
{
    return &kKernels<double>;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(floatKernels);
HWY_EXPORT(doubleKernels);
static const auto chosenFloats = SIMD_CHOOSE(floatKernels);
static const auto chosenDoubles = SIMD_CHOOSE(doubleKernels);

template <> const TankKernels<float>& tankKernels<float>()
{
    return *chosenFloats();
}
template <> const TankKernels<double>& tankKernels<double>()
{
    return *chosenDoubles();
}

}  // namespace quillworks
#endif
