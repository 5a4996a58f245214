// SPDX-License-Identifier: ISC
// Power spectra averaged over time, and their maxima.
#pragma once

#include <vector>

#include "analysis/held_powers.h"
#include "analysis/spectrum_frames.h"

namespace quillworks {

/// Powers are such that a sine of peak 1 in the middle of a bin has 1 there; the bins at 0 Hz and
/// half the sample rate are counted once, the others twice. Several signals give a curve each, or
/// one of what is loudest in each bin.
class AveragedSpectrum {
public:
    using Powers = std::vector<double>;  // bin by bin

    /// Nothing is known. May throw std::bad_alloc.
    void prepare(int signals, bool isLoudest, int length, WindowShape window, double sampleRate);
    void release() noexcept;
    /// Windows begin anew with frame `first`; averages and maxima go on.
    void begin(std::int64_t first) noexcept { frames_.begin(first); }
    /// Nothing is known.
    void clear() noexcept;

    /// Time constant in seconds; 0 for none, infinity for the mean, which choosing it begins anew.
    void setAverage(double seconds) noexcept;
    /// Seconds; 0 for none, infinity for ever.
    void setHold(double seconds) noexcept;
    /// The next transform begins averages and maxima anew.
    void restart() noexcept;

    /// The next n frames of each signal; calls complete() behind every transform.
    template <class F> void take(const float* const* x, int n, F&& complete)
    {
        frames_.take(x, n, [&] {
            average();
            complete();
        });
    }

    const SpectrumFrames& frames() const noexcept { return frames_; }
    bool hasFigures() const noexcept { return hasFigures_; }
    /// Curves of the last transform alone.
    std::vector<Powers> latest() const;
    /// Averaged; with figures.
    const Powers& curve(std::size_t i) const noexcept
    {
        return isLoudest_ ? loudest_ : averaged_[i];
    }
    std::size_t curves() const noexcept { return isLoudest_ ? 1 : averaged_.size(); }
    /// Empty where nothing is held.
    const Powers& held(std::size_t i) const noexcept { return held_[i].values(); }
    /// Mean square of the loudest signal, twice: 1 for a sine of peak 1. `weights`: factors of the
    /// bins' powers.
    double power(const Powers& weights) const noexcept;

private:
    void average();

    SpectrumFrames frames_;
    bool isLoudest_ = false, hasFigures_ = false;
    double rate_ = 1, averageSeconds_ = 0, holdSeconds_ = 0;
    std::int64_t count_ = 0;  // transforms in the average
    std::vector<float> spectrum_, squares_;
    std::vector<Powers> latest_, averaged_;  // signal by signal
    Powers loudest_;
    std::vector<HeldPowers> held_;  // curve by curve
};

}  // namespace quillworks
