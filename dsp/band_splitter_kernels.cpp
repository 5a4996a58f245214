// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/band_splitter_kernels.cpp"
#include "dsp/simd.h"
//
#include "dsp/band_splitter_kernels.h"
#include "dsp/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

// A section with Q = sqrt(1/2), k = 1/Q, gives from its states, with those of the input last:
//
//     low-pass  (b1/2 z1 + (1 - b2/2) z2) + b2/2 x
//     all-pass  ((2 b1 - 2 k + k b2) z1 + k b1 z2) + (1 - k b1) x
//
// b1 = 2 a2, b2 = 2 a3 of its trapezoidal form, a1 = 1 - k a2 - a3.
constexpr double kDamping = 1 / kButterworthQ;

#if HWY_TARGET == HWY_SCALAR

template <typename T> struct Weights {
    SectionCoefficients<T> low, pass;

    Weights(const T* const* to, const T* const* step, int lane, T left)
    {
        const T r = to[0][lane] - step[0][lane] * left, b1 = to[1][lane] - step[1][lane] * left,
                b2 = to[2][lane] - step[2][lane] * left, k = T(kDamping), half = T(0.5);
        low = {r, b1, b2, b1 * half, 1 - b2 * half, b2 * half};
        pass = {r, b1, b2, 2 * b1 - 2 * k + k * b2, k * b1, 1 - k * b1};
    }
};

template <typename T> void splitBands(const SplitRun<T>& run)
{
    for (int side = 0; side < 2; ++side)
        for (int i = 0; i < run.frames; ++i) {
            T x = run.channel[side] ? run.channel[side][i] : T(0);
            for (int s = 0; s < run.count; ++s) {
                const int lane = 2 * s + side;
                const Weights<T> w(run.to, run.step, lane, T(kSubBlock - 1 - run.phase - i));
                SectionState<T> first{run.z[0][lane], run.z[1][lane]};
                SectionState<T> second{run.z[2][lane], run.z[3][lane]};
                SectionState<T> same = first;
                const T low = second.next(w.low, same.next(w.low, x));
                x = first.next(w.pass, x) - low;
                run.band[lane * run.stride + i] = low;
                run.z[0][lane] = first.z1, run.z[1][lane] = first.z2;
                run.z[2][lane] = second.z1, run.z[3][lane] = second.z2;
            }
            run.band[(2 * run.count + side) * run.stride + i] = x;
        }
}

template <typename T> void joinBands(const JoinRun<T>& run)
{
    for (int side = 0; side < 2; ++side)
        for (int i = 0; i < run.frames; ++i) {
            T y = 0;
            for (int j = 0; j < run.count; ++j) {
                const int lane = 2 * j + side;
                const Weights<T> w(run.to, run.step, lane, T(kSubBlock - 1 - run.phase - i));
                SectionState<T> state{run.z[0][lane], run.z[1][lane]};
                y = state.next(w.pass, y + run.band[lane * run.stride + i]);
                run.z[0][lane] = state.z1, run.z[1][lane] = state.z2;
            }
            if (run.channel[side]) run.channel[side][i] = y;
        }
}

#else

namespace hn = hwy::HWY_NAMESPACE;

constexpr int kWidest = 32;  // bytes of a vector: all splits of a pair in floats

