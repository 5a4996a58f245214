// SPDX-License-Identifier: ISC
#include "dynamics/strip_dynamics.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {
namespace {

constexpr double kFadeSeconds = 0.01;
constexpr double kHysteresis = 6;       // dB
constexpr double kGateAttack = 0.0005;  // seconds
constexpr double kGateHold = 0.03;      // seconds
constexpr double kFloor = 1e-8;         // of the key: keeps its logarithm finite
constexpr double kNoPower = 1e-40;

/// `gain` in the place of 1, or 1 in the place of `gain`.
template <typename T> void fade(T* gain, const Switch<bool>& isOn, int n) noexcept
{
    T one[kSubBlock];
    vec::set(one, 1, n);
    if (isOn.present()) {
        isOn.fade().mix(gain, one, n);
    } else {
        isOn.fade().mix(one, gain, n);
        vec::copy(gain, one, n);
    }
}

}  // namespace

template <typename T> void StripDynamics<T>::prepare(double sampleRate)
{
    sampleRate_ = sampleRate;
    gate_.setSampleRate(sampleRate);
    detector_.prepare(1);
    gateOn_.prepare(sampleRate, kFadeSeconds);
    compressorOn_.prepare(sampleRate, kFadeSeconds);
    setTimes();
}

template <typename T> void StripDynamics<T>::reset() noexcept
{
    gate_.reset();
    isListening_ = false;
    gateOn_.target(wantsGate_);
    gateOn_.snap();
    detector_.reset();
    compressorOn_.snap();
}

template <typename T>
void StripDynamics<T>::setGate(double threshold, double range, double release) noexcept
{
    opensAt_ = dbToGain(threshold);
    gate_.setThreshold(threshold, kHysteresis);
    gate_.setRange(range);
    gateRelease_ = release;
    setTimes();
}

template <typename T>
void StripDynamics<T>::setCompressor(const CompressionCurve& curve, double attack,
                                     double release) noexcept
{
    curve_ = curve;
    // A little below, for what the logarithm rounds.
    startsAt_ = curve.slope > 0 ? dbToGain(curve.threshold - curve.knee) * 0.999 - kFloor : 1e9;
    attack_ = attack;
    release_ = release;
    setTimes();
}

template <typename T> void StripDynamics<T>::setSwitches(bool gate, bool compressor) noexcept
{
    wantsGate_ = gate;
    compressorOn_.target(compressor);
}

template <typename T> void StripDynamics<T>::setLowCut(double frequency) noexcept
{
    lowCut_ = frequency;
    setTimes();
}

template <typename T> void StripDynamics<T>::setTimes() noexcept
{
    gate_.setTimes(kGateAttack, kGateHold, gateRelease_, lowCut_);
    // A tone an octave below the lowest that comes keeps the detector still.
    detector_.setTimes(0, followerCoefficient(sampleRate_, attack_),
                       followerCoefficient(sampleRate_, release_),
                       PeakHold::holdFrames(sampleRate_, lowCut_));
}

template <typename T> void StripDynamics<T>::next(GridSlice slice) noexcept
{
    if (!slice.begins()) return;
    if (!wantsGate_) {
        isListening_ = false;
        gateOn_.target(false);
    } else if (gateOn_.present()) {
        gateOn_.target(true);
    } else if (!isListening_ && !gateOn_.isFading()) {
        isListening_ = true;
        isReached_ = false;
        const double gap = std::min(kLongestGap, 0.625 / lowCut_);
        listensFor_ = std::max(1, static_cast<int>(std::ceil(gap * sampleRate_ / kSubBlock)));
    } else if (isListening_ && --listensFor_ == 0) {
        isListening_ = false;
        gate_.reset(isReached_);
        gateOn_.target(true);
    }
    gateOn_.next(slice);
    if (compressorOn_.next(slice) && compressorOn_.present()) detector_.reset();
}

template <typename T>
bool StripDynamics<T>::run(const T* magnitude, const Course<T>& makeUp, T* gain,
                           GridSlice slice) noexcept
{
    const int n = slice.frames;
    const double peak = vec::peak(magnitude, n);
    double key[kSubBlock]{};
    for (int i = 0; i < n; ++i) key[i] = magnitude[i];
    isReached_ |= peak >= opensAt_;
    gain[0] = 1;
    bool isConstant = true;
    if (gateRuns()) isConstant = runGate(key, peak, gain, n);
    if (!compressorRuns()) return isConstant;

    T other[kSubBlock];
    const bool isOtherConstant = runCompressor(key, peak, makeUp, other, slice);
    if (isConstant && isOtherConstant) {
        gain[0] *= other[0];
        return true;
    }
    if (isOtherConstant)
        vec::scale(gain, other[0], n);
    else if (isConstant)
        vec::scaleCopy(gain, other, gain[0], n);
    else
        vec::mulInplace(gain, other, n);
    return false;
}

template <typename T>
bool StripDynamics<T>::runGate(const double* key, double peak, T* gain, int n) noexcept
{
    bool isConstant = gate_.run(key, peak, gain, n);
    if (gateOn_.isFading()) {
        if (isConstant) vec::set(gain, gain[0], n);
        isConstant = false;
        fade(gain, gateOn_, n);
    }
    lowestGate_ = std::min(lowestGate_, *std::min_element(gain, gain + (isConstant ? 1 : n)));
    return isConstant;
}

/// Make-up included.
template <typename T>
bool StripDynamics<T>::runCompressor(const double* key, double peak, const Course<T>& makeUp,
                                     T* gain, GridSlice slice) noexcept
{
    const int n = slice.frames;
    double reduction[kSubBlock];
    if (peak < startsAt_) {
        vec::clear(reduction, n);
    } else {
        double power[kSubBlock]{};
        for (int i = 0; i < n; ++i) power[i] = (key[i] + kFloor) * (key[i] + kFloor);
        vec::decibelsFromPower(reduction, power, kNoPower, n);
        curve_.reduce(reduction, n);
    }
    if (detector_.run(reduction, n) && makeUp.isConstant() && !compressorOn_.isFading()) {
        gain[0] = *makeUp.of(slice);
        return true;
    }
    for (int i = 0; i < n; ++i) gain[i] = T(-reduction[i]);
    largestReduction_ = std::max(largestReduction_, vec::peak(gain, n));
    vec::gainFromDecibels(gain, gain, n);
    makeUp.scale(gain, slice);
    if (compressorOn_.isFading()) fade(gain, compressorOn_, n);
    return false;
}

template <typename T> void StripDynamics<T>::advance(int n) noexcept
{
    gateOn_.advance(n);
    compressorOn_.advance(n);
}

template class StripDynamics<float>;
template class StripDynamics<double>;

}  // namespace quillworks
