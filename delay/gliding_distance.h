// SPDX-License-Identifier: ISC
// A read distance that slides to its target sample by sample.
#pragma once
#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"

namespace quillworks {

/// One-pole in fractions of a sample: a distance that moved in whole samples would click at every
/// step.
class GlidingDistance {
public:
    void prepare(double halfLifeSamples) noexcept { factor_ = halfLifeFactor(halfLifeSamples); }
    void target(double samples) noexcept { target_ = samples; }
    void snap() noexcept { now_ = target_; }
    bool isResting() const noexcept { return now_ == target_; }
    double current() const noexcept { return now_; }

    /// The next n distances. The last 10^-4 sample is taken at once.
    void next(double* distances, int n) noexcept
    {
        double way = now_ - target_;
        for (int i = 0; i < n; ++i) {
            way *= factor_;
            distances[i] = target_ + way;
        }
        if (std::abs(way) < 1e-4) {
            way = 0;
            distances[n - 1] = target_;
        }
        now_ = target_ + way;
    }

private:
    double now_ = 0, target_ = 0;
    double factor_ = 0;
};

}  // namespace quillworks
