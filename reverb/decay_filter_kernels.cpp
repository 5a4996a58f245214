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

/// Coefficients of `groups` vectors of lanes, from row to row of which there are `count` lanes.
template <typename T, int groups, bool moves> struct Row {
    using V = hn::Vec<Lanes<T>>;
    V to[groups], step[moves ? groups : 1];

    HWY_INLINE void load(const DecayRun<T>& run, int row, int lane)
    {
        for (int g = 0; g < groups; ++g) {
            const int place = row * run.count + lane + g * kWidth<T>;
            to[g] = hn::Load(Lanes<T>(), run.to + place);
            if (moves) step[moves ? g : 0] = hn::Load(Lanes<T>(), run.step + place);
        }
    }
    HWY_INLINE V at(int g, V ahead) const
    {
        return moves ? hn::NegMulAdd(step[moves ? g : 0], ahead, to[g]) : to[g];
    }
};

/// The state of a section.
template <typename T, int groups> struct State {
    hn::Vec<Lanes<T>> z[groups];

    HWY_INLINE void load(const DecayRun<T>& run, int row, int lane)
    {
        for (int g = 0; g < groups; ++g)
            z[g] = hn::Load(Lanes<T>(), run.states + row * run.count + lane + g * kWidth<T>);
    }
    HWY_INLINE void store(const DecayRun<T>& run, int row, int lane) const
    {
        for (int g = 0; g < groups; ++g)
            hn::Store(z[g], Lanes<T>(), run.states + row * run.count + lane + g * kWidth<T>);
    }
};

/// Gain and both shelves.
template <typename T, int groups, bool moves> struct Shelves {
    using V = hn::Vec<Lanes<T>>;
    Row<T, groups, moves> gain, lowKappa, lowA1, highKappa, highA1;
    State<T, groups> low, high;

    HWY_INLINE void load(const DecayRun<T>& run, int, int lane)
    {
        gain.load(run, 0, lane);
        lowKappa.load(run, 1, lane);
        lowA1.load(run, 2, lane);
        highKappa.load(run, 4, lane);
        highA1.load(run, 5, lane);
        low.load(run, 0, lane);
        high.load(run, 2, lane);
    }
    HWY_INLINE void store(const DecayRun<T>& run, int, int lane) const
    {
        low.store(run, 0, lane);
        high.store(run, 2, lane);
    }
    HWY_INLINE V next(int g, V y, V ahead)
    {
        y = hn::Mul(gain.at(g, ahead), y);
        V u = hn::Mul(lowKappa.at(g, ahead), y);
        V v = hn::Add(u, low.z[g]);
        low.z[g] = hn::NegMulAdd(lowA1.at(g, ahead), v, u);
        y = hn::Add(y, v);
        u = hn::Mul(highKappa.at(g, ahead), y);
        v = hn::Add(u, high.z[g]);
        high.z[g] = hn::NegMulSub(highA1.at(g, ahead), v, u);
        return hn::Add(y, v);
    }
};

/// Those that stand: with products taken out of the loop a state waits for one operation alone.
template <typename T, int groups> struct Shelves<T, groups, false> {
    using V = hn::Vec<Lanes<T>>;
    V through[groups], toLow[groups], lowA1[groups], throughHigh[groups], toHigh[groups],
        highA1[groups];
    State<T, groups> low, high;

    HWY_INLINE void load(const DecayRun<T>& run, int, int lane)
    {
        Shelves<T, groups, true> shelves;
        shelves.load(run, 0, lane);
        const V one = hn::Set(Lanes<T>(), T(1));
        for (int g = 0; g < groups; ++g) {
            const V kappa = hn::Mul(shelves.gain.to[g], shelves.lowKappa.to[g]);
            lowA1[g] = shelves.lowA1.to[g];
            highA1[g] = shelves.highA1.to[g];
            through[g] = hn::Add(shelves.gain.to[g], kappa);
            toLow[g] = hn::Mul(kappa, hn::Sub(one, lowA1[g]));
            throughHigh[g] = hn::Add(one, shelves.highKappa.to[g]);
            toHigh[g] = hn::Mul(shelves.highKappa.to[g], hn::Add(one, highA1[g]));
        }
        low = shelves.low;
        high = shelves.high;
    }
    HWY_INLINE void store(const DecayRun<T>& run, int, int lane) const
    {
        low.store(run, 0, lane);
        high.store(run, 2, lane);
    }
    HWY_INLINE V next(int g, V x, V)
    {
        const V y = hn::MulAdd(through[g], x, low.z[g]);
        low.z[g] = hn::NegMulAdd(lowA1[g], low.z[g], hn::Mul(toLow[g], x));
        const V z = high.z[g];
        high.z[g] = hn::NegMulSub(highA1[g], z, hn::Mul(toHigh[g], y));
        return hn::MulAdd(throughHigh[g], y, z);
    }
};

