// SPDX-License-Identifier: ISC
// What the kernels compute: each operation once, on vectors of any width and both precisions.
#if defined(QUILLWORKS_VECTORLIB_OPERATIONS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_VECTORLIB_OPERATIONS_INL_H
#undef QUILLWORKS_VECTORLIB_OPERATIONS_INL_H
#else
#define QUILLWORKS_VECTORLIB_OPERATIONS_INL_H
#endif

#include "vectorlib/kernel-inl.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {

struct Zero {
    template <class D> static HWY_INLINE hn::Vec<D> run(D d) { return hn::Zero(d); }
};
struct Same {
    template <class D, class V> static HWY_INLINE V run(D, V a) { return a; }
};
struct Negate {  // flips the sign bit, of zero and NaN too
    template <class D, class V> static HWY_INLINE V run(D, V a) { return hn::Neg(a); }
};
struct Add {
    template <class D, class V> static HWY_INLINE V run(D, V a, V b) { return hn::Add(a, b); }
};
struct Sub {
    template <class D, class V> static HWY_INLINE V run(D, V a, V b) { return hn::Sub(a, b); }
};
struct Mul {
    template <class D, class V> static HWY_INLINE V run(D, V a, V b) { return hn::Mul(a, b); }
};

// Sums of products are rounded after each operation, never fused: all instruction sets agree.
struct AddProduct {
    template <class D, class V> static HWY_INLINE V run(D, V a, V b, V gain)
    {
        return hn::Add(a, hn::Mul(b, gain));
    }
};
struct AddProducts {
    template <class D, class V> static HWY_INLINE V run(D, V a, V gainA, V b, V gainB)
    {
        return hn::Add(hn::Mul(a, gainA), hn::Mul(b, gainB));
    }
};
struct ScaleSum {
    template <class D, class V> static HWY_INLINE V run(D, V a, V b, V gain)
    {
        return hn::Mul(hn::Add(a, b), gain);
    }
};
struct ScaleDifference {
    template <class D, class V> static HWY_INLINE V run(D, V a, V b, V gain)
    {
        return hn::Mul(hn::Sub(a, b), gain);
    }
};

// a < b ? a : b and a > b ? a : b, so that b wins over a NaN.
struct Min {
    template <class D, class V> static HWY_INLINE V run(D d, V a, V b) { return minimum(d, a, b); }
};
struct Max {
    template <class D, class V> static HWY_INLINE V run(D d, V a, V b) { return maximum(d, a, b); }
};
struct OffsetRange {
    template <class D, class V> static HWY_INLINE V run(D d, V a, V offset, V low, V high)
    {
        return minimum(d, maximum(d, hn::Add(a, offset), low), high);
    }
};
struct Larger {  // of the two in magnitude, with its sign; b wins over a NaN
    template <class D, class V> static HWY_INLINE V run(D, V a, V b)
    {
        return hn::IfThenElse(hn::Ge(hn::Abs(a), hn::Abs(b)), a, b);
    }
};

}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
