// SPDX-License-Identifier: ISC
// What is kept of a response in songs and presets, so that something like it can be played where
// its file is gone.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "framework/stored_state.h"
#include "reverb/decay_analysis.h"
#include "reverb/response.h"

namespace quillworks {

struct ResponseFingerprint {
    struct Channel {
        /// Mean square of the decay at `time` in each octave; 0 where it has none.
        std::array<double, kOctaves> density{};
        double firstTime = 0;  // seconds to the first sound
        double firstGain = 0;  // that of one sample in its place, with its sign
        double energy = 0;     // sum of the squares
    };

    double sampleRate = 0;               // Hz, of the response that density and energy are of
    double time = 0;                     // seconds, where the decay is measured from
    std::array<double, kOctaves> t60{};  // seconds, mean of the channels; 0: there is no decay
    std::vector<Channel> channels;

    /// Whether there is a decay to imitate.
    bool hasTail() const noexcept;

    /// A few hundred bytes; attribute "irfit".
    Blob blob() const;
    /// Nothing where it is not of this kind, or holds numbers that no response has.
    static std::optional<ResponseFingerprint> of(const Blob& blob);
};

/// Fits the octaves from 62.5 Hz to 8 kHz over 25 dB from `time` seconds on. 31.25 Hz takes the
/// figures of 62.5 Hz, 16 kHz those of 8 kHz with 0.7 of its time; an octave without a decay takes
/// the time of its neighbour below, else above. The first sound is the first sample within 20 dB of
/// the peak; its gain the root of the energy of the 5 ms from there on, with the sign of the
/// largest sample in them.
ResponseFingerprint fingerprintOf(const ResponseChannels& response, double time, double sampleRate,
                                  const IsCancelled& isCancelled = {});

}  // namespace quillworks
