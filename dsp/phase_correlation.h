// SPDX-License-Identifier: ISC
// Correlation of two channels over the recent past.
#pragma once
#include <algorithm>
#include <cmath>

#include "dsp/pair_power.h"

namespace quillworks {

/// Means of products with one time constant. 1 for equal channels, -1 for inverted ones, about 0
/// for unrelated ones and while either is silent. Fed by the sample, or by the sub-block: a
/// thirtieth of the work, and the same but for ripple within the sub-block.
class PhaseCorrelation {
public:
    /// Time constant in seconds (exp(-1) is left after it).
    void prepare(double sampleRate, double seconds = 0.3) noexcept
    {
        keep_ = std::exp(-1 / (sampleRate * seconds));
        keepSubBlock_ = std::exp(-kSubBlock / (sampleRate * seconds));
    }
    void reset() noexcept { xy_ = xx_ = yy_ = 0; }

    template <typename T> void add(const T* x, const T* y, int n) noexcept
    {
        const double keep = keep_, take = 1 - keep_;
        double xy = xy_, xx = xx_, yy = yy_;
        for (int i = 0; i < n; ++i) {
            const double a = x[i], b = y[i];
            xy = keep * xy + take * (a * b);
            xx = keep * xx + take * (a * a);
            yy = keep * yy + take * (b * b);
        }
        xy_ = finite(xy);
        xx_ = finite(xx);
        yy_ = finite(yy);
    }
    /// What a whole sub-block held, finite.
    void addSubBlock(const PairMoments& m) noexcept
    {
        xy_ = m.xy + keepSubBlock_ * (xy_ - m.xy);
        xx_ = m.xx + keepSubBlock_ * (xx_ - m.xx);
        yy_ = m.yy + keepSubBlock_ * (yy_ - m.yy);
    }

    // The means themselves.
    double xy() const noexcept { return xy_; }
    double xx() const noexcept { return xx_; }
    double yy() const noexcept { return yy_; }

    /// Whether both channels are loud enough to be compared.
    bool hasValue() const noexcept
    {
        constexpr double silence = 1e-12;
        return xx_ >= silence && yy_ >= silence;
    }
    double value() const noexcept
    {
        if (!hasValue()) return 0;
        return std::clamp(xy_ / std::sqrt(xx_ * yy_), -1.0, 1.0);
    }

private:
    static double finite(double sum) noexcept { return std::isfinite(sum) ? sum : 0; }

    double keep_ = 0, keepSubBlock_ = 0;
    double xy_ = 0, xx_ = 0, yy_ = 0;
};

}  // namespace quillworks