/// What both passes have in common: one filter per pair of lanes, one sample further on than the
/// next, in `vectors` vectors of D.
template <class D, int vectors, bool moves> class Lanes {
protected:
    using T = hn::TFromD<D>;
    using V = hn::Vec<D>;
    using Pair = PairLanes<D>;
    static constexpr int kLanes = Pair::kLanes;
    static constexpr int kDelay = vectors * kLanes / 2 - 1;  // of the last filter, at most
    // Steps of a slice, in whole vectors.
    static constexpr int kSteps = (kSubBlock + kDelay + kLanes - 1) / kLanes * kLanes;

    HWY_INLINE Lanes(const T* const* to, const T* const* step, int count, int frames, int phase)
        : frames_(frames),
          delay_(count - 1),
          phase_(phase),
          turn_(Pair::turn(kLanes - 2)),
          lastTurn_(Pair::turn(2 * count - 2 - (vectors - 1) * kLanes))
    {
        const D d;
        for (int v = 0; v < vectors; ++v) {
            for (int k = 0; k < 3; ++k) {
                to_[k][v] = hn::LoadU(d, to[k] + v * kLanes);
                if (moves) step_[k][v] = hn::LoadU(d, step[k] + v * kLanes);
            }
            position_[v] = hn::Neg(Pair::filter(v));
            given_[v] = hn::Zero(d);
        }
    }

    /// r, b1 or b2 at the lanes' samples.
    HWY_INLINE V at(int k, int v) const
    {
        if (!moves) return to_[k][v];
        const V left = hn::Sub(hn::Set(D(), T(kSubBlock - 1 - phase_)), position_[v]);
        return hn::NegMulAdd(step_[k][v], left, to_[k][v]);
    }
    /// Moves a section's states on; before its first sample and behind its last it rests.
    template <bool masked> HWY_INLINE void follow(V x, V& z1, V& z2, int v) const
    {
        const V r = at(0, v), b1 = at(1, v), b2 = at(2, v);
        const V u = hn::Sub(x, z2);
        const V next1 = hn::Add(z1, hn::MulSub(b1, u, hn::Mul(r, z1)));
        const V next2 = hn::Add(z2, hn::MulAdd(b2, u, hn::Mul(b1, z1)));
        if (masked) {
            const auto runs = hn::And(hn::Ge(position_[v], hn::Zero(D())),
                                      hn::Lt(position_[v], hn::Set(D(), T(frames_))));
            z1 = hn::IfThenElse(runs, next1, z1);
            z2 = hn::IfThenElse(runs, next2, z2);
        } else {
            z1 = next1;
            z2 = next2;
        }
    }
    /// The outputs y go to the filters behind.
    HWY_INLINE void pass(V y, int v)
    {
        position_[v] = hn::Add(position_[v], hn::Set(D(), T(1)));
        given_[v] = Pair::turned(y, v == vectors - 1 ? lastTurn_ : turn_);
    }
    /// Calls step(t, buffers) for all steps: those in the middle, where no lane rests, are not
    /// `masked`. (The buffers are no members: what is stored there could be a state then, and the
    /// states would not stay in registers.)
    template <class Pass, class Buffers>
    static HWY_INLINE void runSteps(Pass& pass, Buffers& buffers)
    {
        const int filled = HWY_MIN(pass.delay_, pass.frames_);
        int t = 0;
        for (; t < filled; ++t) pass.template step<true>(t, buffers);
        for (; t < pass.frames_; ++t) pass.template step<false>(t, buffers);
        for (; t < pass.frames_ + pass.delay_; ++t) pass.template step<true>(t, buffers);
    }
    static HWY_INLINE void save(const V* z, T* row)
    {
        for (int v = 0; v < vectors; ++v) hn::StoreU(z[v], D(), row + v * kLanes);
    }
    static HWY_INLINE void separate(const T* pairs, T* left, T* right, int n)
    {
        for (int i = 0; i < n; ++i) left[i] = pairs[2 * i];
        if (right)
            for (int i = 0; i < n; ++i) right[i] = pairs[2 * i + 1];
    }

    int frames_, delay_, phase_;
    typename Pair::Table turn_, lastTurn_;
    V position_[vectors], given_[vectors];
    V to_[3][vectors], step_[3][moves ? vectors : 1];
};

