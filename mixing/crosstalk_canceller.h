// SPDX-License-Identifier: ISC
// Ear signals over two loudspeakers: takes out what each speaker makes at the far ear.
#pragma once

#include <array>

#include "dsp/recent_samples.h"
#include "mixing/ear_filters.h"

namespace quillworks {

/// Recursive (Atal and Schroeder 1963; Gardner, "3-D audio using loudspeakers", 1998): each side
/// takes off what the other one's output makes at its ear, re what that makes at its own, 1.4 dB
/// short of all of it. That is delayed by a sample at least and below 1 at every frequency, so the
/// loop is stable. Below 150 Hz nothing is taken off: both ears hear the same there, and parting
/// them would take ever more power.
template <typename T> class CrosstalkCanceller {
public:
    /// Allocates.
    void prepare(double sampleRate);
    /// Silence, and everything where it is to be.
    void reset() noexcept;
    /// Angle between the speakers in degrees, and the head's radius in m. Glides.
    void place(double speakerAngle, double radius) noexcept;
    /// Ears become speakers, in place.
    void process(T* left, T* right, GridSlice slice) noexcept;

private:
    double sampleRate_ = 44100;
    Smoothed<double> delay_;        // samples
    Ramp<double> delayRamp_{1, 1};  // over the open sub-block
    OnePoleCoefficients<T> high_;
    std::array<OnePoleState<T>, 2> highState_;
    EarFilters<T> filters_;                 // the far ear re the near one
    std::array<RecentSamples<T>, 2> past_;  // what each side makes at the far ear, undelayed
};

}  // namespace quillworks
