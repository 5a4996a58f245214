// SPDX-License-Identifier: ISC
// Sine sweeps by a formula that can be inverted, one after the other.
#pragma once

#include <cstdint>

#include "dsp/control_grid.h"

namespace quillworks {

struct SweepLaw {
    double from, to;  // Hz
    double seconds;   // asked for
    bool isLogarithmic;
};

/// A sweep of either law, t in seconds from its first sample, with raised-cosine fades of 5 ms:
///
/// Linear: the phase is from t + (to - from) t^2 / (2 T) cycles.
///
/// Logarithmic (Farina 2000), synchronised so that its harmonics are the sweep itself moved in time
/// (Novak, Lotton and Simon 2015): m (e^(t/L) - 1) cycles, L = m / from, m the whole number nearest
/// to from T / ln(to / from) and at least 1 in size. It lasts L ln(to / from), which is not quite
/// T. Ends nearer than a cent are a sine.
class SweptSine {
public:
    void begin(const SweepLaw& law, double sampleRate) noexcept;
    /// Samples that it lasts, with their fraction.
    double length() const noexcept { return length_; }
    /// Frames from `frame` on, counted from its first; at most 32. Beyond the end: silence.
    void play(std::int64_t frame, double* out, int n) const noexcept;
    /// Instantaneous frequency in Hz at a frame.
    double frequencyAt(double frame) const noexcept;

private:
    SweepLaw law_{};
    double rate_ = 48000, length_ = 0;
    double periods_ = 0;            // m
    double growth_ = 0;             // of the logarithm per sample, 1 / (L fs)
    double grown_[kSubBlock] = {};  // e^(k growth) - 1
    double chirp_ = 0;              // cycles per second squared, half of it
};

/// Sweeps with pauses between them.
class SweepCycle {
public:
    void prepare(double sampleRate) noexcept { rate_ = sampleRate; }
    /// What the next sweep will be, and whether there is one. In force from the next sub-block on.
    void set(const SweepLaw& law, double pause, bool repeats) noexcept;
    void begin() noexcept;
    /// The next sub-block.
    void next(double* out) noexcept;

    bool isSounding() const noexcept;
    /// NaN in pauses.
    double frequency() const noexcept;
    /// 0 .. 1 of the sweep, 1 behind it.
    double progress() const noexcept;

private:
    SweptSine sweep_;
    SweepLaw law_{1, 1, 1, true};  // of the next
    double rate_ = 48000, pause_ = 0;
    bool repeats_ = true;
    std::int64_t frame_ = 0;  // of the next output, since the present sweep began
};

}  // namespace quillworks
