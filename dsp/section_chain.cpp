// SPDX-License-Identifier: ISC
#include "dsp/section_chain.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>

#include "dsp/section_chain_kernels.h"

namespace quillworks {
namespace {

constexpr std::ptrdiff_t kOverreach = 16;  // lanes that the kernels may read behind a row

constexpr int kOpen = 2 * SectionBlock<float>::kFrames;  // of a pair

template <typename T> const SectionKernel<T>& kernel()
{
    static const SectionKernel<T>& chosen = *sectionKernel<T>(-1);
    return chosen;
}

}  // namespace

template <typename T> void SectionChain<T>::prepare(int sections, int channels, SectionForm form)
{
    assert(sections > 0 && channels >= 0);
    kernel<T>();  // chosen here, not on the audio thread
    sections_ = sections;
    channels_ = channels;
    const int pairs = (channels + 1) / 2;
    stride_ = 2 * sections + kOverreach;
    values_.require(static_cast<std::size_t>((2 * kCoefficients + 2 * pairs) * stride_));
    values_.fill(0);
    isMoving_ = false;
    const auto inBlocks = static_cast<std::size_t>(form == SectionForm::Blocks ? sections : 0);
    blocks_.assign(inBlocks, {});
    isOutdated_.assign(static_cast<std::size_t>(sections), true);
    open_.require(inBlocks * static_cast<std::size_t>(pairs * kOpen));
    for (int s = 0; s < sections; ++s) set(s, Coefficients{});
}

template <typename T> void SectionChain<T>::reset() noexcept
{
    clear(0, sections_);
    rest(0, sections_);
}

template <typename T> void SectionChain<T>::clear(int first, int count) noexcept
{
    for (int pair = 0; 2 * pair < channels_; ++pair)
        for (int i = 0; i < 2; ++i)
            std::fill_n(states(pair) + i * stride_ + 2 * first, 2 * count, T(0));
}

template <typename T> void SectionChain<T>::takeOver(const SectionChain& other) noexcept
{
    assert(sections_ == other.sections_ && channels_ == other.channels_);
    std::copy(other.values_.begin(), other.values_.end(), values_.begin());
    std::copy(other.open_.begin(), other.open_.end(), open_.begin());
    std::fill(isOutdated_.begin(), isOutdated_.end(), true);
    isMoving_ = other.isMoving_;
}

template <typename T>
void SectionChain<T>::write(int section, int side, const Coefficients& c, bool glides) noexcept
{
    assert(section < sections_);
    constexpr T share = T(1) / kSubBlock;
    isOutdated_[static_cast<std::size_t>(section)] = true;
    const T values[kCoefficients] = {c.r, c.b1, c.b2, c.c1, c.c2, c.d};
    for (int i = 0; i < kCoefficients; ++i) {
        T& to = coefficient(i)[2 * section + side];
        T& step = this->step(i)[2 * section + side];
        step = glides ? (values[i] - to) * share : 0;
        to = values[i];
        isMoving_ |= step != 0;
    }
}

/// Nothing moves any more in these sections, and perhaps in none.
template <typename T> void SectionChain<T>::rest(int first, int count) noexcept
{
    if (!isMoving_) return;
    isMoving_ = false;
    for (int i = 0; i < kCoefficients; ++i) {
        std::fill_n(step(i) + 2 * first, 2 * count, T(0));
        isMoving_ |= std::any_of(step(i), step(i) + 2 * sections_, [](T s) { return s != 0; });
    }
}

template <typename T>
void SectionChain<T>::processBlocks(T* const* x, GridSlice slice, int first, int count) noexcept
{
    const int pairs = (channels_ + 1) / 2;
    for (int s = first; s < first + count; ++s) {
        auto& block = blocks_[static_cast<std::size_t>(s)];
        auto& isOutdated = isOutdated_[static_cast<std::size_t>(s)];
        if (isOutdated)
            for (int side = 0; side < 2; ++side) {
                const auto value = [&](int i) { return coefficient(i)[2 * s + side]; };
                block.set(side, {value(0), value(1), value(2), value(3), value(4), value(5)});
            }
        isOutdated = false;
        for (int pair = 0; pair < pairs; ++pair) {
            T* const z = states(pair) + 2 * s;
            T* const right = 2 * pair + 1 < channels_ ? x[2 * pair + 1] : nullptr;
            runSectionBlocks(SectionBlockRun<T>{&block,
                                                z,
                                                z + stride_,
                                                open_.data() + (s * pairs + pair) * kOpen,
                                                {x[2 * pair], right},
                                                slice.frames,
                                                slice.phase});
        }
    }
    if (!slice.ends()) return;
    for (int pair = 0; pair < pairs; ++pair) clearIfBad(states(pair), first, count);
}

template <typename T>
void SectionChain<T>::process(T* const* x, GridSlice slice, int first, int count) noexcept
{
    assert(first >= 0 && first + count <= sections_);
    if (slice.frames == 0 || count <= 0) return;
    if (!blocks_.empty() && !isMoving_) return processBlocks(x, slice, first, count);
    const auto& kernel = quillworks::kernel<T>();
    if (count == 1 && channels_ > 2) {
        SectionAbreast<T> run;
        for (int i = 0; i < kCoefficients; ++i) {
            run.to[i] = coefficient(i) + 2 * first;
            run.step[i] = step(i) + 2 * first;
        }
        run.z1 = states(0) + 2 * first;
        run.z2 = run.z1 + stride_;
        run.pairStride = 2 * stride_;
        run.channel = x;
        run.channels = channels_;
        run.frames = slice.frames;
        run.phase = slice.phase;
        run.moves = isMoving_;
        kernel.runAbreast(run);
        if (slice.ends()) {
            for (int pair = 0; 2 * pair < channels_; ++pair) clearIfBad(states(pair), first, 1);
            rest(first, 1);
        }
        return;
    }
    for (int pair = 0; 2 * pair < channels_; ++pair) {
        T* const z = states(pair);
        const bool isWhole = 2 * pair + 1 < channels_;
        for (int done = 0; done < count; done += kernel.mostSections) {
            const int lane = 2 * (first + done);
            SectionRun<T> run;
            for (int i = 0; i < kCoefficients; ++i) {
                run.to[i] = coefficient(i) + lane;
                run.step[i] = step(i) + lane;
            }
            run.z1 = z + lane;
            run.z2 = z + stride_ + lane;
            run.channel[0] = x[2 * pair];
            run.channel[1] = isWhole ? x[2 * pair + 1] : nullptr;
            run.count = std::min(count - done, kernel.mostSections);
            run.frames = slice.frames;
            run.phase = slice.phase;
            run.moves = isMoving_;
            kernel.run(run);
        }
        if (slice.ends()) clearIfBad(z, first, count);
    }
    if (slice.ends()) rest(first, count);
}

/// A state that is not finite never becomes so again.
template <typename T> void SectionChain<T>::clearIfBad(T* z, int first, int count) noexcept
{
    constexpr T most = std::numeric_limits<T>::max();
    int bad = 0;  // counted without a branch
    for (int row = 0; row < 2; ++row)
        for (int i = 0; i < 2 * count; ++i)
            bad += !(std::abs(z[row * stride_ + 2 * first + i]) <= most);
    if (bad == 0) return;
    for (int row = 0; row < 2; ++row) std::fill_n(z + row * stride_ + 2 * first, 2 * count, T(0));
}

template class SectionChain<float>;
template class SectionChain<double>;

}  // namespace quillworks
