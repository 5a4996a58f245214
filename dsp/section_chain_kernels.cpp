// SPDX-License-Identifier: ISC
#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/section_chain_kernels.cpp"
#include "dsp/simd.h"
//
#include "dsp/lanes-inl.h"
#include "dsp/section_chain_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_SCALAR

template <typename T> constexpr int kMostSections = 1 << 20;

template <typename T> void runChain(const SectionRun<T>& run)
{
    for (int lane = 0; lane < 2 * run.count; ++lane) {
        T* const x = run.channel[lane % 2];
        if (!x) continue;
        SectionState<T> state{run.z1[lane], run.z2[lane]};
        SectionCoefficients<T> c{run.to[0][lane], run.to[1][lane], run.to[2][lane],
                                 run.to[3][lane], run.to[4][lane], run.to[5][lane]};
        for (int i = 0; i < run.frames; ++i) {
            if (run.moves) {
                const T left = T(kSubBlock - 1 - run.phase - i);
                const auto at = [&](int k) { return run.to[k][lane] - run.step[k][lane] * left; };
                c = {at(0), at(1), at(2), at(3), at(4), at(5)};
            }
            x[i] = state.next(c, x[i]);
        }
        run.z1[lane] = state.z1;
        run.z2[lane] = state.z2;
    }
}

template <typename T> void runAbreast(const SectionAbreast<T>& abreast)
{
    SectionRun<T> run;
    std::copy_n(abreast.to, 6, run.to);
    std::copy_n(abreast.step, 6, run.step);
    run.count = 1;
    run.frames = abreast.frames;
    run.phase = abreast.phase;
    run.moves = abreast.moves;
    for (int c = 0; c < abreast.channels; c += 2) {
        run.z1 = abreast.z1 + c / 2 * abreast.pairStride;
        run.z2 = abreast.z2 + c / 2 * abreast.pairStride;
        run.channel[0] = abreast.channel[c];
        run.channel[1] = c + 1 < abreast.channels ? abreast.channel[c + 1] : nullptr;
        runChain(run);
    }
}

#else

namespace hn = hwy::HWY_NAMESPACE;

constexpr int kVectors = 4;  // at most, per pass
/// Lanes: in two vectors of 8 floats six sections are faster than in one of 16, whose way from lane
/// to lane is longer.
constexpr int kWidest = 8;

template <typename T>
constexpr int
    kMostSections = kVectors* static_cast<int>(hn::MaxLanes(hn::CappedTag<T, kWidest>())) / 2;

