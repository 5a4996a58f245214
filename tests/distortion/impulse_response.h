// SPDX-License-Identifier: ISC
// The response to a single sample.
#pragma once

#include <complex>

#include "tests/support/signals.h"

namespace quillworks::test {

/// Of the impulse of `height` that stood at frame `at`: what came of it at a frequency.
inline std::complex<double> responseTo(double height, std::size_t at, const Signal<double>& h,
                                       double frequency, double sampleRate)
{
    std::complex<double> sum = 0;
    for (std::size_t i = 0; i < h.size(); ++i)
        sum += h[i] / height *
               std::polar(1.0, -2 * std::numbers::pi * frequency / sampleRate *
                                   (double(i) - double(at)));
    return sum;
}

}  // namespace quillworks::test
