// SPDX-License-Identifier: ISC
// Frequency weightings of sound level meters.
#pragma once

namespace quillworks {

enum class Weighting { Z, A, B, C };

/// Amplitude at a frequency in Hz, 1 at 1 kHz. A and C after IEC 61672-1, B after IEC 60651; exact,
/// as a digital filter near half the sample rate is not. Z is 1.
double weightingGain(Weighting weighting, double frequency) noexcept;

}  // namespace quillworks