template <class D, int vectors, bool moves> class SplitPass : Lanes<D, vectors, moves> {
    using Base = Lanes<D, vectors, moves>;
    friend Base;
    using Base::at, Base::frames_, Base::delay_, Base::given_;
    using Base::kLanes, Base::kDelay, Base::kSteps;
    using typename Base::Pair;
    using typename Base::T;
    using typename Base::V;

public:
    HWY_INLINE explicit SplitPass(const SplitRun<T>& run)
        : Base(run.to, run.step, run.count, run.frames, run.phase),
          run_(run),
          isInput_(hn::FirstN(D(), 2))
    {
        for (int v = 0; v < vectors; ++v)
            for (int k = 0; k < 4; ++k) z_[k][v] = hn::LoadU(D(), run.z[k] + v * kLanes);
    }

    HWY_INLINE void run()
    {
        Buffers b;
        interleave(b.in);
        Base::runSteps(*this, b);
        for (int k = 0; k < 4; ++k) Base::save(z_[k], run_.z[k]);
        spread(b.low);
        T* const last = run_.band + 2 * run_.count * run_.stride;
        Base::separate(b.rest + 2 * delay_, last, last + run_.stride, frames_);
    }

private:
    struct Buffers {
        HWY_ALIGN T in[2 * (kSubBlock + kDelay) + kLanes];
        HWY_ALIGN T rest[2 * (kSubBlock + kDelay) + kLanes];
        HWY_ALIGN T low[kSteps * vectors * kLanes];
    };

    HWY_INLINE void interleave(T* in) const
    {
        const T *const left = run_.channel[0], *const right = run_.channel[1];
        const int n = frames_;
        if (right) {
            for (int i = 0; i < n; ++i) in[2 * i] = left[i], in[2 * i + 1] = right[i];
        } else {
            for (int i = 0; i < n; ++i) in[2 * i] = left[i], in[2 * i + 1] = 0;
        }
        for (int i = 2 * n; i < 2 * (n + delay_) + kLanes; ++i) in[i] = 0;
    }

    template <bool masked> HWY_INLINE void step(int t, Buffers& b)
    {
        const D d;
        const V half = hn::Set(d, T(0.5)), one = hn::Set(d, T(1)), k = hn::Set(d, T(kDamping));
        V x[vectors];
        x[0] = hn::IfThenElse(isInput_, Pair::load(b.in + 2 * t), given_[0]);
        for (int v = 1; v < vectors; ++v) x[v] = hn::IfThenElse(isInput_, given_[v - 1], given_[v]);
        for (int v = 0; v < vectors; ++v) {
            V &z1 = z_[0][v], &z2 = z_[1][v], &z3 = z_[2][v], &z4 = z_[3][v];
            const V b1 = at(1, v), b2 = at(2, v);
            const V low1 = hn::Mul(b1, half), lowX = hn::Mul(b2, half), low2 = hn::Sub(one, lowX);
            const V kb1 = hn::Mul(k, b1);
            const V pass1 = hn::Add(hn::Add(b1, b1), hn::Mul(k, hn::Sub(b2, hn::Set(d, T(2)))));
            // The terms in x come last: the way from lane to lane is what limits the speed.
            const V lowPass = hn::MulAdd(low1, z1, hn::Mul(low2, z2));
            const V allPass = hn::MulAdd(pass1, z1, hn::Mul(kb1, z2));
            const V twice = hn::MulAdd(lowX, lowPass, hn::MulAdd(low1, z3, hn::Mul(low2, z4)));
            const V twiceX = hn::Mul(lowX, lowX);
            const V restX = hn::Sub(hn::Sub(one, kb1), twiceX);
            const V rest = hn::MulAdd(restX, x[v], hn::Sub(allPass, twice));
            const V low = hn::MulAdd(twiceX, x[v], twice);
            const V between = hn::MulAdd(lowX, x[v], lowPass);
            Base::template follow<masked>(between, z3, z4, v);
            Base::template follow<masked>(x[v], z1, z2, v);
            hn::Store(low, d, b.low + (t * vectors + v) * kLanes);
            Base::pass(rest, v);
        }
        Pair::store(given_[vectors - 1], b.rest + 2 * t);
    }

    /// From lanes, which are a sample apart from split to split, to the rows of the bands.
    HWY_INLINE void spread(const T* low) const
    {
        const D d;
        for (int t = 0; t < frames_ + delay_; t += kLanes)
            for (int v = 0; v < vectors; ++v) {
                V w[kLanes];
                for (int i = 0; i < kLanes; ++i)
                    w[i] = hn::Load(d, low + ((t + i) * vectors + v) * kLanes);
                transpose(d, w);
                for (int i = 0; i < kLanes; ++i) {
                    const int lane = v * kLanes + i;
                    hn::StoreU(w[i], d, run_.band + lane * run_.stride + t - lane / 2);
                }
            }
    }

    const SplitRun<T>& run_;
    hn::Mask<D> isInput_;
    V z_[4][vectors];
};

