// SPDX-License-Identifier: ISC
// How long a room rings at each frequency.
#pragma once

#include <array>

namespace quillworks {

/// Decay times of the middle and, as factors to it, of lows and highs, with smooth steps at two
/// frequencies; and what the air takes from the highs.
struct RoomDecay {
    double seconds = 1;                     // at 1 kHz, to -60 dB
    double low = 1, lowFrequency = 250;     // factor far below so many Hz
    double high = 1, highFrequency = 4500;  // and far above
    bool hasAir = false;                    // of 20 degrees Celsius and 50 % humidity

    /// Octave bands: 31.25 Hz to 16 kHz.
    static constexpr int kBands = 10;
    static constexpr int kMiddleBand = 5, kHighBand = 8;  // 1 and 8 kHz

    /// Decay times of the bands, within 0.05 .. 60 s.
    std::array<double, kBands> times() const noexcept;
};

}  // namespace quillworks
