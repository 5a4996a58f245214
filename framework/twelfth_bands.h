// SPDX-License-Identifier: ISC
// Powers of twelfths of an octave from a transform's bins.
#pragma once

#include <cstddef>
#include <vector>

namespace quillworks {

/// Bands from 20 Hz to 20 kHz, as far as they lie below half the sample rate. Each bin counts as
/// spread over half a bin to both sides, so that bands narrower than one take parts of it.
class TwelfthBands {
public:
    /// Of transforms of `size` frames, a power of two from 4 on. May throw std::bad_alloc.
    void prepare(std::size_t size, double sampleRate);

    std::size_t count() const noexcept { return bands_.size(); }
    /// The centre, in Hz.
    double hertz(std::size_t band) const noexcept { return bands_[band].centre; }
    /// In bins.
    double width(std::size_t band) const noexcept { return bands_[band].high - bands_[band].low; }

    /// No bin has any power; then the squared bins of packed spectra (dsp/packed_spectrum.h) are
    /// added. Bin 0 and that of half the sample rate belong to no band.
    void clear() noexcept;
    void add(const float* spectrum, double scale) noexcept;
    /// Of all that has been added.
    void sum() noexcept;
    double power(std::size_t band) const noexcept;

private:
    struct Band {
        double centre;     // Hz
        double low, high;  // edges in bins
    };
    double below(double bin) const noexcept;

    std::vector<Band> bands_;
    std::vector<double> sums_;  // of each bin; after sum() of all bins below each
};

}  // namespace quillworks
