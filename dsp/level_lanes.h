// SPDX-License-Identifier: ISC
// Envelopes of level displays, those of several signals side by side in the lanes of a vector.
#pragma once

namespace quillworks {

/// Linear envelopes of magnitudes, two for each of four signals: both rise within a sample (all but
/// exp(-2 pi) of a step), one falls in 1 s and one in 3 s. As `PeakFollower` to 0.002 dB.
class LevelLanes {
public:
    static constexpr int kSignals = 4;
    static constexpr int kPiece = 64;        // frames that are worked on at once
    static constexpr int kReadsBeyond = 16;  // samples behind a signal's last, whatever they are
    static constexpr int kWidest = 8;        // lanes of a vector

    /// What all lanes of one sample rate have in common.
    struct Times {
        void prepare(double sampleRate) noexcept;

        // By lane: the fast envelopes of the signals, then the slow ones.
        alignas(32) float take[2 * kSignals];  // share of a sample that a fall takes on
        alignas(32) float rise[2 * kSignals];  // the share that a rise takes on, over `take`
        alignas(32) float keep[2 * kSignals];  // what a rise leaves over what a fall leaves
        alignas(32) float grow[2 * kSignals];  // 1 over what a fall leaves
        // Of a run of falls, fast and slow: what the first frames count, and what those behind 1, 4
        // or 8 frames count over these, so that it comes out with what the run leaves.
        alignas(32) float weights[2][kWidest];
        float growth[3][2];
        double left[kPiece + 1][2];  // what a fall of so many samples leaves, fast, slow
    };

    void reset() noexcept;
    /// n samples of each signal; what is no number counts as 0, what is beyond 1e6 as that.
    /// Multiples of kReadsBeyond read nothing behind the last.
    void run(const Times& times, const float* const* x, int n) noexcept;

    double fast(int signal) const noexcept { return envelopes_[signal]; }
    double slow(int signal) const noexcept { return envelopes_[kSignals + signal]; }

private:
    alignas(64) double envelopes_[2 * kSignals] = {};  // by lane
};

}  // namespace quillworks
