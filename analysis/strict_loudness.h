// SPDX-License-Identifier: ISC
// Programme loudness as EBU Tech 3341 and 3342 and ITU-R BS.1770 measure it, in constant memory.
#pragma once
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "analysis/loudness_histogram.h"
#include "dsp/power_window.h"

namespace quillworks {

/// Powers sorted into bins of 0.01 LU from -70 to +10 LUFS, each bin standing for the mean of what
/// it holds, so that sums over whole bins are exact. Powers below -70 LUFS are left out.
class PowerBins {
public:
    PowerBins();  // may throw std::bad_alloc
    void clear() noexcept;
    void add(double power) noexcept;
    /// Mean power of all above `gate`; 0 if there are none.
    double mean(double gate = 0) const noexcept;
    /// Power of the values at or above `gate` that stands at the fraction 0 .. 1 of their sorted
    /// list; 0 if there are none.
    double quantile(double fraction, double gate) const noexcept;

private:
    struct Bin {
        double sum = 0;
        std::uint32_t count = 0;
        bool reaches(double gate) const noexcept { return sum >= gate * count; }
    };
    std::vector<Bin> bins_;
};

/// Readings every 10 ms over full windows only. The powers of all channels of 10 ms are summed up
/// in integers; windows are added up from those, so that they never drift.
class StrictLoudness {
public:
    /// LUFS; what has nothing to report is not-a-number.
    struct Results {
        double momentaryMax, shortTermMax, integrated, range, rangeLow, rangeHigh;
    };

    /// May throw std::bad_alloc.
    void prepare(double sampleRate, int channels);
    void reset() noexcept;
    /// Forgets what has been measured; the windows go on.
    void restart() noexcept;

    /// Samples to the next reading, at least 1.
    int untilNext() const noexcept { return static_cast<int>(next_ - position_); }
    /// The K-weighted squares of a channel, at most untilNext() of them.
    void add(int channel, const PowerQuanta& squares) noexcept;
    /// n samples have been added to every channel.
    void advance(int n, std::span<const double> weights) noexcept;

    /// The programme is over; what is added from here on counts for the range alone.
    void endProgramme() noexcept { isOver_ = true; }
    /// Works the results out.
    Results evaluate() const noexcept;

    /// LUFS over the last full window, -70 before there is one.
    double momentary() const noexcept { return momentary_; }
    double shortTerm() const noexcept { return shortTerm_; }

private:
    static constexpr int kMomentary = 40, kShortTerm = 300;  // readings in a window

    std::int64_t instant(std::int64_t reading) const noexcept
    {
        return static_cast<std::int64_t>(double(reading) * sampleRate_ / 100 + 0.5);
    }
    void read(std::span<const double> weights) noexcept;
    double windowPower(int readings) const noexcept;

    double sampleRate_ = 44100;
    std::vector<std::int64_t> sums_;             // per channel, since the last instant
    std::array<double, kShortTerm> segments_{};  // power between instants, over all channels
    std::int64_t reading_ = 0;                   // instants passed
    std::int64_t position_ = 0, next_ = 1;       // samples
    bool isOver_ = false;
    double momentary_ = kAbsoluteGate, shortTerm_ = kAbsoluteGate;
    double momentaryMax_ = 0, shortTermMax_ = 0;  // power
    PowerBins blocks_, shortTerms_;
};

}  // namespace quillworks
