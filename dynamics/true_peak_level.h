// SPDX-License-Identifier: ISC
// The level that a signal reaches between its samples, at four times its rate.
#pragma once

#include <vector>

namespace quillworks {

/// Two chains of midpoint interpolators, each stage doubling the rate, up to eight times: a long
/// one that knows the signal almost up to half its rate, and a short one. Where they disagree, near
/// half the rate, so do the meters of this world; the level then leans to the safe side.
///
/// In single precision: levels need no more. Windowed-sinc filters: Kaiser (1974). The audio itself
/// is never resampled.
class TruePeakLevel {
public:
    static constexpr int kAhead = 43;   // samples needed after the one whose levels are asked for
    static constexpr int kBehind = 42;  // and before it
    static constexpr double kMaxGain = 4;  // no level is more than this times the largest sample
    static constexpr int kMaxFrames = 64;  // per call
    static constexpr int kPhases = 4;      // levels per frame
    static constexpr int kPadding = 8;     // that arrays have behind their last element

    void prepare(int channels);
    void reset() noexcept;

    /// Levels of `frames` frames of one channel from x[0] on; x[-kBehind] to x[frames - 1 + kAhead]
    /// are read, and up to kPadding values after that which do not matter. Raises level[p][i], the
    /// maximum from the point i + p/4 up to the next such point, where this channel has more.
    /// Calls for a channel go on where its last one ended, unless pass() was called between.
    void raise(int channel, const double* x, int frames, double* const* level) noexcept;
    /// Frames of all channels were left out.
    void pass() noexcept;

    /// Signal between the samples, 2 and 4 times the rate, of one chain; the start of each array
    /// remembers what the next call needs.
    struct Chain {
        static constexpr int kHalves = 6, kQuarters = 1;                 // remembered
        alignas(64) float half[2 * kHalves + kPadding + kMaxFrames];     // at i + 1/2
        alignas(64) float first[2 * kQuarters + kPadding + kMaxFrames];  // at i + 1/4
        alignas(64) float third[2 * kQuarters + kPadding + kMaxFrames];  // at i + 3/4
    };
    struct Channel {
        Chain chains[2];
        bool goesOn = false;  // the chains remember the frames before
    };

private:
    std::vector<Channel> channels_;
};

}  // namespace quillworks
