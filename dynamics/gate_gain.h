// SPDX-License-Identifier: ISC
// The gate's decisions and the curves of its gain.
#pragma once

#include <cstdint>

#include "dsp/control_grid.h"

namespace quillworks {

/// Opens where the key reaches the threshold and closes when it has stayed below a second one,
/// lower by the hysteresis, for the hold time: exact logic on the magnitudes, no level estimate, so
/// a steady tone never makes the gain ripple. Decided in double in both precisions, which so open
/// and close at the same samples.
///
/// Openings are raised cosines of the gain, closings of the gain in dB. Each starts at the present
/// gain, takes the full time, and ends on its target exactly; one that is interrupted leaves a
/// change of slope and never a step.
template <typename T> class GateGain {
public:
    static constexpr double kSilentRange = -96;  // dB; at and below it the gain is 0
    enum class State : std::uint8_t { Closed, Holding, Open };

    /// Times set before have to be set anew.
    void setSampleRate(double sampleRate) noexcept { sampleRate_ = sampleRate; }
    /// Closed or open, and settled.
    void reset(bool isOpen = false) noexcept;

    /// Level in dB at which it opens; it stays open down to `hysteresis` dB below.
    void setThreshold(double db, double hysteresis) noexcept;
    /// Gain in dB while closed, 0 or less. Taken within 20 ms, once what is under way has ended.
    void setRange(double db) noexcept;
    /// Exchanges the gains: the range while open, 1 while closed. Taken within 20 ms.
    void setDuck(bool ducks) noexcept;
    /// Seconds; those of an opening or closing count from the next one on. `lowCut` is the corner
    /// in Hz of a low cut in front of the key, 0 for none: the hold is at least 5/8 of its period,
    /// and 12.5 ms at most, so that no gap between two half-waves closes the gate.
    void setTimes(double attack, double hold, double release, double lowCut) noexcept;

    State state() const noexcept
    {
        if (!isOpen_) return State::Closed;
        return left_ == hold_ ? State::Open : State::Holding;
    }
    /// Gains for n magnitudes, 1 <= n <= kSubBlock, of which `peak` is the largest. Returns true if
    /// they are all the same and nothing moves; then gain[0] alone is written. How the signal is
    /// divided decides nothing but that.
    bool run(const double* key, double peak, T* gain, int n) noexcept;

private:
    int frames(double seconds) const noexcept;
    T aim() const noexcept { return isOpen_ != ducks_ ? T(1) : range_; }
    bool isMoving() const noexcept { return position_ < length_; }
    int findOpening(const double* key, double peak, int from, int n) noexcept;
    int findClosing(const double* key, double peak, int from, int n) noexcept;
    void begin(int length, bool inDb) noexcept;
    void render(T* gain, int n) noexcept;
    void curve(T* gain, int n) const noexcept;

    double sampleRate_ = 44100;
    double opensAt_ = 1, holdsAt_ = 1;  // linear
    T range_ = 0;                       // linear
    bool ducks_ = false;
    int attack_ = 1, hold_ = 1, release_ = 1;  // frames

    bool isOpen_ = false;
    int left_ = 1;  // frames until an open gate closes

    T value_ = 0;                    // the last gain
    T target_ = 0;                   // of the curve under way, exact
    T from_ = 0, way_ = 0;           // linear or dB
    int length_ = 0, position_ = 0;  // frames of the curve
    bool isInDb_ = false;
    bool isChange_ = false;  // the curve is due to a setting, not to the key
};

}  // namespace quillworks
