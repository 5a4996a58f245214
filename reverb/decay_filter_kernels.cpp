// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "reverb/decay_filter_kernels.cpp"
#include "dsp/simd.h"
//
#include "dsp/lanes-inl.h"
#include "reverb/decay_filter_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// At most 32 bytes: what lanes-inl.h transposes.
template <typename T> using Lanes = hn::CappedTag<T, 32 / sizeof(T)>;
template <typename T> constexpr int kWidth = static_cast<int>(hn::MaxLanes(Lanes<T>()));

template <typename T> HWY_INLINE void turn(hn::Vec<Lanes<T>>* v)
{
#if HWY_TARGET != HWY_SCALAR
    transpose(Lanes<T>(), v);
#else
    static_cast<void>(v);  // of one lane
#endif
}

/// One row per lane becomes one per frame, or back.
template <typename T> HWY_INLINE void toFrames(const DecayRun<T>& run)
{
    const Lanes<T> d;
    constexpr int width = kWidth<T>;
    for (int lane = 0; lane < run.count; lane += width)
        for (int at = 0; at < run.frames; at += width) {
            hn::Vec<Lanes<T>> v[width];
            for (int k = 0; k < width; ++k) v[k] = hn::LoadU(d, run.in[lane + k] + at);
            turn<T>(v);
            for (int k = 0; k < width; ++k)
                hn::Store(v[k], d, run.lanes + (at + k) * run.count + lane);
        }
}
template <typename T> HWY_INLINE void toRows(const DecayRun<T>& run)
{
    const Lanes<T> d;
    constexpr int width = kWidth<T>;
    for (int lane = 0; lane < run.count; lane += width)
        for (int at = 0; at < run.frames; at += width) {
            hn::Vec<Lanes<T>> v[width];
            for (int k = 0; k < width; ++k)
                v[k] = hn::Load(d, run.lanes + (at + k) * run.count + lane);
            turn<T>(v);
            for (int k = 0; k < width; ++k) hn::StoreU(v[k], d, run.out[lane + k] + at);
        }
}

/// `groups` vectors of lanes through two sections at a time: filters side by side hide each other's
/// waiting.
template <typename T, int groups, bool moves> class Pass {
    using D = Lanes<T>;
    using V = hn::Vec<D>;
    static constexpr int kWide = kWidth<T>;

public:
    HWY_INLINE Pass(const DecayRun<T>& run, int lane) : run_(run), lane_(lane) {}

    HWY_INLINE void run()
    {
        shelves();
        for (int s = 0; s < run_.peaks; s += 2) peaks(DecaySections::kShelves + s);
    }

private:
    /// A row of coefficients over the sub-block.
    struct Row {
        V to[groups], step[moves ? groups : 1];
        HWY_INLINE V at(int g, V ahead) const
        {
            return moves ? hn::NegMulAdd(step[moves ? g : 0], ahead, to[g]) : to[g];
        }
    };
    HWY_INLINE Row row(int i) const
    {
        Row r;
        for (int g = 0; g < groups; ++g) {
            r.to[g] = hn::Load(D(), run_.to + place(i, g));
            if (moves) r.step[moves ? g : 0] = hn::Load(D(), run_.step + place(i, g));
        }
        return r;
    }
    HWY_INLINE int place(int row, int g) const { return row * run_.count + lane_ + g * kWide; }
    HWY_INLINE T* frame(int i) const { return run_.lanes + i * run_.count + lane_; }
    HWY_INLINE V ahead(int i) const { return hn::Set(D(), T(kSubBlock - 1 - run_.phase - i)); }
    static constexpr int value(int section, int k) { return 1 + 3 * section + k; }

    HWY_INLINE void shelves() const
    {
        const D d;
        const Row gain = row(0), lowKappa = row(value(0, 0)), lowA1 = row(value(0, 1)),
                  highKappa = row(value(1, 0)), highA1 = row(value(1, 1));
        V low[groups], high[groups];
        for (int g = 0; g < groups; ++g) {
            low[g] = hn::Load(d, run_.states + place(0, g));
            high[g] = hn::Load(d, run_.states + place(2, g));
        }
        for (int i = 0; i < run_.frames; ++i) {
            const V left = ahead(i);
            T* const x = frame(i);
            for (int g = 0; g < groups; ++g) {
                V y = hn::Mul(gain.at(g, left), hn::Load(d, x + g * kWide));
                V u = hn::Mul(lowKappa.at(g, left), y);
                V v = hn::Add(u, low[g]);
                low[g] = hn::NegMulAdd(lowA1.at(g, left), v, u);
                y = hn::Add(y, v);
                u = hn::Mul(highKappa.at(g, left), y);
                v = hn::Add(u, high[g]);
                high[g] = hn::NegMulSub(highA1.at(g, left), v, u);
                hn::Store(hn::Add(y, v), d, x + g * kWide);
            }
        }
        for (int g = 0; g < groups; ++g) {
            hn::Store(low[g], d, run_.states + place(0, g));
            hn::Store(high[g], d, run_.states + place(2, g));
        }
    }

    /// In transposed direct form II: its gain at 0 Hz and half the rate is 1 whatever is rounded.
    HWY_INLINE void peaks(int first) const
    {
        const D d;
        const Row rows[2][3] = {
            {row(value(first, 0)), row(value(first, 1)), row(value(first, 2))},
            {row(value(first + 1, 0)), row(value(first + 1, 1)), row(value(first + 1, 2))}};
        V z1[2][groups], z2[2][groups];
        for (int s = 0; s < 2; ++s)
            for (int g = 0; g < groups; ++g) {
                z1[s][g] = hn::Load(d, run_.states + place(2 * (first + s), g));
                z2[s][g] = hn::Load(d, run_.states + place(2 * (first + s) + 1, g));
            }
        for (int i = 0; i < run_.frames; ++i) {
            const V left = ahead(i);
            T* const x = frame(i);
            for (int g = 0; g < groups; ++g) {
                V y = hn::Load(d, x + g * kWide);
                for (int s = 0; s < 2; ++s) {
                    const V u = hn::Mul(rows[s][0].at(g, left), y), v = hn::Add(u, z1[s][g]);
                    z1[s][g] = hn::NegMulAdd(rows[s][1].at(g, left), v, z2[s][g]);
                    z2[s][g] = hn::NegMulSub(rows[s][2].at(g, left), v, u);
                    y = hn::Add(y, v);
                }
                hn::Store(y, d, x + g * kWide);
            }
        }
        for (int s = 0; s < 2; ++s)
            for (int g = 0; g < groups; ++g) {
                hn::Store(z1[s][g], d, run_.states + place(2 * (first + s), g));
                hn::Store(z2[s][g], d, run_.states + place(2 * (first + s) + 1, g));
            }
    }

    const DecayRun<T>& run_;
    const int lane_;
};

