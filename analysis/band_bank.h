// SPDX-License-Identifier: ISC
// Levels of all bands of 1/1 to 1/24 octave at once.
#pragma once

#include <cstdint>
#include <vector>

#include "analysis/band_filters.h"
#include "dsp/aligned_buffer.h"
#include "dsp/midpoint_filter.h"

namespace quillworks {

/// Filters of class 1 (IEC 61260-1:2014); of bands finer than thirds, those up to 0.44 of the
/// sample rate. The bilinear transform leaves the standard's limits where a band lies high against
/// the sample rate, so the signal is doubled first and then halved again and again, and each band
/// runs at the lowest of these rates that is far enough above it. A level depends on the samples
/// alone, not on how they are divided into calls.
class BandBank {
public:
    /// `fraction`: 1, 3, 6, 12 or 24. May throw std::bad_alloc.
    void prepare(int channels, double sampleRate, int fraction);
    void release() noexcept;
    /// The filters forget the signal; what has been averaged stays.
    void begin() noexcept;
    /// Averages begin anew.
    void clearAverages() noexcept;
    /// Time constant in seconds; infinity for the mean since then. Choosing that begins it anew.
    void setAverage(double seconds) noexcept;
    void process(const float* const* x, int n) noexcept;

    const std::vector<Band>& bands() const noexcept { return bands_; }
    /// The mean square of a band.
    double power(int channel, int band) const noexcept;
    /// Its highest value since the last call.
    double takeHighest(int channel, int band) noexcept;

private:
    /// What one channel keeps at a rate.
    struct State {
        MidpointFilter<float> halving;  // to the next rate
        std::vector<double> rows;       // z1, z2 of three sections, power, highest
        std::vector<float> x = {};      // of this call
        float left = 0;                 // a sample whose other half of a pair is to come
        bool hasLeft = false;
        std::int64_t averaged = 0;  // samples, of a mean
    };
    /// Bands that run at one rate.
    struct Level {
        double rate = 0;
        int first = 0, count = 0, lanes = 0;
        std::vector<double> rows;  // gain, a1, a2
        double keep = 1, take = 1;
        std::vector<State> channels;
    };
    struct Place {
        int level, lane;
    };
    void run(std::size_t channel, const float* x, int n) noexcept;
    void filter(Level& level, State& state) const noexcept;
    void halve(State& from, State& to) noexcept;
    double averaged(const State& state, double power) const noexcept;

    std::vector<Band> bands_;
    std::vector<Place> places_;  // band by band
    std::vector<Level> levels_;  // from the highest rate on
    std::vector<MidpointFilter<float>> doubling_;
    double average_ = 0.125;
    bool isMean_ = false;
};

}  // namespace quillworks
