// SPDX-License-Identifier: ISC
// Tables of signals with a period that transforms like: many tones at once whose lines do not leak.
#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace quillworks {

/// Doublings that keep lengths in seconds alike: 1 below 50 kHz, 2 below 100, 4 below 200, else 8.
int rateMultiple(double sampleRate) noexcept;
/// The period in samples.
inline int periodicLength(double sampleRate) noexcept
{
    return 32768 * rateMultiple(sampleRate);
}

/// One period, such that its peak between the samples is 1.
struct PeriodicSignal {
    std::vector<double> samples;
    double rms = 1;
};

/// Both signals of a rate.
struct PeriodicSignals {
    double rate = 0;
    /// Tones of one amplitude on the odd lines nearest to the centres of third octaves from 20 Hz
    /// to 20 kHz or 0.45 of the rate, in the phases of Newman (1965), which keep the crest low.
    PeriodicSignal multitone;
    /// Every line there, at equal power per octave, in phases found by clipping (Van der Ouderaa,
    /// Schoukens and Renneboog 1988).
    PeriodicSignal pink;

    /// The signals of a rate, which all who ask share. Plans transforms and takes some tenths of a
    /// second; null if cancelled. Throws std::bad_alloc. [worker]
    static std::shared_ptr<const PeriodicSignals> of(double sampleRate,
                                                     const std::function<bool()>& isCancelled);
};

}  // namespace quillworks
