// SPDX-License-Identifier: ISC
// Sections in series over any number of channels, side by side in the lanes of a vector.
#pragma once

#include <cstddef>
#include <vector>

#include "dsp/aligned_buffer.h"
#include "dsp/section_blocks.h"

namespace quillworks {

/// How still sections run. Neither adds latency; they differ by rounding.
enum class SectionForm {
    Lanes,   // all at once, on neighbouring samples: for many
    Blocks,  // one after the other, eight samples at a time: for one or two, a third of the time.
             // What is not finite spoils its block of eight from the first sample on.
};

/// Chain of sections for pairs of channels. Section s of a pair's channel c sits in lane 2 s + c
/// and takes at step t what lane 2 (s - 1) + c gave at step t - 1: the sections work on
/// neighbouring samples at once, n samples take n + sections - 1 steps, and no latency remains. An
/// odd last channel is half of a pair.
///
/// The output has the same bits however the signal is divided into slices. Builds for different
/// instruction sets differ by rounding.
template <typename T> class SectionChain {
public:
    using Coefficients = SectionCoefficients<T>;

    /// At least one section, any number of channels. All sections pass the signal. Allocates; may
    /// throw std::bad_alloc.
    void prepare(int sections, int channels, SectionForm form = SectionForm::Lanes);
    /// Silence in all sections; coefficients stay, those that move arrive.
    void reset() noexcept;
    /// Silence in the sections from `first` on: for filters that come in.
    void clear(int first, int count) noexcept;
    /// Coefficients and states of `other`, prepared alike: for a second run that goes on from where
    /// the first stands.
    void takeOver(const SectionChain& other) noexcept;

    int sections() const noexcept { return sections_; }
    int channels() const noexcept { return channels_; }

    /// The section's coefficients, at once: for all channels, or for those of one side, 0 the first
    /// and 1 the second of each pair.
    void set(int section, const Coefficients& c) noexcept
    {
        for (int side = 0; side < 2; ++side) write(section, side, c, false);
    }
    void set(int section, int side, const Coefficients& c) noexcept
    {
        write(section, side, c, false);
    }
    /// Where a sub-block begins, before its first process(): they run linearly to `c` over it.
    void glide(int section, const Coefficients& c) noexcept
    {
        for (int side = 0; side < 2; ++side) write(section, side, c, true);
    }
    void glide(int section, int side, const Coefficients& c) noexcept
    {
        write(section, side, c, true);
    }

    /// All channels in place, the second of a pair null where there is none, through `count`
    /// sections from `first` on, or through all. Not longer than the sub-block. Where a sub-block
    /// ends, a pair whose states are not finite is cleared.
    void process(T* const* x, GridSlice slice) noexcept { process(x, slice, 0, sections_); }
    void process(T* const* x, GridSlice slice, int first, int count) noexcept;

private:
    static constexpr int kCoefficients = 6;

    T* coefficient(int i) noexcept { return values_.data() + i * stride_; }
    T* step(int i) noexcept { return values_.data() + (kCoefficients + i) * stride_; }
    T* states(int pair) noexcept
    {
        return values_.data() + (2 * kCoefficients + 2 * pair) * stride_;
    }
    void write(int section, int side, const Coefficients& c, bool glides) noexcept;
    void processBlocks(T* const* x, GridSlice slice, int first, int count) noexcept;
    void rest(int first, int count) noexcept;
    void clearIfBad(T* z, int first, int count) noexcept;

    int sections_ = 0, channels_ = 0;
    std::ptrdiff_t stride_ = 0;  // lanes of all sections, and as many as a vector reads too far
    AlignedBuffer<T> values_;    // rows of lanes: coefficients, their steps, two states per pair
    bool isMoving_ = false;
    std::vector<SectionBlock<T>> blocks_;  // by section, where they run in that form
    std::vector<char> isOutdated_;         // whether such a one is to be made anew
    AlignedBuffer<T> open_;                // by section and pair: input of the block under way
};

}  // namespace quillworks
