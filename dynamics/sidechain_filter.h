// SPDX-License-Identifier: ISC
// The filter in front of a detector: a low-cut and a high-cut, in series they pass a band, with
// their frequencies swapped they are averaged in parallel and reject it.
#pragma once

#include <algorithm>
#include <vector>

#include "dsp/control_grid.h"
#include "dsp/svf.h"

namespace quillworks {

/// Low-cut: fourth-order Butterworth, 24 dB per octave; high-cut: second order, 12 dB per octave.
/// Computed in double in both precisions of an effect, like the detectors behind it.
class SidechainFilter {
public:
    static constexpr double kLowest = 20, kHighest = 16000;  // Hz; beyond, a stage is left out

    /// Allocates.
    void prepare(double sampleRate, int channels);
    void reset() noexcept;
    /// All channels go on from where the first one stands.
    void spread() noexcept { std::fill(channels_.begin(), channels_.end(), channels_.front()); }
    /// Corner frequencies in Hz, at once. Which of them is higher decides on the form; a change of
    /// form waits for the next sub-block and is cross-faded over it.
    void tune(double lowCut, double highCut) noexcept { tune(lowCut, highCut, highCut < lowCut); }
    /// For frequencies that glide: the form is given.
    void tune(double lowCut, double highCut, bool isParallel) noexcept;
    bool isActive() const noexcept { return lowCutOn_ || highCutOn_; }

    /// Once per slice, before run().
    void next(GridSlice slice) noexcept;
    /// One channel, in place.
    void run(int channel, double* x, GridSlice slice) noexcept;

private:
    struct Channel {
        SvfState lowCut[2], highCut;
        SvfState fadingHighCut;  // of the form that is being left
    };

    void lowCut(Channel& channel, double* x, int n) const noexcept;
    void highCut(SvfState& state, double* x, int n) const noexcept;
    void series(Channel& channel, double* x, int n) const noexcept;
    void parallel(Channel& channel, double* x, int n) const noexcept;
    void crossFade(Channel& channel, double* x, GridSlice slice) const noexcept;

    double sampleRate_ = 44100;
    SvfCoefficients lowCutSection_[2], highCutSection_;
    bool lowCutOn_ = false, highCutOn_ = false;
    bool wantsParallel_ = false, isParallel_ = false;
    bool isFading_ = false;
    std::vector<Channel> channels_;
};

}  // namespace quillworks