/// A chain that fills `vectors` vectors of D, over one slice of one pair.
template <class D, int vectors, bool moves> class Pass {
    using T = hn::TFromD<D>;
    using V = hn::Vec<D>;
    using Lanes = PairLanes<D>;
    static constexpr int kLanes = Lanes::kLanes;
    static constexpr int kSections = vectors * kLanes / 2;
    // Interleaved samples of a slice, and of the steps behind it.
    static constexpr int kBuffer = 2 * (kSubBlock + kSections) + kLanes;

public:
    HWY_INLINE explicit Pass(const SectionRun<T>& run)
        : run_(run),
          isInput_(hn::FirstN(D(), 2)),
          turn_(Lanes::turn(kLanes - 2)),
          lastTurn_(Lanes::turn(2 * run.count - 2 - (vectors - 1) * kLanes))
    {
        const D d;
        for (int v = 0; v < vectors; ++v) {
            const int at = v * kLanes;
            z1_[v] = hn::LoadU(d, run.z1 + at);
            z2_[v] = hn::LoadU(d, run.z2 + at);
            for (int k = 0; k < 6; ++k) {
                to_[k][v] = hn::LoadU(d, run.to[k] + at);
                if (moves) step_[k][v] = hn::LoadU(d, run.step[k] + at);
            }
            // Lane 2 s + c is s samples behind the first lane.
            position_[v] = hn::Neg(Lanes::filter(v));
            given_[v] = hn::Zero(d);
        }
    }

    HWY_INLINE void run()
    {
        const int n = run_.frames, delay = run_.count - 1;
        HWY_ALIGN T in[kBuffer];
        HWY_ALIGN T out[kBuffer];
        interleave(in, n, delay);
        const int filled = HWY_MIN(delay, n);
        int t = 0;
        for (; t < filled; ++t) step<true>(in + 2 * t, out + 2 * t);
        for (; t < n; ++t) step<false>(in + 2 * t, out + 2 * t);
        for (; t < n + delay; ++t) step<true>(in + 2 * t, out + 2 * t);
        const T* const result = out + 2 * delay;
        T *const left = run_.channel[0], *const right = run_.channel[1];
        for (int i = 0; i < n; ++i) left[i] = result[2 * i];
        if (right)
            for (int i = 0; i < n; ++i) right[i] = result[2 * i + 1];
        save();
    }

private:
    HWY_INLINE void interleave(T* in, int n, int delay) const
    {
        const T *const left = run_.channel[0], *const right = run_.channel[1];
        if (right) {
            for (int i = 0; i < n; ++i) in[2 * i] = left[i], in[2 * i + 1] = right[i];
        } else {
            for (int i = 0; i < n; ++i) in[2 * i] = left[i], in[2 * i + 1] = 0;
        }
        for (int i = 2 * n; i < 2 * (n + delay) + kLanes; ++i) in[i] = 0;
    }

    /// A sample enters the first section, and one leaves the last.
    template <bool masked> HWY_INLINE void step(const T* in, T* out)
    {
        const D d;
        V x[vectors];
        x[0] = hn::IfThenElse(isInput_, Lanes::load(in), given_[0]);
        for (int v = 1; v < vectors; ++v) x[v] = hn::IfThenElse(isInput_, given_[v - 1], given_[v]);
        for (int v = 0; v < vectors; ++v) {
            // The term in x comes last: the way from lane to lane limits the speed.
            const V y =
                hn::MulAdd(at(5, v), x[v], hn::MulAdd(at(4, v), z2_[v], hn::Mul(at(3, v), z1_[v])));
            const V u = hn::Sub(x[v], z2_[v]);
            const V b1 = at(1, v);
            const V next1 = hn::Add(z1_[v], hn::MulSub(b1, u, hn::Mul(at(0, v), z1_[v])));
            const V next2 = hn::Add(z2_[v], hn::MulAdd(at(2, v), u, hn::Mul(b1, z1_[v])));
            if (masked) {
                // Before its first sample and behind its last a section rests.
                const auto runs = hn::And(hn::Ge(position_[v], hn::Zero(d)),
                                          hn::Lt(position_[v], hn::Set(d, T(run_.frames))));
                z1_[v] = hn::IfThenElse(runs, next1, z1_[v]);
                z2_[v] = hn::IfThenElse(runs, next2, z2_[v]);
            } else {
                z1_[v] = next1;
                z2_[v] = next2;
            }
            position_[v] = hn::Add(position_[v], hn::Set(d, T(1)));
            given_[v] = Lanes::turned(y, v == vectors - 1 ? lastTurn_ : turn_);
        }
        Lanes::store(given_[vectors - 1], out);
    }

    HWY_INLINE V at(int k, int v) const
    {
        if (!moves) return to_[k][v];
        const V left = hn::Sub(hn::Set(D(), T(kSubBlock - 1 - run_.phase)), position_[v]);
        return hn::NegMulAdd(step_[k][v], left, to_[k][v]);
    }

    HWY_INLINE void save() const
    {
        const D d;
        const int lanes = 2 * run_.count;
        for (int v = 0; v < vectors; ++v) {
            const auto mine = hn::FirstN(d, static_cast<std::size_t>(lanes - v * kLanes));
            hn::BlendedStore(z1_[v], mine, d, run_.z1 + v * kLanes);
            hn::BlendedStore(z2_[v], mine, d, run_.z2 + v * kLanes);
        }
    }

    const SectionRun<T>& run_;
    hn::Mask<D> isInput_;
    typename Lanes::Table turn_, lastTurn_;
    V z1_[vectors], z2_[vectors], given_[vectors], position_[vectors];
    V to_[6][vectors], step_[6][moves ? vectors : 1];
};

