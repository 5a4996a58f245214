// SPDX-License-Identifier: ISC
#include "distortion/dynamics_restorer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {
namespace {

constexpr double kSeconds = 0.06;      // of the pack's attack and release times
constexpr double kSilentPower = 1e-9;  // -90 dBFS: below it there is no level to restore
constexpr double kMostDb = 24;

}  // namespace

template <typename T>
void DynamicsRestorer<T>::prepare(double sampleRate, int channels, double glideHalfLife) noexcept
{
    channels_ = std::max(1, channels);
    amount_.prepareHalfLife(glideHalfLife);
    constexpr double timeConstant = kSeconds / (2 * std::numbers::pi);
    for (auto* level : {&dryLevel_, &wetLevel_})
        level->setTimes(sampleRate, timeConstant, timeConstant);
}

template <typename T> void DynamicsRestorer<T>::reset() noexcept
{
    amount_.snap();
    isOn_ = false;
    for (auto* power : {&dryPower_, &wetPower_}) power->reset();
    for (auto* level : {&dryLevel_, &wetLevel_}) level->reset();
    gainDb_ = 0;
    gain_.set(1);
}

template <typename T> void DynamicsRestorer<T>::begin() noexcept
{
    const double amount = amount_.next(kWholeSubBlock).to;
    const bool wasOn = isOn_;
    isOn_ = amount != 0 || gainDb_ != 0;
    if (!isOn_) return;
    if (!wasOn)
        for (auto* level : {&dryLevel_, &wetLevel_}) level->reset();
    const double ratio = (dryLevel_.value() + kSilentPower) / (wetLevel_.value() + kSilentPower);
    const double wanted = amount * std::clamp(10 * std::log10(ratio), -kMostDb, kMostDb);
    gain_.follow({T(dbToGain(gainDb_)), T(dbToGain(wanted))});
    gainDb_ = wanted;
}

template <typename T>
void DynamicsRestorer<T>::process(const T* const* dry, T* const* wet, GridSlice slice) noexcept
{
    if (slice.begins()) begin();
    if (!isOn_) return;
    dryPower_.add(dry, channels_, slice);
    wetPower_.add(wet, channels_, slice);
    if (slice.ends()) {
        dryLevel_.next(dryPower_.power() / channels_);
        wetLevel_.next(wetPower_.power() / channels_);
    }
    for (int c = 0; c < channels_; ++c) gain_.scale(wet[c], slice);
}

template class DynamicsRestorer<float>;
template class DynamicsRestorer<double>;

}  // namespace quillworks
