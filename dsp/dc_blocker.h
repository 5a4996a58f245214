// SPDX-License-Identifier: ISC
// First-order high-pass that takes a constant offset out of a signal.
#pragma once

#include <cmath>
#include <numbers>

#include "dsp/sanitise.h"

namespace quillworks {

/// y = g (x - x1) + rho y1. Pole and states are doubles in both precisions: at 192 kHz the pole
/// lies 1e-4 from the unit circle, where floats lose the offset they should remove.
class DcBlocker {
public:
    /// Corner frequency in Hz, above 0 and far below the sample rate.
    void prepare(double sampleRate, double corner = 3) noexcept
    {
        rho_ = std::exp(-2 * std::numbers::pi * corner / sampleRate);
        gain_ = (1 + rho_) / 2;  // 1 at half the sample rate
    }
    void reset() noexcept { x1_ = y1_ = 0; }

    template <typename T> void process(T* x, int n) noexcept
    {
        double x1 = x1_, y1 = y1_;
        for (int i = 0; i < n; ++i) {
            const double in = x[i];
            y1 = gain_ * (in - x1) + rho_ * y1;
            x1 = in;
            if (!isSound(y1)) x1 = y1 = 0;  // a bad sample would ring for long
            x[i] = static_cast<T>(y1);
        }
        if (std::abs(y1) < 1e-20) y1 = 0;
        x1_ = x1;
        y1_ = y1;
    }

private:
    double rho_ = 0, gain_ = 0;
    double x1_ = 0, y1_ = 0;
};

}  // namespace quillworks
