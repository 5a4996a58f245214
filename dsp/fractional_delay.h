// SPDX-License-Identifier: ISC
// Delay by any number of samples from 0 on, for short delays far below half the sample rate.
#pragma once

#include <algorithm>

#include "dsp/control_grid.h"
#include "dsp/recent_samples.h"

namespace quillworks {

/// Third-order Lagrange interpolation (Laakso, Välimäki, Karjalainen and Laine, "Splitting the unit
/// delay", 1996): no latency of its own, exact on samples, flat within 0.1 dB to an eighth of the
/// sample rate. For more treble there is `TapReader`.
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
            const Weights w(delays[i]);
            out[i] = w.of(x + i);
        }
    }
    /// The same by one delay.
    void process(T* out, const T* in, double delay, int n) noexcept
    {
        const T* const x = append(in, n);
        const Weights w(delay);
        for (int i = 0; i < n; ++i) out[i] = w.of(x + i);
    }

private:
    struct Weights {
        explicit Weights(double delay)
        {
            // The four samples around the point, or the newest ones.
            first = std::max(0, static_cast<int>(delay) - 1);
            const double u = delay - first, a = u - 1, b = u - 2, c = u - 3;
            tap[0] = static_cast<T>(a * b * c / -6);
            tap[1] = static_cast<T>(u * b * c / 2);
            tap[2] = static_cast<T>(u * a * c / -2);
            tap[3] = static_cast<T>(u * a * b / 6);
        }
        T of(const T* x) const
        {
            x -= first;
            return tap[0] * x[0] + tap[1] * x[-1] + tap[2] * x[-2] + tap[3] * x[-3];
        }
        int first;
        T tap[4];
    };
    const T* append(const T* in, int n)
    {
        std::copy_n(in, n, past_.append(n));
        return past_.end() - n;
    }

    RecentSamples<T> past_;
};

}  // namespace quillworks
