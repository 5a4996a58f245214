// SPDX-License-Identifier: ISC
#include "dsp/ducker.h"

#include "dsp/sanitise.h"

namespace quillworks {
namespace {

constexpr double kRise = 0.005;        // s
constexpr double kWetRise = 0.05;      // s
constexpr double kWetFall = 0.3;       // s
constexpr double kLargestPower = 100;  // what is louder is not remembered for longer
constexpr double kShare = 0.1;         // of the other followers
constexpr double kQuiet = 1e-11;       // -110 dB: below, nothing is ducked
constexpr double kOctavesPerDb = 0.16609640474436812;  // log2(10)/20
constexpr double kDepthTolerance = 2e-5;               // dB

/// A power that no signal has is a fault's, and not heard at all: at the limit it would keep the
/// rest from ducking for seconds.
double heard(double power) noexcept
{
    constexpr double loudest = kLoudestSignal * kLoudestSignal;
    return power <= loudest ? std::min(power, kLargestPower) : 0;
}

}  // namespace

template <typename T> void Ducker<T>::prepare(double sampleRate, double depthHalfLife) noexcept
{
    sampleRate_ = sampleRate;
    depth_.prepareHalfLife(depthHalfLife);
    depth_.setTolerance(kDepthTolerance);
    echo_.setTimes(sampleRate, kWetRise, kWetFall);
    setRecovery(0.3);
    reset();
}

template <typename T> void Ducker<T>::reset() noexcept
{
    depth_.snap();
    forget();
    gainDb_ = 0;
    gain_.set(1);
    isOn_ = false;
}

template <typename T> void Ducker<T>::setRecovery(double seconds) noexcept
{
    voice_.setTimes(sampleRate_, kRise, seconds / 4);
    recent_.setTimes(sampleRate_, kRise, 1 + seconds);
}

template <typename T> void Ducker<T>::forget() noexcept
{
    dryPower_.reset();
    wetPower_.reset();
    voice_.reset();
    recent_.reset();
    echo_.reset();
}

template <typename T> void Ducker<T>::begin() noexcept
{
    const bool wasOn = isOn_;
    isOn_ = depth_.target() > 0 || depth_.current() > 0;
    if (!isOn_) {
        if (wasOn) forget();
        gainDb_ = 0;
        gain_.set(1);
        return;
    }
    const double depth = depth_.next(kWholeSubBlock).to;
    const double p = heard(dryPower_.power()), q = heard(wetPower_.power());
    const double e = voice_.next(p), v = recent_.next(p), w = echo_.next(q);
    gainDb_ = 0 - depth * (e / (e + kShare * std::max(v, w) + kQuiet));
    gain_.follow({gain_.at[kSubBlock - 1], std::exp2(T(gainDb_ * kOctavesPerDb))});
}

template <typename T>
void Ducker<T>::process(const T* const* dry, int dryChannels, T* const* wet, int wetChannels,
                        GridSlice slice) noexcept
{
    if (slice.begins()) begin();
    if (!isOn_) return;
    dryPower_.add(dry, dryChannels, slice);
    wetPower_.add(wet, wetChannels, slice);
    for (int c = 0; c < wetChannels; ++c) gain_.scale(wet[c], slice);
}

template class Ducker<float>;
template class Ducker<double>;

}  // namespace quillworks
