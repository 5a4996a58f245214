// SPDX-License-Identifier: ISC
#include "delay/echo_output.h"

#include <algorithm>

#include "dsp/decibel.h"
#include "dsp/vec.h"

namespace quillworks {

template <typename T> void EchoOutput<T>::prepare(int channels, double sampleRate)
{
    const double base = glideSubBlocks(sampleRate);
    ducker_.prepare(sampleRate, 2 * base);
    mixer_.prepareHalfLife(2 * base);
    mixer_.setLaw(MixLaw::Balance);
    peaks_.assign(static_cast<std::size_t>(channels), T(0));
    lowestGain_ = 0;
}

template <typename T> void EchoOutput<T>::reset() noexcept
{
    ducker_.reset();
    mixer_.reset();
    std::fill(peaks_.begin(), peaks_.end(), T(0));
    lowestGain_ = 0;
}

template <typename T>
void EchoOutput<T>::apply(const EchoSettings& settings, unsigned dirty) noexcept
{
    if (dirty & EchoSettings::Duck) {
        ducker_.setDepth(double(settings.duck));
        ducker_.setRecovery(double(settings.recover));
    }
    if (dirty & EchoSettings::Mix) mixer_.target(T(settings.mix));
}

template <typename T>
void EchoOutput<T>::process(T* const* x, T* const* echoes, GridSlice slice) noexcept
{
    const int n = slice.frames, channels = static_cast<int>(peaks_.size());
    ducker_.process(x, channels, echoes, channels, slice);
    lowestGain_ = std::min(lowestGain_, ducker_.gainDb());
    mixer_.next(slice);
    for (int c = 0; c < channels; ++c) {
        T& peak = peaks_[static_cast<std::size_t>(c)];
        peak = std::max(peak, vec::peak(echoes[c], n));
        if (mixer_.isDry()) continue;
        mixer_.mix(echoes[c], x[c], slice);
        vec::copy(x[c], static_cast<const T*>(echoes[c]), n);
    }
}

template <typename T>
void EchoOutput<T>::publish(MeterSlots& meters, const StepLine<T>& lines, int longest) noexcept
{
    meters.publishFamily(kEchoPeak, static_cast<int>(peaks_.size()), [this](int c) {
        const double peak = gainToDb(double(peaks_[static_cast<std::size_t>(c)]));
        return static_cast<float>(std::clamp(peak, -144.0, 20.0));
    });
    meters.publish("DckG"_tag, static_cast<float>(lowestGain_));
    meters.publish("Frzn"_tag, lines.isFrozen() ? 1 : 0);
    meters.publish("LinD"_tag, std::min(static_cast<float>(longest), kLongestDelayShown));
    std::fill(peaks_.begin(), peaks_.end(), T(0));
    lowestGain_ = 0;
}

template class EchoOutput<float>;
template class EchoOutput<double>;

}  // namespace quillworks
