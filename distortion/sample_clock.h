// SPDX-License-Identifier: ISC
// The clock of a converter: when it samples, between the samples of the signal.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "dsp/control_grid.h"
#include "dsp/random.h"

namespace quillworks {

/// Edges at t(0) = 0 and t(k + 1) = t(k) + period (1 + jitter/2 r(k)), r uniform in -1 .. 1 and a
/// function of k. Kept as whole frames and a fraction, so that they have the same bits however the
/// signal is divided and stay exact for ever.
class SampleClock {
public:
    /// Frames behind an edge's own frame at which it is reported: an interpolator knows the future
    /// by then.
    static constexpr int kDelay = 16;
    static constexpr int kMaxEdges = 2 * kSubBlock + 4;  // per slice

    /// Edges that are reported in a slice: edge i lies fraction[i] behind the frame that is kDelay
    /// before frame[i].
    struct Edges {
        int count = 0;
        std::uint32_t index = 0;  // k of the first
        int frame[kMaxEdges];     // of the slice
        double fraction[kMaxEdges];
    };

    void reset() noexcept
    {
        index_ = 0;
        wait_ = kDelay;
        fraction_ = 0;
    }
    /// The next edge lies on the frame that is kDelay before the coming one.
    void startNow() noexcept
    {
        wait_ = 0;
        fraction_ = 0;
    }
    /// The slice's edges; `period` in frames, above 1, and `jitter`, 0 .. 1, per frame of the
    /// slice.
    void next(const double* period, const double* jitter, int n, Edges& edges) noexcept
    {
        lay(n, edges, [&](int frame) {
            const double r = jitter[frame] == 0 ? 0 : hashRandom(index_, 0);
            const double step = std::max(0.5, period[frame] * (1 + 0.5 * jitter[frame] * r));
            const double place = fraction_ + step;
            const int whole = static_cast<int>(place);
            fraction_ = place - whole;
            return whole;
        });
    }
    /// The same with a period that stands and no jitter, and in half the time: each edge waits for
    /// the one before, so its fraction is found without turning it into a whole number and back.
    void next(double period, int n, Edges& edges) noexcept
    {
        const int below = static_cast<int>(period);
        const double base = below;
        lay(n, edges, [&](int) {
            const double rest = fraction_ + period - base;  // exact behind the sum
            const bool carries = rest >= 1;
            fraction_ = rest - (carries ? 1.0 : 0.0);
            return below + carries;
        });
    }

private:
    /// step(frame) moves `fraction_` on and returns the whole frames to the next edge.
    template <class Step> void lay(int n, Edges& edges, Step&& step) noexcept
    {
        edges.index = index_;
        int frame = wait_, count = 0;
        while (frame < n && count < kMaxEdges) {
            edges.frame[count] = frame;
            edges.fraction[count++] = fraction_;
            frame += step(frame);
            ++index_;
        }
        edges.count = count;
        wait_ = frame - n;
    }

    std::uint32_t index_ = 0;
    int wait_ = kDelay;  // frames until the next edge is reported
    double fraction_ = 0;
};

}  // namespace quillworks
