// SPDX-License-Identifier: ISC
#include "dsp/band_splitter.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>

#include "dsp/band_splitter_kernels.h"

namespace quillworks {
namespace {

constexpr double kGlideTolerance = 0.00144;  // octaves: 0.1 %

template <typename T> const BandKernels<T>& kernels()
{
    static const BandKernels<T>& chosen = *bandKernels<T>(-1);
    return chosen;
}

}  // namespace

template <typename T> void BandSplitter<T>::prepare(double sampleRate, int pairs)
{
    kernels<T>();  // chosen here, not on the audio thread
    sampleRate_ = sampleRate;
    pairs_ = pairs;
    states_.require(static_cast<std::size_t>(pairs * kStates * kRow));
    for (auto& split : split_) {
        split.octave.prepareHalfLife(glideSubBlocks(sampleRate));
        split.octave.setTolerance(kGlideTolerance);
        split.octave.target(std::log2(split.frequency));
    }
    reset();
}

template <typename T> void BandSplitter<T>::reset() noexcept
{
    states_.fill(0);
    rest();
    for (int s = 0; s < kSplits; ++s) {
        split_[s].octave.snap();
        lay(s, false);
    }
}

template <typename T> void BandSplitter<T>::clear(int pair) noexcept
{
    std::fill_n(states(pair), kStates * kRow, T(0));
}

template <typename T> void BandSplitter<T>::target(int split, double frequency) noexcept
{
    split_[split].frequency = frequency;
    split_[split].octave.target(std::log2(frequency));
}

template <typename T> double BandSplitter<T>::frequency(int split) const noexcept
{
    const auto& [octave, wanted] = split_[split];
    return octave.current() == octave.target() ? wanted : std::exp2(octave.current());
}

/// Coefficients of a split where it stands.
template <typename T> void BandSplitter<T>::lay(int split, bool glides) noexcept
{
    const auto c = SectionCoefficients<T>::of(warpedFrequency(frequency(split), sampleRate_),
                                              1 / kButterworthQ, SectionOutput{});
    const T values[kCoefficients] = {c.r, c.b1, c.b2};
    for (int k = 0; k < kCoefficients; ++k)
        for (int lane = 2 * split; lane < 2 * split + 2; ++lane) {
            T& to = coefficients_[k][lane];
            steps_[k][lane] = glides ? (values[k] - to) * (T(1) / kSubBlock) : 0;
            to = values[k];
        }
    isMoving_ |= glides;
}

/// Nothing moves any more.
template <typename T> void BandSplitter<T>::rest() noexcept
{
    for (auto& row : steps_) std::fill(std::begin(row), std::end(row), T(0));
    isMoving_ = false;
}

template <typename T> void BandSplitter<T>::begin(GridSlice slice) noexcept
{
    if (!slice.begins()) return;
    if (isMoving_) rest();
    for (int s = 0; s < kSplits; ++s) {
        if (!split_[s].octave.isGliding()) continue;
        split_[s].octave.next(kWholeSubBlock);
        lay(s, true);
    }
}

template <typename T>
void BandSplitter<T>::split(int pair, const T* left, const T* right, BandRows<T>& bands,
                            GridSlice slice) noexcept
{
    assert(pair < pairs_ && splits_ >= 1 && splits_ <= kSplits);
    if (slice.frames == 0) return;
    SplitRun<T> run;
    for (int k = 0; k < kCoefficients; ++k) {
        run.to[k] = coefficients_[k];
        run.step[k] = steps_[k];
    }
    T* const z = states(pair);
    for (int k = 0; k < 4; ++k) run.z[k] = z + k * kRow;
    run.count = splits_;
    run.frames = slice.frames;
    run.phase = slice.phase;
    run.moves = isMoving_;
    run.channel[0] = left;
    run.channel[1] = right;
    run.band = bands.row(0, 0);
    run.stride = BandRows<T>::kStride;
    kernels<T>().split(run);
}

template <typename T>
void BandSplitter<T>::join(int pair, const BandRows<T>& bands, T* left, T* right,
                           GridSlice slice) noexcept
{
    assert(pair < pairs_);
    const int n = slice.frames;
    if (n == 0) return;
    T* const z = states(pair);
    T* const out[2] = {left, right};
    if (splits_ == 1) {
        for (T* const y : out)
            if (y) std::fill_n(y, n, T(0));
    } else {
        JoinRun<T> run;
        for (int k = 0; k < kCoefficients; ++k) {  // from the second split on
            run.to[k] = coefficients_[k] + 2;
            run.step[k] = steps_[k] + 2;
        }
        for (int k = 0; k < 2; ++k) run.z[k] = z + (4 + k) * kRow;
        run.count = splits_ - 1;
        run.frames = n;
        run.phase = slice.phase;
        run.moves = isMoving_;
        run.band = bands.of(0, 0);
        run.stride = BandRows<T>::kStride;
        run.channel[0] = left;
        run.channel[1] = right;
        kernels<T>().join(run);
    }
    // No split lies above the last two.
    for (int side = 0; side < 2; ++side) {
        if (!out[side]) continue;
        const T* const below = bands.of(splits_ - 1, side);
        const T* const last = bands.of(splits_, side);
        for (int i = 0; i < n; ++i) out[side][i] += below[i] + last[i];
    }
    if (!slice.ends()) return;
    // A state that is not finite never becomes so again.
    int bad = 0;  // counted without a branch
    for (int i = 0; i < kStates * kRow; ++i)
        bad += !(std::abs(z[i]) <= std::numeric_limits<T>::max());
    if (bad != 0) clear(pair);
}

template class BandSplitter<float>;
template class BandSplitter<double>;

}  // namespace quillworks
