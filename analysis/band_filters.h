// SPDX-License-Identifier: ISC
// Octaves and parts of octaves after IEC 61260-1:2014, and the filters that tell them apart.
#pragma once

#include <vector>

namespace quillworks {

/// A band of 1/fraction octaves, base ten. Hz.
struct Band {
    double centre, lower, upper;
};

/// The bands of 1/fraction octave whose centre is at least `lowest` and whose upper edge lies below
/// half the sample rate, from low to high.
std::vector<Band> bandsOf(int fraction, double sampleRate, double lowest = 15.5);

/// Three sections in series, a Butterworth band-pass of order 6: each y = x' + z1 with
/// z1 = z2 - a1 y and z2 = -a2 y - x', where x' of the first is gain times the input, so zeros lie
/// at 0 Hz and half the rate.
struct BandFilter {
    double gain, a1[3], a2[3];
};
/// Bilinear with both edges at their place and a gain of 1 in the geometric middle of the warped
/// edges.
BandFilter bandFilter(const Band& band, double sampleRate);

}  // namespace quillworks
