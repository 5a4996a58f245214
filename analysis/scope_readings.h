// SPDX-License-Identifier: ISC
// What an oscilloscope reads from a trace.
#pragma once

#include <limits>
#include <optional>
#include <vector>

#include "analysis/scope_history.h"

namespace quillworks {

/// Full scale is 1; not-a-number where there is nothing to read.
struct ScopeReadings {
    static constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
    double frequency = kNothing;  // Hz
    double maximum = kNothing, minimum = kNothing, rms = kNothing, mean = kNothing;
    double dutyCycle = kNothing;  // share of the time above the middle of the extremes, 0 .. 1

    double peakToPeak() const noexcept { return maximum - minimum; }
};

class ScopeReader {
public:
    /// `x`: kScopeReach frames before the trace, and its `span`. Extremes are those of the signal
    /// between the samples, at 8 points each. Mean, RMS and duty cycle are taken over whole periods
    /// from the first crossing of the middle on, upwards or downwards; over all without two of
    /// them. `period` in samples, where the sound has one: a crossing counts if it is within a
    /// quarter of it from where the last one makes it expected.
    ScopeReadings read(const std::vector<float>& x, int span, double sampleRate, bool upwards,
                       std::optional<double> period);

private:
    /// The points that all readings are made of.
    void interpolate(const float* x, int span);
    /// f(place in samples, value) at every eighth of a sample where the signal's neighbours are
    /// known, at the samples elsewhere.
    template <class F> void forEachPoint(F&& f) const;
    void findCrossings(const float* x, int span, double middle, double margin, bool upwards);
    /// The first and the last of the crossings that are a whole number of periods apart.
    struct Periods {
        double first = 0, last = 0;
        int count = 0;
    };
    Periods wholePeriods(std::optional<double> period) const;

    ScopeInterpolator interpolator_;
    std::vector<float> points_;      // kPoints a sample, one near the end
    int between_ = 0;                // samples that have points between them
    std::vector<double> crossings_;  // in samples from the beginning
    std::size_t known_ = 0;          // of them, those between samples whose neighbours are known
};

}  // namespace quillworks
