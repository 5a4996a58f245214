// SPDX-License-Identifier: ISC
// Magnitudes of the filters that displays draw, from the analogue prototypes: the digital ones
// depart from them only next to half the sample rate. Frequencies in Hz, gains in dB.
#pragma once

#include <complex>

namespace quillworks::editors {

using Response = std::complex<double>;

double toDecibel(const Response& response) noexcept;

/// Butterworth, order 2 or 4.
Response lowCut(double frequency, double cut, int order = 2);
Response highCut(double frequency, double cut, int order = 2);

/// Of an equaliser, with A = 10^(gain/40) and s in units of the centre:
/// (s^2 + s A/Q + 1)/(s^2 + s/(A Q) + 1), and shelves of Q 0.7071.
Response bell(double frequency, double centre, double gain, double q);
Response lowShelf(double frequency, double centre, double gain);
Response highShelf(double frequency, double centre, double gain);

/// Types of a swept filter, in the order of its list.
enum class SweptType { Low12, Low24, High12, High24, Band12, Band24, Notch, Peak };
/// `resonance` 0 .. 1.
Response swept(double frequency, SweptType type, double cutOff, double resonance);

/// A low cut and a high cut, two sections each, whose peaks grow with `resonance`: 1 has none.
Response resonantCuts(double frequency, double low, double high, double resonance);

/// A phaser: `stages` first-order all-passes at one corner in a loop of gain `feedback`, scaled so
/// that noise keeps its power, beside the dry signal.
Response phaser(double frequency, double corner, int stages, double feedback, double mix);

/// A flanger: a copy `delay` s later (earlier, below 0), in a loop of gain `feedback` through a
/// first-order low-pass at `damping` Hz, beside the dry signal.
struct Comb {
    double delay = 0;
    double feedback = 0;
    double damping = 20000;
    bool isInverted = false;
    double mix = 0.5;
};
Response comb(double frequency, const Comb& settings);

}  // namespace quillworks::editors
