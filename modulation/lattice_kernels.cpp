// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "modulation/lattice_kernels.cpp"
#include "dsp/simd.h"
//
#include "modulation/lattice_kernels.h"
#include "modulation/slots-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// --- laying out the rows ---

template <class D, class V = hn::Vec<D>> HWY_INLINE V power(D d, V g, int n)
{
    V result = hn::Set(d, 1);
    for (; n > 0; n /= 2, g = hn::Mul(g, g))
        if (n % 2 == 1) result = hn::Mul(result, g);
    return result;
}

template <class D, typename T, class V = hn::Vec<D>>
HWY_INLINE void layValues(D d, LatticeRows<T>& rows, const LatticeCourse<T>& course, int at, V g,
                          V k)
{
    const V one = hn::Set(d, 1), a = hn::Set(d, course.highPass);
    const V cosine = hn::Div(hn::Sub(g, one), hn::Add(g, one));
    // Of the cosine as it is rounded: a rotation must not grow, however slow it is.
    const V sine = hn::Sqrt(hn::Mul(hn::Sub(one, cosine), hn::Add(one, cosine)));
    const V loop = hn::Mul(k, power(d, cosine, course.stages));
    // 1/(1 - a loop) and (1 - k^2) (1 - loop)/(1 + loop) by one division.
    const V unfed = hn::NegMulAdd(a, loop, one), sum = hn::Add(one, loop);
    const V inverse = hn::Div(one, hn::Mul(unfed, sum));
    const V input = hn::Mul(inverse, sum);
    const V left = hn::Mul(hn::NegMulAdd(k, k, one), hn::Sub(one, loop));
    hn::StoreU(cosine, d, rows.g + at);
    hn::StoreU(sine, d, rows.c + at);
    hn::StoreU(input, d, rows.input + at);
    hn::StoreU(hn::Mul(hn::Mul(a, k), input), d, rows.output + at);
    hn::StoreU(hn::Sqrt(hn::Mul(left, hn::Mul(inverse, unfed))), d, rows.gain + at);
}

template <typename T> void lay(LatticeRows<T>& rows, const LatticeCourse<T>& course)
{
    const hn::CappedTag<T, 16> d;
    using V = hn::Vec<decltype(d)>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(d)), values = 2 * kGroup;
    HWY_ALIGN static constexpr T kShare[values] = {0.125, 0.125, 0.25, 0.25, 0.375, 0.375, 0.5, 0.5,
                                                   0.625, 0.625, 0.75, 0.75, 0.875, 0.875, 1,   1};
    HWY_ALIGN T feedback[values];
    V k = hn::Set(d, course.feedback[0]);
    for (int group = 0; group < course.count; ++group) {
        const int first = course.first + group;
        const T *const from = course.g + 2 * group, *const to = from + 2;
        if (!course.isFeedbackConstant)
            for (int i = 0; i < kGroup; ++i)
                feedback[2 * i] = feedback[2 * i + 1] = course.feedback[first * kGroup + i];
#pragma GCC unroll 2
        for (int i = 0; i < values; i += lanes) {
            const V start = sides(d, from, i), way = hn::Sub(sides(d, to, i), start);
            if (!course.isFeedbackConstant) k = hn::Load(d, feedback + i);
            layValues(d, rows, course, first * values + i,
                      hn::MulAdd(way, hn::Load(d, kShare + i), start), k);
        }
    }
    for (int group = course.first; group < course.first + course.count; ++group) {
        const int at = group * values, end = at + values;
        for (int side = 0; side < 2; ++side) {
            rows.entering[2 * group + side] = rows.c[at + side] / rows.last[side];
            rows.last[side] = rows.c[end - 2 + side];
        }
#pragma GCC unroll 2
        for (int i = at; i < end; i += lanes) {
            const V now = hn::LoadU(d, rows.c + i);
            V next = hn::LoadU(d, rows.c + i + 2);
            if (i + lanes + 2 > end)
                next =
                    hn::IfThenElse(hn::FirstN(d, std::size_t(HWY_MAX(0, end - 2 - i))), next, now);
            hn::StoreU(hn::Mul(now, next), d, rows.feed + i);
            hn::StoreU(hn::Mul(hn::LoadU(d, rows.g + i), hn::Div(next, now)), d, rows.keep + i);
        }
    }
}

// --- the stages ---

