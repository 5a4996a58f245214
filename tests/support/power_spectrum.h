// SPDX-License-Identifier: ISC
// Power spectra clean enough to look for aliases in.
#pragma once

#include "dsp/fft.h"
#include "dsp/kaiser.h"
#include "tests/support/signals.h"

namespace quillworks::test {

/// Power spectrum under a Kaiser window whose side lobes lie below -180 dB, such that the bins of a
/// sine of peak 1 add up to 1.
template <typename T>
std::vector<double> powerSpectrum(const Signal<T>& x, std::size_t from, std::size_t n)
{
    const KaiserWindow window(20);
    AlignedBuffer<double> signal(n), bins(n);
    double squares = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double w = window(2 * double(i) / double(n - 1) - 1);
        squares += w * w;
        signal[i] = w * double(x[from + i]);
    }
    Fft<double> fft;
    fft.setSize(static_cast<std::uint32_t>(n));
    fft.forward(signal.data(), bins.data());
    std::vector<double> power(n / 2);
    for (std::size_t k = 0; k < n / 2; ++k)
        power[k] =
            fft.binPower(bins.data(), static_cast<std::uint32_t>(k)) * 4 / (squares * double(n));
    return power;
}

}  // namespace quillworks::test
