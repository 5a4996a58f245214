// SPDX-License-Identifier: ISC
// Quantisers with steps of any size, dithered.
#pragma once

#include <cstdint>

namespace quillworks {

enum class QuantiserLaw : int {
    MidTread,  // round(L x)/L: silence is a level
    MidRise,   // (floor(L x) + 1/2)/L: silence lies between two levels, which are symmetric
    MuLaw,     // mid-tread behind the telephone's logarithmic law, mu = 255 (ITU-T G.711)
    None,      // the signal as it is, however loud
};

/// What a block of samples is quantised with, sample by sample. L = 2^(bits - 1) is the number of
/// steps from 0 to full scale and may be any number from 1 to 2^23.
struct QuantiserBlock {
    const double* steps;   // L
    const double* dither;  // share of triangular dither of +-1 step (Lipshitz, Wannamaker and
                           // Vanderkooy 1992); null for none
    std::uint32_t index;   // number of the first sample: the dither is a function of it
    std::uint32_t voice;   // and of this
};

/// Up to kMaxQuantised samples in place. All but None limit to full scale first.
inline constexpr int kMaxQuantised = 128;
void quantise(QuantiserLaw law, double* x, int n, const QuantiserBlock& block) noexcept;

}  // namespace quillworks
