// SPDX-License-Identifier: ISC
// What colours the fed-back signal of a delay: saturation, low cut, high cut.
#pragma once
#include "delay/diode_saturator.h"
#include "dsp/control_grid.h"
#include "dsp/smoothed.h"
#include "dsp/svf.h"

namespace quillworks {

/// Low cut and high cut of two sections each.
struct ColourFilters {
    float lowCut = 20, highCut = 16000;  // Hz
    float resonance = 1;                 // 0.3 .. 3, 1 without a peak

    static constexpr float kNeutralLowCut = 20, kNeutralHighCut = 16000;

    /// A filter at its neutral end is left out.
    bool cutsLow() const noexcept;
    bool cutsHigh() const noexcept;
    /// Qualities of a filter's two sections.
    double q(int section) const noexcept;
    /// Largest gain over all frequencies of the sections in use, linear.
    double peakGain() const noexcept;
};

class ColourStage {
public:
    /// [main thread]
    void prepare(int channels, double sampleRate, double driveHalfLife);
    void reset() noexcept;

    void setFilters(const ColourFilters& filters) noexcept;
    /// 0 .. 1; at 0 the stage is out of the way.
    void setSaturation(float drive) noexcept { drive_.target(drive); }

    void process(float* const* x, GridSlice slice) noexcept;

private:
    /// Left and right, which run side by side; a single channel is both.
    using Pair [[gnu::vector_size(16)]] = double;
    void saturate(float* const* x, GridSlice slice) noexcept;
    template <bool low, bool high> void filter(float* const* x, int n) noexcept;

    int channels_ = 0;
    double sampleRate_ = 48000;
    DiodeCircuit diode_;
    Smoothed<float> drive_;
    bool isSaturating_ = false;
    bool cutsLow_ = false, cutsHigh_ = false;
    bool highBegins_ = false;  // the high cut has just come in
    SvfCoefficients low_[2], high_[2];
    float diodeState_[2]{};                            // by channel, in units of the driven input
    SvfStateOf<Pair> lowState_[2]{}, highState_[2]{};  // by section
};

}  // namespace quillworks
