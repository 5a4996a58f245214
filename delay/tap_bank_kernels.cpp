// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "delay/tap_bank_kernels.cpp"
#include "dsp/simd.h"
//
#include "delay/tap_bank_kernels.h"
#include "dsp/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

#if HWY_TARGET == HWY_SCALAR

template <typename T> void runAll(const TapRun<T>& run)
{
    for (int tap = 0; tap < kBankTaps; ++tap) {
        if (!(run.taps >> tap & 1)) continue;
        T* const z = run.states + tap;
        SectionState<T> left{z[0], z[kBankTaps]}, right{z[2 * kBankTaps], z[3 * kBankTaps]};
        for (int i = 0; i < run.frames; ++i) {
            const T ahead = T(kSubBlock - 1 - run.phase - i);
            const auto at = [&](int k) {
                const int place = k * kBankTaps + tap;
                return run.moves ? run.to[place] - run.step[place] * ahead : run.to[place];
            };
            const SectionCoefficients<T> c{at(0), at(1), at(2), at(3), at(4), at(5)};
            const T l = run.left[tap][i], r = run.right[tap][i];
            const T own = at(6), other = 1 - own;
            const T yl = at(7) * left.next(c, own * l + other * r);
            const T yr = at(8) * right.next(c, own * r + other * l);
            run.sumLeft[i] += yl;
            run.sumRight[i] += yr;
            run.peaks[tap] = HWY_MAX(run.peaks[tap], HWY_MAX(std::abs(yl), std::abs(yr)));
        }
        z[0] = left.z1, z[kBankTaps] = left.z2;
        z[2 * kBankTaps] = right.z1, z[3 * kBankTaps] = right.z2;
    }
}

#else

namespace hn = hwy::HWY_NAMESPACE;

