// SPDX-License-Identifier: ISC
// The loop of BandBank, built per instruction set.
#pragma once

namespace quillworks {

/// Bands as lanes: every row holds one value per band. `lanes` is a multiple of kBandLanes.
struct BandRun {
    const double* gain;
    const double *a1[3], *a2[3];  // of the three sections
    double *z1[3], *z2[3];
    double* power;    // of the output: keep times itself plus take times each square
    double* highest;  // of `power`, ever
    double keep, take;
    int lanes;
};
inline constexpr int kBandLanes = 4;

/// n samples, the same for all bands.
extern void (*const runBands)(const BandRun& run, const float* x, int n);

}  // namespace quillworks
