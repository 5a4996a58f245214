// SPDX-License-Identifier: ISC
// Delay by any number of samples from 0 on, for short delays far below half the sample rate.
#pragma once

#include <algorithm>

#include "dsp/control_grid.h"
#include "dsp/recent_samples.h"

namespace quillworks {

/// Weights of the four samples around a point `delay` samples back, which is 0 or more: third-order
/// Lagrange interpolation (Laakso, Välimäki, Karjalainen and Laine, "Splitting the unit delay",
/// 1996), exact on samples. At the near end the point lies between the first two.
template <typename T> struct LagrangeWeights {
    /// The newest sample taken is at least `nearest` samples back.
    explicit LagrangeWeights(double delay, int nearest = 0) noexcept
        : first(std::max(nearest, static_cast<int>(delay) - 1))
    {
        const double u = delay - first, a = u - 1, b = u - 2, c = u - 3;
        tap[0] = static_cast<T>(a * b * c / -6);
        tap[1] = static_cast<T>(u * b * c / 2);
        tap[2] = static_cast<T>(u * a * c / -2);
        tap[3] = static_cast<T>(u * a * b / 6);
    }
    /// At the point behind `x`, the present sample.
    T of(const T* x) const noexcept
    {
        x -= first;
        return tap[0] * x[0] + tap[1] * x[-1] + tap[2] * x[-2] + tap[3] * x[-3];
    }
    int first;  // of the samples, counted back
    T tap[4];
};

/// By third-order Lagrange interpolation: no latency of its own, flat within 0.1 dB to an eighth of
/// the sample rate. For more treble there is `FarrowLine`.
template <typename T> class FractionalDelay {
public:
    /// For delays of 0 .. `longest` samples. Allocates.
    void prepare(double longest) { past_.prepare(static_cast<int>(longest) + 3, kSubBlock); }
    void reset() noexcept { past_.reset(); }

    /// n <= kSubBlock samples, each by its own delay. In place or not.
    void process(T* out, const T* in, const double* delays, int n) noexcept
    {
        const T* const x = append(in, n);
        for (int i = 0; i < n; ++i) {
            const LagrangeWeights<T> w(delays[i]);
            out[i] = w.of(x + i);
        }
    }
    /// The same by one delay.
    void process(T* out, const T* in, double delay, int n) noexcept
    {
        const T* const x = append(in, n);
        const LagrangeWeights<T> w(delay);
        for (int i = 0; i < n; ++i) out[i] = w.of(x + i);
    }

private:
    const T* append(const T* in, int n)
    {
        std::copy_n(in, n, past_.append(n));
        return past_.end() - n;
    }

    RecentSamples<T> past_;
};

}  // namespace quillworks
