// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mixing/ear_filters.cpp"
#include "dsp/simd.h"
//
#include "mixing/transpose-inl.h"
//
#include <algorithm>

#include "mixing/ear_filters.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// The filters of as many ears as a vector holds, from `first` on.
template <class D, bool moves, typename T = hn::TFromD<D>> class Ears {
    using V = hn::Vec<D>;
    using Run = EarRun<T>;

public:
    HWY_INLINE Ears(const Run& run, int first) : run_(run), first_(first)
    {
        for (int i = 0; i < Run::kStates; ++i) z_[i] = hn::LoadU(D(), run.z[i] + first);
    }
    HWY_INLINE void process(T* rows)
    {
        for (int i = 0; i < run_.frames; ++i) {
            T* const row = rows + i * Run::kMost + first_;
            if (moves) left_ = hn::Set(D(), T(kSubBlock - 1 - run_.phase - i));
            V x = hn::LoadU(D(), row);
            x = onePole(x, 0, z_[0]);
            x = section(x, 3, z_[1], z_[2]);
            x = section(x, 9, z_[3], z_[4]);
            x = onePole(x, 15, z_[5]);
            hn::StoreU(x, D(), row);
        }
        for (int i = 0; i < Run::kStates; ++i) hn::StoreU(z_[i], D(), run_.z[i] + first_);
    }

private:
    HWY_INLINE V at(int k) const
    {
        const V to = hn::LoadU(D(), run_.to[k] + first_);
        return moves ? hn::NegMulAdd(hn::LoadU(D(), run_.step[k] + first_), left_, to) : to;
    }
    /// b, l, h from row k on.
    HWY_INLINE V onePole(V x, int k, V& z) const
    {
        const V y = hn::MulAdd(at(k + 2), x, hn::Mul(at(k + 1), z));
        z = hn::MulAdd(at(k), hn::Sub(x, z), z);
        return y;
    }
    /// r, b1, b2, c1, c2, d from row k on.
    HWY_INLINE V section(V x, int k, V& z1, V& z2) const
    {
        const V y = hn::MulAdd(at(k + 5), x, hn::MulAdd(at(k + 4), z2, hn::Mul(at(k + 3), z1)));
        const V u = hn::Sub(x, z2), b1 = at(k + 1);
        const V next1 = hn::Add(z1, hn::MulSub(b1, u, hn::Mul(at(k), z1)));
        z2 = hn::Add(z2, hn::MulAdd(at(k + 2), u, hn::Mul(b1, z1)));
        z1 = next1;
        return y;
    }

    const Run& run_;
    int first_;
    V z_[Run::kStates], left_ = hn::Zero(D());
};

template <typename T> void runEars(const EarRun<T>& run)
{
    constexpr int kMost = EarRun<T>::kMost;
    HWY_ALIGN T rows[kSubBlock * kMost];
#if HWY_TARGET == HWY_SCALAR
    using D = hn::CappedTag<T, 1>;
    for (int i = 0; i < run.frames; ++i)
        for (int c = 0; c < kMost; ++c) rows[i * kMost + c] = run.channel[c][i];
#else
    using D = hn::CappedTag<T, kMost>;
    toRows<T>(run.channel, kMost, run.frames, rows, kMost);
#endif
    for (int first = 0; first < run.ears; first += static_cast<int>(hn::MaxLanes(D())))
        if (run.moves)
            Ears<D, true>(run, first).process(rows);
        else
            Ears<D, false>(run, first).process(rows);
    for (int c = 0; c < run.ears; ++c)
        for (int i = 0; i < run.frames; ++i) run.channel[c][i] = rows[i * kMost + c];
}

void runFloat(const EarRun<float>& run)
{
    runEars(run);
}
void runDouble(const EarRun<double>& run)
{
    runEars(run);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(runFloat);
HWY_EXPORT(runDouble);

}  // namespace

template <> void (*const EarRun<float>::run)(const EarRun<float>&) = SIMD_CHOOSE(runFloat);
template <> void (*const EarRun<double>::run)(const EarRun<double>&) = SIMD_CHOOSE(runDouble);

template <typename T> void EarFilters<T>::prepare(int ears, double sampleRate) noexcept
{
    ears_ = ears;
    sampleRate_ = sampleRate;
    for (auto& ear : gain_)
        for (auto& gain : ear) gain.prepareHalfLife(2 * glideSubBlocks(sampleRate));
}

template <typename T> void EarFilters<T>::reset() noexcept
{
    for (int ear = 0; ear < ears_; ++ear) {
        for (auto& gain : gain_[static_cast<std::size_t>(ear)]) gain.snap();
        lay(ear);
    }
    for (auto& row : step_) std::fill_n(row, kMost, T(0));
    for (auto& row : z_) std::fill_n(row, kMost, T(0));
    moves_ = false;
}

template <typename T> void EarFilters<T>::target(int ear, const Gains& gains) noexcept
{
    for (std::size_t i = 0; i < gains.size(); ++i)
        gain_[static_cast<std::size_t>(ear)][i].target(gains[i]);
}

template <typename T> bool EarFilters<T>::isGliding(int ear) const noexcept
{
    const auto& gains = gain_[static_cast<std::size_t>(ear)];
    return std::any_of(gains.begin(), gains.end(), [](const auto& g) { return g.isGliding(); });
}

/// Lets the ear's coefficients run to its gains.
template <typename T> void EarFilters<T>::lay(int ear) noexcept
{
    int row = 0;
    const auto put = [&](T value) {
        T& to = to_[row][ear];
        step_[row][ear] = (value - to) / T(kSubBlock);
        to = value;
        ++row;
    };
    for (int i = 0; i < head::kFilters; ++i) {
        const double gain =
            gain_[static_cast<std::size_t>(ear)][static_cast<std::size_t>(i)].current();
        if (head::isShelf(i)) {
            const auto c = head::shelf<T>(i, gain, sampleRate_);
            for (const T value : {c.b, c.l, c.h}) put(value);
        } else {
            const auto c = head::peak<T>(i, gain, sampleRate_);
            for (const T value : {c.r, c.b1, c.b2, c.c1, c.c2, c.d}) put(value);
        }
    }
}

template <typename T> void EarFilters<T>::process(T* const* x, GridSlice slice) noexcept
{
    if (slice.begins()) {
        // Once more behind the last move, so that nothing moves then.
        bool glides = false;
        for (int ear = 0; ear < ears_; ++ear) glides |= isGliding(ear);
        for (int ear = 0; ear < ears_ && (glides || moves_); ++ear) {
            for (auto& gain : gain_[static_cast<std::size_t>(ear)]) gain.next(kWholeSubBlock);
            lay(ear);
        }
        moves_ = glides;
    }
    EarRun<T> run;
    run.to = to_;
    run.step = step_;
    run.moves = moves_;
    run.z = z_;
    for (int ear = 0; ear < kMost; ++ear) run.channel[ear] = x[ear < ears_ ? ear : 0];
    run.ears = ears_;
    run.frames = slice.frames;
    run.phase = slice.phase;
    EarRun<T>::run(run);
}

template class EarFilters<float>;
template class EarFilters<double>;

}  // namespace quillworks
#endif
