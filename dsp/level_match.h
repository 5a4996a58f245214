// SPDX-License-Identifier: ISC
// The gain that makes up what a saturation adds to or takes from the level.
#pragma once

#include "dsp/saturation.h"

namespace quillworks {

/// sigma / sqrt(Var f(gain sigma xi + bias)), xi normally distributed and sigma at -18 dBFS: behind
/// the curve, driven by `gain` (linear, above 0), it leaves noise of that level at its level, to
/// either side of which programme lies. 257 points of the trapezoidal rule over +-8 deviations,
/// some tenths of a microsecond: may be called on the audio thread for each sub-block.
double levelMatch(Saturation curve, double gain, double bias) noexcept;

}  // namespace quillworks
