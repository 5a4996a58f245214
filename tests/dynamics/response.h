// SPDX-License-Identifier: ISC
// Frequency response of what an impulse became.
#pragma once

#include <complex>
#include <numbers>

#include "tests/support/signals.h"

namespace quillworks::test {

/// In dB.
template <typename T> double responseAt(const Signal<T>& y, double frequency, double rate)
{
    std::complex<double> h = 0;
    for (std::size_t i = 0; i < y.size(); ++i)
        h += double(y[i]) * std::polar(1.0, -2 * std::numbers::pi * frequency / rate * double(i));
    return db(std::abs(h));
}

}  // namespace quillworks::test