template <class D, int vectors, typename T> HWY_INLINE void runPass(const SectionRun<T>& run)
{
    if (run.moves)
        Pass<D, vectors, true>(run).run();
    else
        Pass<D, vectors, false>(run).run();
}

/// In the narrowest vectors that hold the chain, or in several of the widest.
template <typename T> void runChain(const SectionRun<T>& run)
{
    using Widest = hn::CappedTag<T, kWidest>;
    constexpr int widest = static_cast<int>(hn::MaxLanes(Widest()));
    const int lanes = 2 * run.count;
    if constexpr (widest > 4)
        if (lanes <= 4) return runPass<hn::CappedTag<T, 4>, 1>(run);
    switch ((lanes + widest - 1) / widest) {
    case 1:
        return runPass<Widest, 1>(run);
    case 2:
        return runPass<Widest, 2>(run);
    case 3:
        return runPass<Widest, 3>(run);
    default:
        return runPass<Widest, 4>(run);
    }
}

/// Sections of several pairs in one loop: what one waits for, others fill. Four lanes hold two
/// pairs, two lanes one. The same operations as in a Pass, so the same bits.
template <class D, int vectors, bool moves> class Abreast {
    using T = hn::TFromD<D>;
    using V = hn::Vec<D>;
    static constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

public:
    static constexpr int kChannels = vectors * kLanes;

    /// From channel `first` on.
    HWY_INLINE Abreast(const SectionAbreast<T>& run, int first) : run_(run), first_(first)
    {
        const D d;
        HWY_ALIGN T row[kLanes];
        for (int k = 0; k < 6; ++k) {
            for (int i = 0; i < kLanes; ++i) row[i] = run.to[k][i % 2];
            to_[k] = hn::Load(d, row);
            for (int i = 0; i < kLanes; ++i) row[i] = run.step[k][i % 2];
            step_[k] = hn::Load(d, row);
        }
        for (int c = 0; c < kChannels; ++c) {
            T* const there = first + c < run.channels ? run.channel[first + c] : nullptr;
            channel_[c] = there ? there : spare_;
        }
        for (int i = 0; i < run.frames; ++i) spare_[i] = 0;
    }

    HWY_INLINE void run()
    {
        const D d;
        const int n = run_.frames;
        HWY_ALIGN T x[kSubBlock * kChannels];  // frame by frame
        interleave(x, n);
        V z1[vectors], z2[vectors];
        load(run_.z1, z1);
        load(run_.z2, z2);
        for (int i = 0; i < n; ++i) {
            V c[6];
            for (int k = 0; k < 6; ++k) c[k] = at(k, i);
            for (int v = 0; v < vectors; ++v) {
                T* const place = x + i * kChannels + v * kLanes;
                const V in = hn::Load(d, place);
                const V y = hn::MulAdd(c[5], in, hn::MulAdd(c[4], z2[v], hn::Mul(c[3], z1[v])));
                const V u = hn::Sub(in, z2[v]);
                const V next1 = hn::Add(z1[v], hn::MulSub(c[1], u, hn::Mul(c[0], z1[v])));
                z2[v] = hn::Add(z2[v], hn::MulAdd(c[2], u, hn::Mul(c[1], z1[v])));
                z1[v] = next1;
                hn::Store(y, d, place);
            }
        }
        separate(x, n);
        save(z1, run_.z1);
        save(z2, run_.z2);
    }

private:
    HWY_INLINE std::ptrdiff_t placeOf(int c) const
    {
        return (first_ + c) / 2 * run_.pairStride + c % 2;
    }
    HWY_INLINE void load(const T* states, V* z) const
    {
        HWY_ALIGN T row[kChannels];
        for (int c = 0; c < kChannels; ++c)
            row[c] = first_ + c < run_.channels ? states[placeOf(c)] : T(0);
        for (int v = 0; v < vectors; ++v) z[v] = hn::Load(D(), row + v * kLanes);
    }
    HWY_INLINE void save(const V* z, T* states) const
    {
        HWY_ALIGN T row[kChannels];
        for (int v = 0; v < vectors; ++v) hn::Store(z[v], D(), row + v * kLanes);
        for (int c = 0; c < kChannels && first_ + c < run_.channels; ++c)
            states[placeOf(c)] = row[c];
    }
    HWY_INLINE void interleave(T* x, int n) const
    {
        int i = 0;
        if constexpr (kLanes == 4) {
            const D d;
            for (; i + 4 <= n; i += 4)
                for (int v = 0; v < vectors; ++v) {
                    T* const* const c = channel_ + 4 * v;
                    HWY_ALIGN T four[16];
                    hn::StoreInterleaved4(hn::LoadU(d, c[0] + i), hn::LoadU(d, c[1] + i),
                                          hn::LoadU(d, c[2] + i), hn::LoadU(d, c[3] + i), d, four);
                    for (int k = 0; k < 4; ++k)
                        hn::Store(hn::Load(d, four + 4 * k), d, x + (i + k) * kChannels + 4 * v);
                }
        }
        for (; i < n; ++i)
            for (int c = 0; c < kChannels; ++c) x[i * kChannels + c] = channel_[c][i];
    }
    HWY_INLINE void separate(const T* x, int n) const
    {
        int i = 0;
        if constexpr (kLanes == 4) {
            const D d;
            for (; i + 4 <= n; i += 4)
                for (int v = 0; v < vectors; ++v) {
                    T* const* const c = channel_ + 4 * v;
                    HWY_ALIGN T four[16];
                    for (int k = 0; k < 4; ++k)
                        hn::Store(hn::Load(d, x + (i + k) * kChannels + 4 * v), d, four + 4 * k);
                    V a, b, e, f;
                    hn::LoadInterleaved4(d, four, a, b, e, f);
                    hn::StoreU(a, d, c[0] + i);
                    hn::StoreU(b, d, c[1] + i);
                    hn::StoreU(e, d, c[2] + i);
                    hn::StoreU(f, d, c[3] + i);
                }
        }
        for (; i < n; ++i)
            for (int c = 0; c < kChannels; ++c) channel_[c][i] = x[i * kChannels + c];
    }
    HWY_INLINE V at(int k, int i) const
    {
        if (!moves) return to_[k];
        const V left = hn::Set(D(), T(kSubBlock - 1 - run_.phase - i));
        return hn::NegMulAdd(step_[k], left, to_[k]);
    }

    const SectionAbreast<T>& run_;
    int first_;
    V to_[6], step_[6];
    T* channel_[kChannels];
    HWY_ALIGN T spare_[kSubBlock];  // of channels that are not there
};

