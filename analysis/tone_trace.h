// SPDX-License-Identifier: ISC
// Two periods of a tone generator's signal as a curve, from its formula.
#pragma once

#include <vector>

#include "analysis/tone_source.h"

namespace quillworks {

struct ToneTrace {
    double period = 0;            // seconds; NaN where the signal has none
    std::vector<double> samples;  // of two periods, the first of all channels; else none
};

/// `signals` may be null: then there is nothing of those to draw. Of a sweep its first frequency is
/// shown. Allocates.
ToneTrace traceOf(const ToneSettings& settings, double sampleRate, const PeriodicSignals* signals);

}  // namespace quillworks
