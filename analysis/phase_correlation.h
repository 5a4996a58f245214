// SPDX-License-Identifier: ISC
// Correlation of two channels over the recent past.
#pragma once
#include <algorithm>
#include <cmath>

namespace quillworks {

/// Sums of products with a time constant of 0.3 s. 1 for equal channels, -1 for inverted ones,
/// about 0 for unrelated ones and while either is silent.
class PhaseCorrelation {
public:
    void prepare(double sampleRate) noexcept { keep_ = std::exp(-1 / (sampleRate * 0.3)); }
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

    double value() const noexcept
    {
        constexpr double silence = 1e-12;
        if (!(xx_ >= silence && yy_ >= silence)) return 0;
        return std::clamp(xy_ / std::sqrt(xx_ * yy_), -1.0, 1.0);
    }

private:
    static double finite(double sum) noexcept { return std::isfinite(sum) ? sum : 0; }

    double keep_ = 0;
    double xy_ = 0, xx_ = 0, yy_ = 0;
};

}  // namespace quillworks
