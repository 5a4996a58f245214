// SPDX-License-Identifier: ISC
// Levels of bands averaged over time, and their maxima.
#pragma once

#include <vector>

#include "analysis/band_bank.h"
#include "analysis/held_powers.h"

namespace quillworks {

/// Powers are twice the mean square: 1 for a sine of peak 1 inside the band. Several signals give a
/// curve each, or one of what is loudest in each band.
class AveragedBands {
public:
    using Powers = std::vector<double>;  // band by band

    /// Nothing is known. May throw std::bad_alloc.
    void prepare(int signals, bool isLoudest, int fraction, double sampleRate);
    void release() noexcept;
    bool isRunning() const noexcept { return !held_.empty(); }
    /// The filters begin anew; averages and maxima go on.
    void begin() noexcept { bank_.begin(); }
    /// Time constant in seconds; infinity for the mean, which choosing it begins anew.
    void setAverage(double seconds) noexcept;
    /// Seconds; 0 for none, infinity for ever.
    void setHold(double seconds) noexcept;
    /// Averages and maxima begin anew.
    void restart() noexcept;
    /// The next frames of each signal, the first of number `first`.
    void take(const float* const* x, int n, std::int64_t first);

    const std::vector<Band>& bands() const noexcept { return bank_.bands(); }
    std::size_t curves() const noexcept { return held_.size(); }
    Powers curve(std::size_t i) const;
    /// Empty where nothing is held.
    const Powers& held(std::size_t i) const noexcept { return held_[i].values(); }

private:
    template <class F> Powers powersOf(std::size_t curve, F&& power) const;
    void hold();

    BandBank bank_;
    int signals_ = 0, grid_ = 1;  // frames after which maxima are looked for
    bool isLoudest_ = false;
    double rate_ = 1, averageSeconds_ = 0.125, holdSeconds_ = 0;
    std::vector<HeldPowers> held_;
};

}  // namespace quillworks
