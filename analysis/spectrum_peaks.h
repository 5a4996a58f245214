// SPDX-License-Identifier: ISC
// Tones in a spectrum: where they are and how loud.
#pragma once

#include <vector>

#include "analysis/spectrum_frames.h"

namespace quillworks {

struct SpectrumPeak {
    double frequency;  // Hz
    double level;      // dB of a sine's peak
};

/// The highest peaks of a spectrum, at most `most`, the highest first. `powers`: of each bin, 1 for
/// a sine of peak 1 in its middle; `weights`: factors of the powers by which peaks are compared and
/// of which their levels know nothing; `length` of the transform. A peak is a bin above its
/// neighbours, above -144 dB, and four times the lower of the minima beside it.
///
/// The top of a parabola through the decibels of three bins lies near the tone; what the window's
/// main lobe differs from a parabola by is a polynomial in the place of that top (fitted: within
/// 0.0001 dB and 0.0001 bins for Nuttall's and Hann's window). Others are read at the bin.
std::vector<SpectrumPeak> peaksOf(const std::vector<double>& powers,
                                  const std::vector<double>& weights, int length, double sampleRate,
                                  WindowShape window, std::size_t most);

}  // namespace quillworks
