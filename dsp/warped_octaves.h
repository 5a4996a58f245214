// SPDX-License-Identifier: ISC
// Warped corners of filters that move many times in a sub-block, several at once.
#pragma once

namespace quillworks {

/// Frequencies given as octaves above 1 Hz become hertz in `hertz`, which may be the same array,
/// and in `g` what warpedFrequency() of dsp/section.h gives for them, within 1e-12 of its value.
/// `count` is rounded up to a multiple of 8: the arrays hold as many, and `octaves` below 1000.
extern void (*const warpOctaves)(const double* octaves, double* hertz, double* g, int count,
                                 double sampleRate);

}  // namespace quillworks
