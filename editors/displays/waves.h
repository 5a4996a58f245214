// SPDX-License-Identifier: ISC
// Shapes that displays draw: low-frequency oscillators, waveshapers and quantisers.
#pragma once

namespace quillworks::editors {

/// In the order of the effects' lists. Random is an example, the same at every call: what is heard
/// follows the song.
enum class ModulationWave { Triangle, Sine, Sawtooth, Square, Random };
/// -1 .. 1 at a phase in periods.
double modulationWave(ModulationWave wave, double phase) noexcept;

/// Waveshapers of slope 1 at 0, in the order of the list.
enum class ShaperCurve { Warm, Soft, Hard, Tube, Fold };
double shaped(ShaperCurve curve, double x) noexcept;

enum class QuantiserLaw { MidTread, MidRise, MuLaw };
/// |x| <= 1; from 24 bits on there is no quantiser.
double quantised(QuantiserLaw law, double bits, double x) noexcept;

}  // namespace quillworks::editors
