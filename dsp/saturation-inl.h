// SPDX-License-Identifier: ISC
// Means of the saturation curves between two points; compiled once per instruction set.
#if defined(QUILLWORKS_DSP_SATURATION_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_DSP_SATURATION_INL_H
#undef QUILLWORKS_DSP_SATURATION_INL_H
#else
#define QUILLWORKS_DSP_SATURATION_INL_H
#endif

#include <hwy/highway.h>

#include "dsp/saturation.h"
#include "dsp/sine.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

/// Vectors of 32 bytes at most, as the oversampler's.
template <typename T> using CurveTag = hwy::HWY_NAMESPACE::CappedTag<T, 32 / sizeof(T)>;
template <typename T> using CurveVec = hwy::HWY_NAMESPACE::Vec<CurveTag<T>>;

/// A curve as `Point`, made of an x with `at` and holding what two neighbours share, and `mean`:
/// (F(a) - F(b)) / (a - b), F the antiderivative of f. The forms do not cancel, so that neighbours
/// may be as close as they like; `mean` of a point with itself is f.
template <Saturation curve, typename T> struct CurveMean;

template <typename T> struct RootMean {
    using V = CurveVec<T>;
    struct Point {
        V x, root;  // sqrt(1 + x^2), which is F too
    };
    static HWY_INLINE Point at(V x)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        return {x, hn::Sqrt(hn::MulAdd(x, x, hn::Set(CurveTag<T>(), T(1))))};
    }
    static HWY_INLINE V mean(const Point& a, const Point& b)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        return hn::Div(hn::Add(a.x, b.x), hn::Add(a.root, b.root));
    }
};
template <typename T> struct CurveMean<Saturation::Warm, T> : RootMean<T> {};

/// Curves that are 1 from an end on.
template <typename T> struct ClippedPoint {
    CurveVec<T> x, inside, beyond;  // x limited to +-1, and what F grows by outside
};

template <typename T> HWY_INLINE ClippedPoint<T> clippedPoint(CurveVec<T> x)
{
    namespace hn = hwy::HWY_NAMESPACE;
    const CurveTag<T> d;
    const auto inside = hn::Max(hn::Min(x, hn::Set(d, T(1))), hn::Set(d, T(-1)));
    return {x, inside, hn::Mul(hn::Sub(x, inside), inside)};
}

/// (`growth` inside + what lies beyond) / (a - b), or f where that has no quotient.
template <typename T>
HWY_INLINE CurveVec<T> clippedMean(const ClippedPoint<T>& a, const ClippedPoint<T>& b,
                                   CurveVec<T> growth, CurveVec<T> f)
{
    namespace hn = hwy::HWY_NAMESPACE;
    const auto distance = hn::Sub(a.x, b.x);
    const auto whole = hn::Add(growth, hn::Sub(a.beyond, b.beyond));
    const auto isNone = hn::Eq(distance, hn::Zero(CurveTag<T>()));
    return hn::IfThenElse(isNone, f, hn::Div(whole, distance));
}

template <typename T> struct CurveMean<Saturation::Hard, T> {
    using V = CurveVec<T>;
    using Point = ClippedPoint<T>;
    static HWY_INLINE Point at(V x) { return clippedPoint<T>(x); }
    static HWY_INLINE V mean(const Point& a, const Point& b)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        const auto half = hn::Mul(hn::Set(CurveTag<T>(), T(0.5)), hn::Add(a.inside, b.inside));
        return clippedMean<T>(a, b, hn::Mul(hn::Sub(a.inside, b.inside), half), a.inside);
    }
};

template <typename T> struct CurveMean<Saturation::Soft, T> {
    using V = CurveVec<T>;
    struct Point : ClippedPoint<T> {
        V square;  // of what lies inside
    };
    static HWY_INLINE Point at(V x)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        const auto p = clippedPoint<T>(hn::Mul(x, hn::Set(CurveTag<T>(), T(2.0 / 3))));
        return {p, hn::Mul(p.inside, p.inside)};
    }
    static HWY_INLINE V mean(const Point& a, const Point& b)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        const CurveTag<T> d;
        // F = 3/4 x^2 - 1/8 x^4, f = 3/2 x - 1/2 x^3.
        const auto slope =
            hn::NegMulAdd(hn::Set(d, T(0.125)), hn::Add(a.square, b.square), hn::Set(d, T(0.75)));
        const auto sum = hn::Mul(hn::Add(a.inside, b.inside), slope);
        const auto f =
            hn::Mul(a.inside, hn::NegMulAdd(hn::Set(d, T(0.5)), a.square, hn::Set(d, T(1.5))));
        return clippedMean<T>(a, b, hn::Mul(hn::Sub(a.inside, b.inside), sum), f);
    }
};

