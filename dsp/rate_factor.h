// SPDX-License-Identifier: ISC
// How much longer transforms are at higher sample rates.
#pragma once

namespace quillworks {

/// Factor of the lengths of transforms at a sample rate, so that they last about as long at all:
/// 1 below 50 kHz, 2 below 100, 4 below 200, 8 above.
constexpr int rateFactor(double sampleRate)
{
    return sampleRate < 50000 ? 1 : sampleRate < 100000 ? 2 : sampleRate < 200000 ? 4 : 8;
}

}  // namespace quillworks
