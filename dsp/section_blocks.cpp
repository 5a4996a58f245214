// SPDX-License-Identifier: ISC
#include <algorithm>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/section_blocks.cpp"
#include "dsp/simd.h"
//
#include "dsp/section_blocks.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR

template <typename T> class Blocks {
    static constexpr int kFrames = SectionBlock<T>::kFrames, kRow = 2 * kFrames;

public:
    Blocks(const SectionBlock<T>& section, const T* z1, const T* z2)
        : section_(&section), z_{z1[0], z1[1], z2[0], z2[1]}
    {}
    void next(const T* in, T* out)
    {
        const auto& s = *section_;
        T z[4];
        for (int i = 0; i < kRow; ++i) {
            T y = s.fromState[0][i] * z_[i % 2] + s.fromState[1][i] * z_[2 + i % 2];
            for (int k = 0; k <= i / 2; ++k) y += s.toOutput[k][i] * in[2 * k + i % 2];
            out[i] = y;
        }
        for (int i = 0; i < 4; ++i) {
            T sum = s.change[0][i] * z_[i % 2] + s.change[1][i] * z_[2 + i % 2];
            for (int k = 0; k < kFrames; ++k) sum += s.toState[k][i] * in[2 * k + i % 2];
            z[i] = z_[i] + sum;
        }
        std::copy_n(z, 4, z_);
    }
    void save(T* z1, T* z2) const
    {
        std::copy_n(z_, 2, z1);
        std::copy_n(z_ + 2, 2, z2);
    }
    static void interleave(const T* left, const T* right, T* pairs)
    {
        for (int i = 0; i < kFrames; ++i) pairs[2 * i] = left[i], pairs[2 * i + 1] = right[i];
    }
    static void separate(const T* pairs, T* left, T* right)
    {
        for (int i = 0; i < kFrames; ++i) left[i] = pairs[2 * i], right[i] = pairs[2 * i + 1];
    }

private:
    const SectionBlock<T>* section_;
    T z_[4];
};

#else

/// Two samples, over and over.
template <class D> HWY_INLINE hn::Vec<D> pairAt(D d, const float* p)
{
    const hn::Repartition<std::uint64_t, D> wide;
    std::uint64_t bits;
    std::memcpy(&bits, p, sizeof bits);
    return hn::BitCast(d, hn::Set(wide, bits));
}
template <class D> HWY_INLINE hn::Vec<D> pairAt(D d, const double* p)
{
    return hn::LoadDup128(d, p);
}

template <typename T> class Blocks {
    static constexpr int kFrames = SectionBlock<T>::kFrames, kRow = 2 * kFrames;
    using D = hn::CappedTag<T, kRow>;
    using S = hn::CappedTag<T, 4>;
    using Half = hn::CappedTag<T, kFrames>;
    static constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));
    static constexpr int kStateLanes = static_cast<int>(hn::MaxLanes(S()));
    static constexpr int kHalfLanes = static_cast<int>(hn::MaxLanes(Half()));
    static constexpr int kVectors = kRow / kLanes, kStates = 4 / kStateLanes;

public:
    HWY_INLINE Blocks(const SectionBlock<T>& section, const T* z1, const T* z2) : section_(&section)
    {
        HWY_ALIGN const T z[4] = {z1[0], z1[1], z2[0], z2[1]};
        for (int v = 0; v < kStates; ++v) z_[v] = hn::Load(S(), z + v * kStateLanes);
    }
    /// The output of a block, and the state behind it.
    HWY_INLINE void next(const T* in, T* out)
    {
        const D d;
        const S s;
        HWY_ALIGN T before[4];
        for (int v = 0; v < kStates; ++v) hn::Store(z_[v], s, before + v * kStateLanes);
        hn::Vec<D> y[kVectors];
        hn::Vec<S> gained[kStates], first[kStates], second[kStates];
        spread(first, second);
        for (int v = 0; v < kStates; ++v) gained[v] = hn::Mul(toState(0, v), pairAt(s, in));
        for (int k = 1; k < kFrames; ++k) {
            const auto x = pairAt(s, in + 2 * k);
            for (int v = 0; v < kStates; ++v) gained[v] = hn::MulAdd(toState(k, v), x, gained[v]);
        }
        for (int v = 0; v < kStates; ++v) {
            const auto own = hn::Add(z_[v], gained[v]);
            z_[v] = hn::MulAdd(change(0, v), first[v], hn::MulAdd(change(1, v), second[v], own));
        }

        for (int v = 0; v < kVectors; ++v) y[v] = hn::Zero(d);
        for (int k = 0; k < kFrames; ++k) {
            const auto x = pairAt(d, in + 2 * k);
            for (int v = 2 * k / kLanes; v < kVectors; ++v)
                y[v] = hn::MulAdd(hn::Load(d, section_->toOutput[k] + v * kLanes), x, y[v]);
        }
        const auto z1 = pairAt(d, before), z2 = pairAt(d, before + 2);
        for (int v = 0; v < kVectors; ++v) {
            const auto low = hn::MulAdd(hn::Load(d, section_->fromState[1] + v * kLanes), z2, y[v]);
            hn::Store(hn::MulAdd(hn::Load(d, section_->fromState[0] + v * kLanes), z1, low), d,
                      out + v * kLanes);
        }
    }
    HWY_INLINE void save(T* z1, T* z2) const
    {
        HWY_ALIGN T z[4];
        for (int v = 0; v < kStates; ++v) hn::Store(z_[v], S(), z + v * kStateLanes);
        std::copy_n(z, 2, z1);
        std::copy_n(z + 2, 2, z2);
    }
    static HWY_INLINE void interleave(const T* left, const T* right, T* pairs)
    {
        const Half d;
        for (int i = 0; i < kFrames; i += kHalfLanes)
            hn::StoreInterleaved2(hn::LoadU(d, left + i), hn::LoadU(d, right + i), d,
                                  pairs + 2 * i);
    }
    static HWY_INLINE void separate(const T* pairs, T* left, T* right)
    {
        const Half d;
        for (int i = 0; i < kFrames; i += kHalfLanes) {
            hn::Vec<Half> l, r;
            hn::LoadInterleaved2(d, pairs + 2 * i, l, r);
            hn::StoreU(l, d, left + i);
            hn::StoreU(r, d, right + i);
        }
    }