template <class D, int vectors, bool moves> class JoinPass : Lanes<D, vectors, moves> {
    using Base = Lanes<D, vectors, moves>;
    friend Base;
    using Base::at, Base::frames_, Base::delay_, Base::given_;
    using Base::kLanes, Base::kDelay, Base::kSteps;
    using typename Base::Pair;
    using typename Base::T;
    using typename Base::V;

public:
    HWY_INLINE explicit JoinPass(const JoinRun<T>& run)
        : Base(run.to, run.step, run.count, run.frames, run.phase),
          run_(run),
          isBehind_(hn::Not(hn::FirstN(D(), 2)))
    {
        for (int v = 0; v < vectors; ++v)
            for (int k = 0; k < 2; ++k) z_[k][v] = hn::LoadU(D(), run.z[k] + v * kLanes);
    }

    HWY_INLINE void run()
    {
        Buffers b;
        gather(b.in);
        Base::runSteps(*this, b);
        for (int k = 0; k < 2; ++k) Base::save(z_[k], run_.z[k]);
        Base::separate(b.sum + 2 * delay_, run_.channel[0], run_.channel[1], frames_);
    }

private:
    struct Buffers {
        HWY_ALIGN T in[kSteps * vectors * kLanes];
        HWY_ALIGN T sum[2 * (kSubBlock + kDelay) + kLanes];
    };

    /// From the rows of the bands to lanes, a sample apart from all-pass to all-pass.
    HWY_INLINE void gather(T* in) const
    {
        const D d;
        for (int t = 0; t < frames_ + delay_; t += kLanes)
            for (int v = 0; v < vectors; ++v) {
                V w[kLanes];
                for (int i = 0; i < kLanes; ++i) {
                    const int lane = v * kLanes + i;
                    w[i] = hn::LoadU(d, run_.band + lane * run_.stride + t - lane / 2);
                }
                transpose(d, w);
                for (int i = 0; i < kLanes; ++i)
                    hn::Store(w[i], d, in + ((t + i) * vectors + v) * kLanes);
            }
    }

    template <bool masked> HWY_INLINE void step(int t, Buffers& b)
    {
        const D d;
        const V one = hn::Set(d, T(1)), k = hn::Set(d, T(kDamping));
        V x[vectors];
        for (int v = 0; v < vectors; ++v) {
            V below = hn::IfThenElseZero(isBehind_, given_[v]);
            if (v > 0) below = hn::IfThenElse(isBehind_, given_[v], given_[v - 1]);
            x[v] = hn::Add(hn::Load(d, b.in + (t * vectors + v) * kLanes), below);
        }
        for (int v = 0; v < vectors; ++v) {
            V &z1 = z_[0][v], &z2 = z_[1][v];
            const V b1 = at(1, v), b2 = at(2, v), kb1 = hn::Mul(k, b1);
            const V pass1 = hn::Add(hn::Add(b1, b1), hn::Mul(k, hn::Sub(b2, hn::Set(d, T(2)))));
            const V y =
                hn::MulAdd(hn::Sub(one, kb1), x[v], hn::MulAdd(pass1, z1, hn::Mul(kb1, z2)));
            Base::template follow<masked>(x[v], z1, z2, v);
            Base::pass(y, v);
        }
        Pair::store(given_[vectors - 1], b.sum + 2 * t);
    }

    const JoinRun<T>& run_;
    hn::Mask<D> isBehind_;
    V z_[2][vectors];
};

template <template <class, int, bool> class Pass, class D, int vectors, class Run>
HWY_INLINE void runPass(const Run& run)
{
    if (run.moves)
        Pass<D, vectors, true>(run).run();
    else
        Pass<D, vectors, false>(run).run();
}

/// In the narrowest vectors that hold all filters.
template <template <class, int, bool> class Pass, typename T, class Run>
HWY_INLINE void runLanes(const Run& run)
{
    using Narrow = hn::CappedTag<T, 16 / sizeof(T)>;
    using Wide = hn::CappedTag<T, kWidest / sizeof(T)>;
    constexpr int narrow = static_cast<int>(hn::MaxLanes(Narrow()));
    constexpr int wide = static_cast<int>(hn::MaxLanes(Wide()));
    const int lanes = 2 * run.count;
    if (lanes <= narrow) return runPass<Pass, Narrow, 1>(run);
    if constexpr (wide == 8) {
        runPass<Pass, Wide, 1>(run);
    } else if constexpr (wide == 4) {
        if (wide > narrow && lanes <= wide) return runPass<Pass, Wide, 1>(run);
        runPass<Pass, Wide, 2>(run);
    } else {
        if (lanes == 4) return runPass<Pass, Wide, 2>(run);
        if (lanes == 6) return runPass<Pass, Wide, 3>(run);
        runPass<Pass, Wide, 4>(run);
    }
}

template <typename T> void splitBands(const SplitRun<T>& run)
{
    runLanes<SplitPass, T>(run);
}

template <typename T> void joinBands(const JoinRun<T>& run)
{
    runLanes<JoinPass, T>(run);
}

#endif

template <typename T> constexpr BandKernels<T> kKernels{splitBands<T>, joinBands<T>};

const BandKernels<float>* floatKernels()
{
    return &kKernels<float>;
}
const BandKernels<double>* doubleKernels()
{
    return &kKernels<double>;
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

template <> const BandKernels<float>* bandKernels<float>(int permitted)
{
    const auto kernels = SIMD_CHOOSE(floatKernels, permitted);
    return kernels ? kernels() : nullptr;
}
template <> const BandKernels<double>* bandKernels<double>(int permitted)
{
    const auto kernels = SIMD_CHOOSE(doubleKernels, permitted);
    return kernels ? kernels() : nullptr;
}

}  // namespace quillworks
#endif
