// SPDX-License-Identifier: ISC
// How a tank takes over from a recorded response: what it is fed with, how its sound is equalised,
// and where the recording fades into it.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "reverb/decay_design.h"
#include "reverb/response.h"
#include "reverb/tank.h"

namespace quillworks {

/// The tank behind a response of so many channels, all of them its inputs and its outputs.
TankSpec continuedTankSpec(double sampleRate, int channels);
/// Size and all-passes, which are always the same; then prepared.
template <typename T>
void prepareContinuedTank(Tank<T>& tank, double sampleRate, int channels,
                          const std::array<double, OctaveDecayDesign::kBands>& t60)
{
    constexpr double kShortest = 0.03, kSpan = 0.005, kAllPass = 0.5;
    tank.setSize(kShortest, kSpan);
    tank.setAllPass(kAllPass);
    tank.setDecay(t60);
    tank.prepare(continuedTankSpec(sampleRate, channels));
}

struct ContinuedTail {
    double start = 0;                                     // s, in the response
    std::array<double, OctaveDecayDesign::kBands> t60{};  // s, as the response decays
    ResponseChannels feeds;  // what the paths of the matrix feed the tank's inputs through
    std::vector<DecayGains> equaliser;  // of each output of the tank
    double convolvedSeconds = 0;        // that are left of the response
};

/// Makes the end of a response the tank's, from about `start` seconds on. The tank is fed with the
/// segment of the response that ends there, so that it starts dense and with the room's colour. It
/// is tried out on that: an equaliser brings each octave to the level to which the response's
/// decay has been fitted, and as the tank builds up the response fades, so that the sum of their
/// powers is what the fit says. `matrix` is shortened to where the fade ends.
///
/// Nothing, and the matrix as it was, where the response is too short or has no decay.
///
/// [worker thread] May throw std::bad_alloc and Cancelled.
std::optional<ContinuedTail> continueWithTank(ResponseMatrix& matrix, int channels, double start,
                                              double sampleRate,
                                              const IsCancelled& isCancelled = {});

}  // namespace quillworks
