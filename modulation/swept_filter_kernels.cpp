// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "modulation/swept_filter_kernels.cpp"
#include "dsp/simd.h"
//
#include "modulation/slots-inl.h"
#include "modulation/swept_filter_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

template <typename T> void lay(const SweptFilterCourse<T>& course)
{
    const hn::CappedTag<T, 16> d;
    using V = hn::Vec<decltype(d)>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(d)), values = 2 * kGroup;
    for (int p = 0; p < course.factor; ++p) {
        HWY_ALIGN T share[values];
        for (int i = 0; i < kGroup; ++i)
            share[2 * i] = share[2 * i + 1] =
                T(course.factor * i + p + 1) / T(course.factor * kGroup);
        for (int group = 0; group < course.count; ++group) {
            const T *const from = course.g + 2 * group, *const to = from + 2;
            T* const row = course.rows[p] + (course.first + group) * values;
#pragma GCC unroll 2
            for (int i = 0; i < values; i += lanes) {
                const V start = sides(d, from, i), way = hn::Sub(sides(d, to, i), start);
                hn::StoreU(hn::MulAdd(way, hn::Load(d, share + i), start), d, row + i);
            }
        }
    }
}

/// A section whose damping grows with the level of its band, z = (v1/2)^2 of the last sample:
/// ke = k + 2 w z/(1 + z). With u = x - z2 and what both fractions share multiplied out, the
/// high-pass is
///
///     h = (u - (g + k) z1 + z (u - (g + k + 2 w) z1)) / (1 + g (g + k) + z (1 + g (g + k + 2 w))),
///
/// in which what waits for the last sample comes last; v1 = z1 + g h, v2 = z2 + g v1, and the
/// states move by z1' = z1 + 2 g h, z2' = z2 + 2 g v1: small at low frequencies, which keeps the
/// digits.
template <typename T> class DampedSection {
    using D = SlotTag<T>;
    using V = SlotVec<T>;

public:
    HWY_INLINE void load(const T* states, int stride)
    {
        z1_ = hn::LoadU(D(), states);
        z2_ = hn::LoadU(D(), states + stride);
        v1_ = hn::LoadU(D(), states + 2 * stride);
    }
    HWY_INLINE void save(T* states, int stride) const
    {
        hn::StoreU(z1_, D(), states);
        hn::StoreU(z2_, D(), states + stride);
        hn::StoreU(v1_, D(), states + 2 * stride);
    }
    HWY_INLINE V next(V g, V k, V drive, V input, V band, V low, V x)
    {
        const D d;
        const V one = hn::Set(d, T(1));
        const V still = hn::Add(g, k), driven = hn::Add(still, drive);
        const V half = hn::Mul(hn::Set(d, T(0.25)), v1_);
        const V level = hn::Mul(half, v1_);
        const V u1 = hn::Sub(hn::NegMulAdd(still, z1_, x), z2_);
        const V u2 = hn::Sub(hn::NegMulAdd(driven, z1_, x), z2_);
        const V high =
            hn::Div(hn::MulAdd(level, u2, u1),
                    hn::MulAdd(level, hn::MulAdd(g, driven, one), hn::MulAdd(g, still, one)));
        const V g2 = hn::Add(g, g);
        v1_ = hn::MulAdd(g, high, z1_);
        const V v2 = hn::MulAdd(g, v1_, z2_);
        z1_ = hn::MulAdd(g2, high, z1_);
        z2_ = hn::MulAdd(g2, v1_, z2_);
        const V damped = hn::Sub(hn::Sub(x, v2), high);  // ke v1
        return hn::MulAdd(low, v2, hn::MulAdd(band, damped, hn::Mul(input, x)));
    }

private:
    V z1_, z2_, v1_;
};

template <int factor, bool moves, bool isPair, typename T>
void runSlots(const SweptFilterRun<T>& run, const SlotLanes<T>* lanes, int slot)
{
    const SlotTag<T> d;
    using V = SlotVec<T>;
    DampedSection<T> first, second;
    T* const states = run.states + slot;
    first.load(states, run.slots);
    second.load(states + 3 * run.slots, run.slots);
    V c[kSweptFilterValues];
    for (int k = 0; k < kSweptFilterValues; ++k) c[k] = hn::Set(d, run.to[k]);
    for (int i = 0; i < run.frames; ++i) {
        const int frame = run.phase + i;
        if (moves) {
            const V left = hn::Set(d, T(kSubBlock - 1 - frame));
            for (int k = 0; k < kSweptFilterValues; ++k)
                c[k] = hn::NegMulAdd(hn::Set(d, run.step[k]), left, hn::Set(d, run.to[k]));
        }
#pragma GCC unroll 2
        for (int p = 0; p < factor; ++p) {
            const V g = sides(d, run.rows[p] + 2 * frame, slot);
            const V x = lanes[p].template load<isPair>(i);
            const V y = first.next(g, c[kDamping1], c[kDrive], c[kInput1], c[kBand1], c[kLow1], x);
            lanes[p].template store<isPair>(
                second.next(g, c[kDamping2], c[kDrive], c[kInput2], c[kBand2], c[kLow2], y), i);
        }
    }
    first.save(states, run.slots);
    second.save(states + 3 * run.slots, run.slots);
}

template <int factor, bool moves, typename T> void runAll(const SweptFilterRun<T>& run)
{
    for (int slot = 0; slot < run.slots; slot += kSlotLanes<T>) {
        const SlotLanes<T> lanes[2] = {SlotLanes<T>(run.x[0] + slot),
                                       SlotLanes<T>(run.x[factor - 1] + slot)};
        if (lanes[0].isEmpty()) continue;
        if (lanes[0].isPair())
            runSlots<factor, moves, true>(run, lanes, slot);
        else
            runSlots<factor, moves, false>(run, lanes, slot);
    }
}

template <typename T> void run(const SweptFilterRun<T>& run)
{
    if (run.factor == 2)
        run.moves ? runAll<2, true>(run) : runAll<2, false>(run);
    else
        run.moves ? runAll<1, true>(run) : runAll<1, false>(run);
}

SweptFilterKernels<float> floatKernels()
{
    return {lay<float>, run<float>};
}
SweptFilterKernels<double> doubleKernels()
{
    return {lay<double>, run<double>};
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(floatKernels);
HWY_EXPORT(doubleKernels);

}  // namespace

template <> const SweptFilterKernels<float>& sweptFilterKernels<float>()
{
    static const auto kernels = SIMD_CHOOSE(floatKernels)();
    return kernels;
}
template <> const SweptFilterKernels<double>& sweptFilterKernels<double>()
{
    static const auto kernels = SIMD_CHOOSE(doubleKernels)();
    return kernels;
}

}  // namespace quillworks
#endif
