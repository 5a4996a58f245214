// SPDX-License-Identifier: ISC
// What an oscilloscope remembers of the signal, and its trigger source between the samples.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "dsp/aligned_buffer.h"
#include "dsp/sinc_table.h"
#include "framework/audio_block.h"

namespace quillworks {

/// Which signal triggers: a channel, or the middle or side of the first pair of channels.
inline constexpr int kMidSource = 16, kSideSource = 17;

/// Samples on either side of an instant that its value is made of.
inline constexpr int kScopeReach = 12;

/// The band-limited signal between its samples; x[0] is kScopeReach - 1 samples before the one in
/// front of the instant.
class ScopeInterpolator {
public:
    static constexpr int kTaps = 2 * kScopeReach;

    ScopeInterpolator() : table_(SincTable<float>::shared({kTaps, 512, 7})) {}
    /// The value `fraction` of a sample (0 to 1) after x[kScopeReach - 1].
    double at(const float* x, double fraction) const noexcept;
    /// Where it passes `level`, which lies between the values at `from` and `to`.
    double crossing(const float* x, double level, double from = 0, double to = 1) const noexcept;
    const float* row(int eighth) const noexcept { return table_->row(64 * eighth); }

private:
    std::shared_ptr<const SincTable<float>> table_;
};

/// The last 10 s, less where that would be more than 64 MiB. Frames carry their numbers; those
/// before the first one are silent.
class ScopeHistory {
public:
    /// May throw std::bad_alloc.
    void prepare(const ProcessSpec& spec);
    void release() noexcept;
    /// Forgets all; the next frame is number `first`.
    void begin(std::int64_t first) noexcept { first_ = end_ = first; }
    void append(const float* const* x, int n) noexcept;
    /// A channel that there is not gives the first; without a pair, the middle is the first channel
    /// and the side silence.
    void setSource(int source) noexcept;

    std::int64_t first() const noexcept { return first_; }  // of all, though it may have gone
    std::int64_t end() const noexcept { return end_; }
    int channels() const noexcept { return channels_; }
    /// Frames that a trace may have.
    int longestSpan() const noexcept;
    /// The frames are to be among the last longestSpan() + 4096, not beyond the end.
    void copy(int channel, std::int64_t from, int n, float* out) const noexcept;
    void copySource(std::int64_t from, int n, float* out) const noexcept;
    float source(std::int64_t frame) const noexcept;

    /// Where the band-limited source passes `level` between the frames `before` and before + 1,
    /// which lie on either side of it; kScopeReach frames behind it are there.
    double crossing(std::int64_t before, double level) const noexcept;
    /// The source at `instant`, instant + 1, ...
    void waveform(double instant, std::span<float> out) const noexcept;

private:
    ScopeInterpolator interpolator_;
    AlignedBuffer<float> lines_;  // channel by channel, each a ring of mask_ + 1 frames
    std::size_t mask_ = 0;
    int channels_ = 0;
    std::int64_t first_ = 0, end_ = 0;
    int left_ = 0, right_ = 1;  // of the first pair, -1 without one
    struct Source {
        int channel[2] = {0, 0};
        float weight[2] = {1, 0};
    } source_;
};

}  // namespace quillworks