private:
    HWY_INLINE hn::Vec<S> toState(int k, int v) const
    {
        return hn::Load(S(), section_->toState[k] + v * kStateLanes);
    }
    HWY_INLINE hn::Vec<S> change(int k, int v) const
    {
        return hn::Load(S(), section_->change[k] + v * kStateLanes);
    }
    /// z1, and z2, for all four.
    HWY_INLINE void spread(hn::Vec<S>* first, hn::Vec<S>* second) const
    {
        if constexpr (kStates == 1) {
            first[0] = hn::ConcatLowerLower(S(), z_[0], z_[0]);
            second[0] = hn::ConcatUpperUpper(S(), z_[0], z_[0]);
        } else {
            for (int v = 0; v < kStates; ++v) first[v] = z_[0], second[v] = z_[1];
        }
    }

    const SectionBlock<T>* section_;
    hn::Vec<S> z_[kStates];
};

#endif

template <typename T> void runAll(const SectionBlockRun<T>& run)
{
    constexpr int kFrames = SectionBlock<T>::kFrames;
    HWY_ALIGN T in[2 * kFrames];
    HWY_ALIGN T out[2 * kFrames];
    HWY_ALIGN T spare[kSubBlock]{};  // of a channel that is not there
    T* const left = run.channel[0];
    T* const right = run.channel[1] ? run.channel[1] : spare;
    Blocks<T> blocks(*run.section, run.z1, run.z2);
    int at = 0;
    const auto piece = [&] HWY_ATTR {
        const int begun = (run.phase + at) % kFrames, n = HWY_MIN(kFrames - begun, run.frames - at);
        for (int i = 0; i < n; ++i) {
            run.open[2 * (begun + i)] = left[at + i];
            run.open[2 * (begun + i) + 1] = right[at + i];
        }
        std::copy_n(run.open, 2 * (begun + n), in);
        std::fill(in + 2 * (begun + n), in + 2 * kFrames, T(0));
        Blocks<T> ahead = blocks;
        ahead.next(in, out);
        if (begun + n == kFrames) blocks = ahead;
        for (int i = 0; i < n; ++i) {
            left[at + i] = out[2 * (begun + i)];
            right[at + i] = out[2 * (begun + i) + 1];
        }
        at += n;
    };
    if (run.phase % kFrames != 0) piece();
    for (; at + kFrames <= run.frames; at += kFrames) {
        Blocks<T>::interleave(left + at, right + at, in);
        blocks.next(in, out);
        Blocks<T>::separate(out, left + at, right + at);
    }
    if (at < run.frames) piece();
    blocks.save(run.z1, run.z2);
}

void runFloats(const SectionBlockRun<float>& run)
{
    runAll(run);
}
void runDoubles(const SectionBlockRun<double>& run)
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

void runSectionBlocks(const SectionBlockRun<float>& run)
{
    chosenFloats(run);
}
void runSectionBlocks(const SectionBlockRun<double>& run)
{
    chosenDoubles(run);
}

template <typename T> void SectionBlock<T>::set(int side, const SectionCoefficients<T>& c) noexcept
{
    const double r = double(c.r), b1 = double(c.b1), b2 = double(c.b2);
    const double c1 = double(c.c1), c2 = double(c.c2);
    // n = A^k - 1 for the matrix A of the states, which at low frequencies is close to 1: by what
    // it changes no digits are lost.
    double n11 = 0, n12 = 0, n21 = 0, n22 = 0;
    T response[kFrames] = {c.d};
    for (int k = 0; k < kFrames; ++k) {
        fromState[0][2 * k + side] = T(c1 + (c1 * n11 + c2 * n21));
        fromState[1][2 * k + side] = T(c2 + (c1 * n12 + c2 * n22));
        const double s1 = b1 + (n11 * b1 + n12 * b2), s2 = b2 + (n21 * b1 + n22 * b2);
        toState[kFrames - 1 - k][side] = T(s1);
        toState[kFrames - 1 - k][2 + side] = T(s2);
        if (k + 1 < kFrames) response[k + 1] = T(c1 * s1 + c2 * s2);
        const double m11 = n11 - r * (1 + n11) - b1 * n21, m12 = n12 - r * n12 - b1 * (1 + n22);
        n21 += b1 * (1 + n11) - b2 * n21;
        n22 += b1 * n12 - b2 * (1 + n22);
        n11 = m11;
        n12 = m12;
    }
    change[0][side] = T(n11);
    change[1][side] = T(n12);
    change[0][2 + side] = T(n21);
    change[1][2 + side] = T(n22);
    for (int k = 0; k < kFrames; ++k)
        for (int i = k; i < kFrames; ++i) toOutput[k][2 * i + side] = response[i - k];
}

template struct SectionBlock<float>;
template struct SectionBlock<double>;

}  // namespace quillworks
#endif
