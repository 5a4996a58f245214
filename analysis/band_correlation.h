// SPDX-License-Identifier: ISC
// How alike two channels are in each octave or third.
#pragma once

#include <complex>
#include <vector>

#include "analysis/band_filters.h"
#include "analysis/spectrum_frames.h"

namespace quillworks {

/// Cross-spectra of Hann-windowed transforms of 8192 frames (times rateFactor()), summed over the
/// bins of each band and averaged.
class BandCorrelation {
public:
    struct Value {
        double correlation, coherence;  // not-a-number in silence
        /// Both channels are above -80 dB of a full-scale sine there and within 50 dB of their
        /// loudest band.
        bool isValid;
    };

    /// Nothing is known. Bands from 31.5 Hz to 16 kHz. May throw std::bad_alloc.
    void prepare(double sampleRate, int fraction);
    void release() noexcept;
    /// The next frame is number `first`; averages go on.
    void begin(std::int64_t first) noexcept { frames_.begin(first); }
    /// Forgets averages.
    void clear() noexcept;
    /// Time constant in seconds; of bands below 250 Hz at least 1 s, since they have few bins.
    void setTime(double seconds) noexcept { seconds_ = seconds; }
    void take(const float* const* x, int n);

    const std::vector<Band>& bands() const noexcept { return bands_; }
    /// Of all bands; none before the first transform.
    std::vector<Value> values() const;

private:
    struct Sums {
        std::complex<double> cross;
        double left = 0, right = 0;
    };
    void add();

    double rate_ = 1, seconds_ = 0.3;
    bool isFirst_ = true;
    SpectrumFrames frames_;
    std::vector<float> spectra_[2];
    std::vector<Band> bands_;
    std::vector<Sums> averages_;  // band by band
};

/// The bands whose nominal centres are 31.5 Hz to 16 kHz.
std::vector<Band> correlationBands(int fraction, double sampleRate);

}  // namespace quillworks