/// Two peaks in transposed direct form II: filters side by side hide each other's waiting.
template <typename T, int groups, bool moves> struct PeakPair {
    using V = hn::Vec<Lanes<T>>;
    Row<T, groups, moves> kappa[2], a1[2], a2[2];
    State<T, groups> z1[2], z2[2];

    HWY_INLINE void load(const DecayRun<T>& run, int first, int lane)
    {
        for (int s = 0; s < 2; ++s) {
            kappa[s].load(run, 1 + 3 * (first + s), lane);
            a1[s].load(run, 2 + 3 * (first + s), lane);
            a2[s].load(run, 3 + 3 * (first + s), lane);
            z1[s].load(run, 2 * (first + s), lane);
            z2[s].load(run, 2 * (first + s) + 1, lane);
        }
    }
    HWY_INLINE void store(const DecayRun<T>& run, int first, int lane) const
    {
        for (int s = 0; s < 2; ++s) {
            z1[s].store(run, 2 * (first + s), lane);
            z2[s].store(run, 2 * (first + s) + 1, lane);
        }
    }
    HWY_INLINE V next(int g, V y, V ahead)
    {
        for (int s = 0; s < 2; ++s) {
            const V u = hn::Mul(kappa[s].at(g, ahead), y), v = hn::Add(u, z1[s].z[g]);
            z1[s].z[g] = hn::NegMulAdd(a1[s].at(g, ahead), v, z2[s].z[g]);
            z2[s].z[g] = hn::NegMulSub(a2[s].at(g, ahead), v, u);
            y = hn::Add(y, v);
        }
        return y;
    }
};

/// A slice of `groups` vectors of lanes through a filter, from the rows or from frames of lanes to
/// the rows or to frames.
template <template <typename, int, bool> class Filter, bool fromRows, bool toRows, typename T,
          int groups, bool moves>
HWY_INLINE void pass(const DecayRun<T>& run, int first, int lane)
{
    using V = hn::Vec<Lanes<T>>;
    constexpr int width = kWidth<T>;
    const Lanes<T> d;
    Filter<T, groups, moves> filter;
    filter.load(run, first, lane);
    for (int at = 0; at < run.frames; at += width) {
        const auto frame = [&](int k, int g) HWY_ATTR {
            return run.lanes + (at + k) * run.count + lane + g * width;
        };
        const auto ahead = [&](int k) HWY_ATTR {
            return hn::Set(d, T(kSubBlock - 1 - run.phase - at - k));
        };
        V v[groups][width];
        for (int g = 0; g < groups; ++g) {
            for (int k = 0; k < width; ++k)
                v[g][k] = fromRows ? hn::LoadU(d, run.in[lane + g * width + k] + at)
                                   : hn::Load(d, frame(k, g));
            if (fromRows) turn<T>(v[g]);
        }
        if (run.frames - at >= width) {
            for (int k = 0; k < width; ++k)
                for (int g = 0; g < groups; ++g) v[g][k] = filter.next(g, v[g][k], ahead(k));
        } else {  // through memory: registers have no index
            for (int g = 0; g < groups; ++g)
                for (int k = 0; k < width; ++k) hn::Store(v[g][k], d, frame(k, g));
            for (int k = 0; k < run.frames - at; ++k)
                for (int g = 0; g < groups; ++g)
                    hn::Store(filter.next(g, hn::Load(d, frame(k, g)), ahead(k)), d, frame(k, g));
            for (int g = 0; g < groups; ++g)
                for (int k = 0; k < width; ++k) v[g][k] = hn::Load(d, frame(k, g));
        }
        for (int g = 0; g < groups; ++g) {
            if (toRows) turn<T>(v[g]);
            for (int k = 0; k < width; ++k) {
                if (toRows)
                    hn::StoreU(v[g][k], d, run.out[lane + g * width + k] + at);
                else
                    hn::Store(v[g][k], d, frame(k, g));
            }
        }
    }
    filter.store(run, first, lane);
}

template <typename T, int groups, bool moves>
HWY_INLINE void passes(const DecayRun<T>& run, int lane)
{
    if (run.peaks == 0) return pass<Shelves, true, true, T, groups, moves>(run, 0, lane);
    pass<Shelves, true, false, T, groups, moves>(run, 0, lane);
    int s = DecaySections::kShelves;
    for (; s < run.peaks; s += 2) pass<PeakPair, false, false, T, groups, moves>(run, s, lane);
    pass<PeakPair, false, true, T, groups, moves>(run, s, lane);
}

template <typename T, bool moves> HWY_INLINE void runPasses(const DecayRun<T>& run)
{
    constexpr int width = kWidth<T>;
    int lane = 0;
    for (; lane + 2 * width <= run.count; lane += 2 * width) passes<T, 2, moves>(run, lane);
    for (; lane < run.count; lane += width) passes<T, 1, moves>(run, lane);
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
    if (run.moves)
        runPasses<T, true>(run);
    else
        runPasses<T, false>(run);
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
