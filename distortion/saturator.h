// SPDX-License-Identifier: ISC
// A saturation without audible aliases that stays at its level.
#pragma once

#include <cstdint>
#include <vector>

#include "dsp/antiderivative_shape.h"
#include "dsp/crossfade.h"
#include "dsp/oversampler.h"
#include "dsp/section.h"
#include "dsp/smoothed.h"

namespace quillworks {

/// Drives a curve at an internal rate of 320 kHz and more, or as near as a factor of 8 comes to it,
/// by means over each of its steps. Everything glides or fades; channels have all settings in
/// common. The output has the same bits however the signal is divided into slices.
template <typename T> class Saturator {
public:
    /// In frames: 39, 38, 32 or 0 by the rate. (At 0 the half sample of the curve's means stays.)
    static int latencyAt(double sampleRate) noexcept;
    /// In frames, latency included. A constant that a bias or Tube makes ends with the signal, and
    /// what takes it out swings back.
    static std::uint32_t tailAt(double sampleRate, bool makesConstant) noexcept;

    /// `glideHalfLife` in sub-blocks. Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, int channels, double glideHalfLife);
    void reset() noexcept;

    void setCurve(Saturation curve) noexcept { curve_.target(curve); }
    /// dB. Fold takes half of it: it turns over where the others level off.
    void setDrive(double decibels) noexcept { drive_.target(decibels); }
    /// What the signal is shaped around, -1 .. 1; the constant that makes is taken out by a
    /// high-pass at 5 Hz.
    void setBias(double bias) noexcept { bias_.target(bias); }
    /// Whether the level is that of the input, as far as levelMatch() knows it.
    void setLevelMatch(bool isOn) noexcept { match_.target(isOn ? 1 : 0); }

    /// All channels in place; a slice lies within a sub-block.
    void process(T* const* x, GridSlice slice) noexcept;

private:
    static constexpr int kMostPhases = 8;

    /// The way through one curve.
    struct Way {
        ShapeDrive<T> drive;
        double gain = 1, level = 1;  // at the end of the open sub-block
    };
    /// What glides, at both ends of a sub-block.
    struct Ends {
        Ramp<double> drive, bias, match;
    };

    void begin(GridSlice slice) noexcept;
    void lay(Way& way, Saturation curve, const Ends& ends, bool isFresh) const noexcept;
    void shape(Oversampler<T>& oversampler, T* x, GridSlice slice, const T* weights) noexcept;
    void blockConstant(T* const* x, int n) noexcept;

    Smoothed<double> drive_, bias_, match_;
    Switch<Saturation> curve_;
    Way present_, leaving_;
    bool isLaid_ = false;
    std::vector<Oversampler<T>> oversamplers_;

    // The high-pass runs while there is a constant to take out and until it has forgotten it.
    OnePoleCoefficients<double> highPass_;
    std::vector<OnePoleState<double>> constants_;
    int blockFrames_ = 0, blockLeft_ = 0;
};

}  // namespace quillworks