template <class D, int vectors, typename T>
HWY_INLINE int abreastFrom(const SectionAbreast<T>& run, int first)
{
    if (run.moves)
        Abreast<D, vectors, true>(run, first).run();
    else
        Abreast<D, vectors, false>(run, first).run();
    return first + Abreast<D, vectors, false>::kChannels;
}

template <typename T> void runAbreast(const SectionAbreast<T>& run)
{
    using D = hn::CappedTag<T, 4>;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(D()));
    for (int first = 0; first < run.channels;) {
        const int left = run.channels - first;
        first = left > 2 * lanes ? abreastFrom<D, 4>(run, first)
                : left > lanes   ? abreastFrom<D, 2>(run, first)
                                 : abreastFrom<D, 1>(run, first);
    }
}

#endif

template <typename T>
constexpr SectionKernel<T> kKernel{runChain<T>, kMostSections<T>, runAbreast<T>};

const SectionKernel<float>* floatKernel()
{
    return &kKernel<float>;
}
const SectionKernel<double>* doubleKernel()
{
    return &kKernel<double>;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(floatKernel);
HWY_EXPORT(doubleKernel);

}  // namespace

template <> const SectionKernel<float>* sectionKernel<float>(int permitted)
{
    const auto kernel = SIMD_CHOOSE(floatKernel, permitted);
    return kernel ? kernel() : nullptr;
}
template <> const SectionKernel<double>* sectionKernel<double>(int permitted)
{
    const auto kernel = SIMD_CHOOSE(doubleKernel, permitted);
    return kernel ? kernel() : nullptr;
}

}  // namespace quillworks
#endif
