// SPDX-License-Identifier: ISC
// The way out of the echo effects: ducking, the mix with the dry signal, and the readings.
#pragma once

#include <vector>

#include "delay/echo_settings.h"
#include "dsp/dry_wet.h"
#include "dsp/ducker.h"
#include "framework/meter_slots.h"

namespace quillworks {

template <typename T> class EchoOutput {
public:
    /// Allocates; may throw std::bad_alloc.
    void prepare(int channels, double sampleRate);
    void reset() noexcept;
    /// Ducking and mix.
    void apply(const EchoSettings& settings, unsigned dirty) noexcept;
    void setWetOnly(bool wetOnly) noexcept { mixer_.setWetOnly(wetOnly); }

    /// A slice: the echoes of all channels are ducked by `x`, measured, and mixed into it.
    void process(T* const* x, T* const* echoes, GridSlice slice) noexcept;
    /// The rows of echoReadings().
    void publish(MeterSlots& meters, const StepLine<T>& lines) noexcept
    {
        publish(meters, lines, lines.longest());
    }
    /// For owners some of whose taps are not heard: `longest` delay in use, in samples.
    void publish(MeterSlots& meters, const StepLine<T>& lines, int longest) noexcept;

private:
    Ducker<T> ducker_;
    DryWet<T> mixer_;
    std::vector<T> peaks_;   // of each channel's echoes since publish()
    double lowestGain_ = 0;  // dB, since publish()
};

}  // namespace quillworks
