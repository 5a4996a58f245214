// SPDX-License-Identifier: ISC
// Doubling and halving the sample rate by a symmetric filter for the points between the samples.
#pragma once

#include <array>
#include <cmath>
#include <vector>

#include "dsp/kaiser.h"
#include "dsp/recent_samples.h"

namespace quillworks {

/// Half of a symmetric filter that gives the point midway between two samples: its taps from the
/// nearest pair of samples on, a Kaiser-windowed sinc (1974) with a gain of 1 for a constant.
template <typename T, int size> std::array<T, size> midpointTaps(double beta)
{
    const KaiserWindow window(beta);
    double tap[size], sum = 0;
    for (int k = 0; k < size; ++k) sum += tap[k] = sinc(k + 0.5) * window((k + 0.5) / size);
    std::array<T, size> taps;
    for (std::size_t k = 0; k < size; ++k) taps[k] = static_cast<T>(tap[k] / (2 * sum));
    return taps;
}

/// The two phases of the double rate are kept apart. One object goes up or down, for one channel.
template <typename T> class MidpointFilter {
public:
    static constexpr int kMaxFrames = 512;  // per call

    /// Taps as those of midpointTaps: a half-band filter of 4 size - 1 taps. Allocates.
    template <std::size_t size> void prepare(const std::array<T, size>& taps)
    {
        taps_.assign(taps.begin(), taps.end());
        for (auto& r : recent_) r.prepare(2 * static_cast<int>(size), kMaxFrames, kPadding);
    }
    void reset() noexcept
    {
        for (auto& r : recent_) r.reset();
    }
    /// Delay of `up`, in samples of the lower rate; that of `down` is one less.
    int latency() const noexcept { return static_cast<int>(taps_.size()); }

    /// n samples to the double rate: even[i] is the signal at a sample, odd[i] midway to the next.
    void up(const T* x, int n, T* even, T* odd) noexcept;
    /// n pairs of samples to half their rate; what cannot be kept there is filtered out.
    void down(const T* even, const T* odd, int n, T* out) noexcept;

private:
    static constexpr int kPadding = 8;  // whole vectors are read

    void interpolate(const T* x, int n, T* out) noexcept;

    std::vector<T> taps_;
    RecentSamples<T> recent_[2];
};

}  // namespace quillworks