/// The stages of one vector of slots. They form blocks of a few: what leaves a block unfed is added
/// up inside the blocks at once, and handed from block to block, so that the chain from sample to
/// sample is short.
template <int stages, typename T> class Stages {
    static constexpr int kBlock = stages <= 4 ? stages : stages % 4 == 0 ? 4 : 3;
    static constexpr int kBlocks = stages / kBlock;
    using D = SlotTag<T>;
    using V = hn::Vec<D>;

public:
    HWY_INLINE Stages(const LatticeRun<T>& run, int slot) : run_(run), slot_(slot)
    {
        for (int i = 0; i < stages; ++i) t_[i] = hn::LoadU(D(), run.state + i * run.slots + slot);
        z_ = hn::LoadU(D(), run.offset + slot);
    }
    HWY_INLINE void save() const
    {
        for (int i = 0; i < stages; ++i)
            hn::StoreU(t_[i], D(), run_.state + i * run_.slots + slot_);
        hn::StoreU(z_, D(), run_.offset + slot_);
    }

    HWY_INLINE void enter(int group)
    {
        const V factor = sides(D(), run_.rows->entering + 2 * group, slot_);
#pragma GCC unroll 24
        for (int i = 0; i < stages; ++i) t_[i] = hn::Mul(t_[i], factor);
    }

    HWY_INLINE V next(int frame, V x)
    {
        const D d;
        const auto& rows = *run_.rows;
        const V g = sides(d, rows.g + 2 * frame, slot_);
        const V feed = sides(d, rows.feed + 2 * frame, slot_);
        const V keep = sides(d, rows.keep + 2 * frame, slot_);
        // Powers of G, alone and times the feed.
        V power[kBlock + 1], weight[kBlock];
        power[1] = g;
        weight[0] = feed;
#pragma GCC unroll 4
        for (int j = 1; j < kBlock; ++j) {
            power[j + 1] = hn::Mul(power[j], g);
            weight[j] = hn::Mul(power[j], feed);
        }
        // Unfed: inside[b][j] leaves stage j of block b, y[b] enters the block.
        V inside[kBlocks][kBlock + 1], y[kBlocks + 1];
#pragma GCC unroll 8
        for (int b = 0; b < kBlocks; ++b) {
            inside[b][1] = t_[b * kBlock];
#pragma GCC unroll 4
            for (int j = 1; j < kBlock; ++j)
                inside[b][j + 1] = hn::MulAdd(g, inside[b][j], t_[b * kBlock + j]);
        }
        y[1] = inside[0][kBlock];
#pragma GCC unroll 8
        for (int b = 1; b < kBlocks; ++b)
            y[b + 1] = hn::MulAdd(power[kBlock], y[b], inside[b][kBlock]);

        const V output = sides(d, rows.output + 2 * frame, slot_);
        const V fed = hn::MulSub(sides(d, rows.input + 2 * frame, slot_), x, hn::Mul(output, z_));
        const V u = hn::MulAdd(output, y[kBlocks], fed);
        V reach = power[kBlock];  // of u, to the block to come
#pragma GCC unroll 8
        for (int b = 0; b < kBlocks; ++b) {
            V in = u;
            if (b > 0) {
                in = hn::MulAdd(reach, u, y[b]);
                reach = hn::Mul(reach, power[kBlock]);
            }
#pragma GCC unroll 4
            for (int j = 0; j < kBlock; ++j) {
                V& t = t_[b * kBlock + j];
                const V kept = hn::Mul(keep, t);
                t = j == 0 ? hn::MulSub(feed, in, kept)
                           : hn::MulAdd(weight[j], in, hn::MulSub(feed, inside[b][j], kept));
            }
        }
        const V o = hn::MulAdd(reach, u, y[kBlocks]);
        z_ = hn::MulAdd(hn::Set(d, run_.keep), hn::Sub(o, z_), z_);
        return hn::Mul(sides(d, rows.gain + 2 * frame, slot_), o);
    }

private:
    const LatticeRun<T>& run_;
    int slot_;
    V t_[stages], z_;
};

template <int stages, bool isPair, typename T>
void runSlots(const LatticeRun<T>& run, const SlotLanes<T>& lanes, int slot)
{
    Stages<stages, T> chain(run, slot);
    for (int i = 0; i < run.frames;) {
        const int frame = run.phase + i, group = frame / kGroup;
        if (frame % kGroup == 0) chain.enter(group);
        const int end = HWY_MIN(run.frames, (group + 1) * kGroup - run.phase);
        for (; i < end; ++i)
            lanes.template store<isPair>(chain.next(run.phase + i, lanes.template load<isPair>(i)),
                                         i);
    }
    chain.save();
}

template <int stages, typename T> void runStages(const LatticeRun<T>& run)
{
    for (int slot = 0; slot < run.slots; slot += kSlotLanes<T>) {
        const SlotLanes<T> lanes(run.x + slot);
        if (lanes.isEmpty()) continue;
        if (lanes.isPair())
            runSlots<stages, true>(run, lanes, slot);
        else
            runSlots<stages, false>(run, lanes, slot);
    }
}

template <typename T> void run(const LatticeRun<T>& run)
{
    switch (run.stages) {
    case 2:
        return runStages<2>(run);
    case 4:
        return runStages<4>(run);
    case 6:
        return runStages<6>(run);
    case 8:
        return runStages<8>(run);
    case 12:
        return runStages<12>(run);
    case 16:
        return runStages<16>(run);
    case 24:
        return runStages<24>(run);
    }
}

LatticeKernels<float> floatKernels()
{
    return {lay<float>, run<float>};
}
LatticeKernels<double> doubleKernels()
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

template <> const LatticeKernels<float>& latticeKernels<float>()
{
    static const auto kernels = SIMD_CHOOSE(floatKernels)();
    return kernels;
}
template <> const LatticeKernels<double>& latticeKernels<double>()
{
    static const auto kernels = SIMD_CHOOSE(doubleKernels)();
    return kernels;
}

}  // namespace quillworks
#endif
