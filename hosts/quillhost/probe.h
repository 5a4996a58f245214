// SPDX-License-Identifier: ISC
// Measures an effect from outside: with steady signals, an impulse and a step.
#pragma once

#include <complex>
#include <vector>

#include "chain.h"

namespace quillhost {

/// One effect, fed with the same signal on every channel. Levels in dB relative to full scale.
class Probe {
public:
    static constexpr double kRate = 48000;

    explicit Probe(const Effect& effect);

    int channels() const noexcept { return chain_.output().channels; }
    /// Level of the first channel when a square wave of 1 kHz has gone on at `level` until the
    /// output is steady. Its peak and its mean power are the same, so that followers of either kind
    /// see that level.
    double steadyLevel(double level);
    /// Gain and phase of the first channel for a sine at a low level, the reported delay taken out.
    std::complex<double> response(double frequency);
    /// Every channel's answer to an impulse of full scale, or to a step to half of it.
    std::vector<std::vector<float>> impulse(double seconds);
    std::vector<std::vector<float>> step(double seconds);
    /// How long the effect answers, within 0.5 to 5 seconds.
    double answerSeconds() const;

private:
    template <class Signal> std::vector<std::vector<float>> play(double seconds, Signal signal);

    Chain chain_;
    Planes<double> planes_;
};

}  // namespace quillhost