template <typename T> struct CurveMean<Saturation::Tube, T> {
    using V = CurveVec<T>;
    struct Point {
        V x, root;  // sqrt(1 + x^2), or sqrt(1 + 4 x^2) below 0
    };
    static HWY_INLINE Point at(V x)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        const CurveTag<T> d;
        const auto four =
            hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Set(d, T(4)), hn::Set(d, T(1)));
        return {x, hn::Sqrt(hn::MulAdd(hn::Mul(four, x), x, hn::Set(d, T(1))))};
    }
    static HWY_INLINE V mean(const Point& a, const Point& b)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        const CurveTag<T> d;
        const auto zero = hn::Zero(d), one = hn::Set(d, T(1));
        // Across 0 by F = x^2 / (1 + root) on both sides, over a common denominator: the two are
        // on different sides, so that their distance keeps its digits.
        const auto endA = hn::Add(one, a.root), endB = hn::Add(one, b.root);
        const auto across =
            hn::Sub(hn::Mul(hn::Mul(a.x, a.x), endB), hn::Mul(hn::Mul(b.x, b.x), endA));
        const auto distance = hn::Mul(hn::Sub(a.x, b.x), hn::Mul(endA, endB));
        const auto crosses = hn::Xor(hn::Lt(a.x, zero), hn::Lt(b.x, zero));
        return hn::Div(hn::IfThenElse(crosses, across, hn::Add(a.x, b.x)),
                       hn::IfThenElse(crosses, distance, hn::Add(a.root, b.root)));
    }
};

/// pi in two parts, of which a whole number of the first is exact.
template <typename T> struct PiParts;
template <> struct PiParts<float> {
    static constexpr float kLead = 3.140625f, kRest = 9.67653589793e-4f;
    static constexpr float kWhole = 0x1.8p23f;  // what is added to it is rounded to a whole number
};
template <> struct PiParts<double> {
    static constexpr double kLead = 3.14159265346825122834, kRest = 1.21542010130123844986e-10;
    static constexpr double kWhole = 0x1.8p52;
};

/// sin x, for |x| below 1e5 as exact as its rounding; always within +-1.
template <typename T> HWY_INLINE CurveVec<T> sine(CurveVec<T> x)
{
    namespace hn = hwy::HWY_NAMESPACE;
    using P = PiParts<T>;
    const CurveTag<T> d;
    const hn::RebindToUnsigned<CurveTag<T>> du;
    constexpr int kSignBit = 8 * sizeof(T) - 1;
    const auto share = hn::Set(d, T(1 / std::numbers::pi)), magic = hn::Set(d, P::kWhole);
    // x = n pi + rest: the sign is that of (-1)^n.
    const auto biased = hn::Add(hn::Mul(x, share), magic);
    const auto n = hn::Sub(biased, magic);
    auto rest = hn::NegMulAdd(n, hn::Set(d, P::kLead), x);
    rest = hn::Mul(hn::NegMulAdd(n, hn::Set(d, P::kRest), rest), share);
    rest = hn::Max(hn::Min(rest, hn::Set(d, T(0.5))), hn::Set(d, T(-0.5)));
    const auto s = hn::Mul(rest, rest);
    constexpr int kFirst = sizeof(T) == 4 ? 2 : 0;  // floats need no term above x^11
    auto sum = hn::Set(d, T(kSinPi[kFirst]));
    for (int i = kFirst + 1; i < 8; ++i) sum = hn::MulAdd(sum, s, hn::Set(d, T(kSinPi[i])));
    const auto sign = hn::BitCast(d, hn::ShiftLeft<kSignBit>(hn::BitCast(du, biased)));
    return hn::Xor(hn::Mul(sum, rest), sign);
}

template <typename T> struct CurveMean<Saturation::Fold, T> {
    using V = CurveVec<T>;
    using Point = V;
    static HWY_INLINE Point at(V x) { return x; }
    static HWY_INLINE V mean(Point a, Point b)
    {
        namespace hn = hwy::HWY_NAMESPACE;
        const CurveTag<T> d;
        const auto half = hn::Set(d, T(0.5));
        const auto middle = hn::Mul(half, hn::Add(a, b)), away = hn::Mul(half, hn::Sub(a, b));
        const auto close =
            hn::NegMulAdd(hn::Mul(away, away), hn::Set(d, T(1.0 / 6)), hn::Set(d, T(1)));
        const auto ratio = hn::IfThenElse(hn::Lt(hn::Abs(away), hn::Set(d, T(0.001))), close,
                                          hn::Div(sine<T>(away), away));
        return hn::Mul(sine<T>(middle), ratio);
    }
};

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