/// `groups` vectors of taps at a time: filters side by side hide each other's waiting.
template <class D, int groups, bool moves> class Pass {
    using T = hn::TFromD<D>;
    using V = hn::Vec<D>;
    static constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

public:
    HWY_INLINE Pass(const TapRun<T>& run, int firstTap) : run_(run), firstTap_(firstTap)
    {
        for (int g = 0; g < groups; ++g) {
            for (int k = 0; k < kBankValues; ++k) {
                to_[k][g] = hn::LoadU(D(), run.to + place(k, g));
                if (moves) step_[k][g] = hn::LoadU(D(), run.step + place(k, g));
            }
            for (int k = 0; k < 4; ++k) z_[k][g] = hn::LoadU(D(), run.states + place(k, g));
            peaks_[g] = hn::LoadU(D(), run.peaks + place(0, g));
        }
    }

    HWY_INLINE void run()
    {
        const D d;
        for (int at = 0; at < run_.frames; at += kLanes) {
            V left[groups][kLanes], right[groups][kLanes];
            for (int g = 0; g < groups; ++g) {
                for (int k = 0; k < kLanes; ++k) {
                    const int tap = firstTap_ + g * kLanes + k;
                    left[g][k] = hn::LoadU(d, run_.left[tap] + at);
                    right[g][k] = hn::LoadU(d, run_.right[tap] + at);
                }
                transpose(d, left[g]);
                transpose(d, right[g]);
            }
            const int steps = HWY_MIN(kLanes, run_.frames - at);
            if (steps == kLanes) {
                for (int i = 0; i < kLanes; ++i) step(left, right, i, at + i);
            } else {
                for (int i = 0; i < steps; ++i) step(left, right, i, at + i);
            }
            addUp(left, run_.sumLeft + at);
            addUp(right, run_.sumRight + at);
        }
        for (int g = 0; g < groups; ++g) {
            for (int k = 0; k < 4; ++k) hn::StoreU(z_[k][g], d, run_.states + place(k, g));
            hn::StoreU(peaks_[g], d, run_.peaks + place(0, g));
        }
    }

private:
    HWY_INLINE int place(int row, int g) const { return row * kBankTaps + firstTap_ + g * kLanes; }
    HWY_INLINE V value(int k, int g, V ahead) const
    {
        return moves ? hn::NegMulAdd(step_[k][g], ahead, to_[k][g]) : to_[k][g];
    }

    /// One sample of all taps: what was read becomes what is heard.
    HWY_INLINE void step(V (*left)[kLanes], V (*right)[kLanes], int i, int frame)
    {
        const D d;
        const V ahead = hn::Set(d, T(kSubBlock - 1 - run_.phase - frame));
        for (int g = 0; g < groups; ++g) {
            const V l = left[g][i], r = right[g][i];
            const V own = value(6, g, ahead), other = hn::Sub(hn::Set(d, T(1)), own);
            V x[2] = {hn::MulAdd(own, l, hn::Mul(other, r)), hn::MulAdd(own, r, hn::Mul(other, l))};
            for (int side = 0; side < 2; ++side) {
                V &z1 = z_[2 * side][g], &z2 = z_[2 * side + 1][g];
                const V y =
                    hn::MulAdd(value(5, g, ahead), x[side],
                               hn::MulAdd(value(4, g, ahead), z2, hn::Mul(value(3, g, ahead), z1)));
                // Two steps from sample to sample, which is what the loop waits for.
                const V u = hn::Sub(x[side], z2), b1 = value(1, g, ahead);
                const V kept1 = hn::NegMulAdd(value(0, g, ahead), z1, z1);
                const V kept2 = hn::MulAdd(b1, z1, z2);
                z1 = hn::MulAdd(b1, u, kept1);
                z2 = hn::MulAdd(value(2, g, ahead), u, kept2);
                x[side] = hn::Mul(value(7 + side, g, ahead), y);
            }
            left[g][i] = x[0];
            right[g][i] = x[1];
            peaks_[g] = hn::Max(peaks_[g], hn::Max(hn::Abs(x[0]), hn::Abs(x[1])));
        }
    }

    /// The taps of each sample, as many samples as there are lanes.
    static HWY_INLINE void addUp(V (*y)[kLanes], T* sum)
    {
        const D d;
        V total = hn::LoadU(d, sum);
        for (int g = 0; g < groups; ++g) {
            transpose(d, y[g]);
            for (int k = 0; k < kLanes; ++k) total = hn::Add(total, y[g][k]);
        }
        hn::StoreU(total, d, sum);
    }

    const TapRun<T>& run_;
    const int firstTap_;
    V to_[kBankValues][groups], step_[kBankValues][moves ? groups : 1];
    V z_[4][groups], peaks_[groups];
};

template <class D, int groups, typename T>
HWY_INLINE void runPass(const TapRun<T>& run, int firstTap)
{
    if (run.moves)
        Pass<D, groups, true>(run, firstTap).run();
    else
        Pass<D, groups, false>(run, firstTap).run();
}

template <typename T> void runAll(const TapRun<T>& run)
{
    using Widest = hn::CappedTag<T, 32 / sizeof(T)>;
    using Half = hn::CappedTag<T, kBankTaps / 2>;
    constexpr unsigned half = (1u << kBankTaps / 2) - 1;
    const bool first = run.taps & half, second = run.taps >> kBankTaps / 2 & half;
    if constexpr (hn::MaxLanes(Widest()) == kBankTaps)
        if (first && second) return runPass<Widest, 1>(run, 0);
    constexpr int groups = kBankTaps / 2 / static_cast<int>(hn::MaxLanes(Half()));
    if (first) runPass<Half, groups>(run, 0);
    if (second) runPass<Half, groups>(run, kBankTaps / 2);
}

#endif

void runFloats(const TapRun<float>& run)
{
    runAll(run);
}
void runDoubles(const TapRun<double>& run)
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

void runTaps(const TapRun<float>& run)
{
    chosenFloats(run);
}
void runTaps(const TapRun<double>& run)
{
    chosenDoubles(run);
}

}  // namespace quillworks
#endif