template <typename T, bool moves> HWY_INLINE void runPasses(const DecayRun<T>& run)
{
    constexpr int width = kWidth<T>;
    int lane = 0;
    for (; lane + 2 * width <= run.count; lane += 2 * width) Pass<T, 2, moves>(run, lane).run();
    for (; lane < run.count; lane += width) Pass<T, 1, moves>(run, lane).run();
}

/// Without sections: the gain alone, along time.
template <typename T> HWY_INLINE void runGains(const DecayRun<T>& run)
{
    const Lanes<T> d;
    const auto ahead = hn::Sub(hn::Set(d, T(kSubBlock - 1 - run.phase)), hn::Iota(d, 0));
    for (int lane = 0; lane < run.count; ++lane) {
        const auto to = hn::Set(d, run.to[lane]);
        const auto step = hn::Set(d, run.moves ? run.step[lane] : T(0));
        for (int at = 0; at < run.frames; at += kWidth<T>) {
            const auto gain = hn::NegMulAdd(step, hn::Sub(ahead, hn::Set(d, T(at))), to);
            hn::StoreU(hn::Mul(gain, hn::LoadU(d, run.in[lane] + at)), d, run.out[lane] + at);
        }
    }
}

template <typename T> void runAll(const DecayRun<T>& run)
{
    if (run.peaks < 0) return runGains(run);
    toFrames(run);
    if (run.moves)
        runPasses<T, true>(run);
    else
        runPasses<T, false>(run);
    toRows(run);
}

void runFloats(const DecayRun<float>& run)
{
    runAll(run);
}
void runDoubles(const DecayRun<double>& run)
{
    runAll(run);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(runFloats);
HWY_EXPORT(runDoubles);
static const auto chosenFloats = SIMD_CHOOSE(runFloats);
static const auto chosenDoubles = SIMD_CHOOSE(runDoubles);

void runDecayFilters(const DecayRun<float>& run)
{
    chosenFloats(run);
}
void runDecayFilters(const DecayRun<double>& run)
{
    chosenDoubles(run);
}

}  // namespace quillworks
#endif
