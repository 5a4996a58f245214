// SPDX-License-Identifier: ISC
// The loudest sample before and behind an effect in each call, published as readings.
#pragma once

#include <algorithm>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "framework/meter_slots.h"
#include "framework/parameter.h"

namespace quillworks {

/// Of all channels, in dB from -144 to 20: the table takes inputRow() and outputRow(), the core
/// measures.
template <typename T> class PeakLevels {
public:
    template <class S> static constexpr Parameter<S> inputRow(Kind kind = Kind::Reading)
    {
        return {"inpeak", kInput, "In", kind, kLeast, kMost, kLeast, "dB"};
    }
    template <class S> static constexpr Parameter<S> outputRow(Kind kind = Kind::Reading)
    {
        return {"outpeak", kOutput, "Out", kind, kLeast, kMost, kLeast, "dB"};
    }

    /// Once per call of process().
    void begin() noexcept { input_ = output_ = 0; }
    void measureInput(const T* x, int n) noexcept { input_ = std::max(input_, vec::peak(x, n)); }
    void measureOutput(const T* x, int n) noexcept { output_ = std::max(output_, vec::peak(x, n)); }
    void publish(MeterSlots& meters) const noexcept
    {
        meters.publish(kInput, decibels(input_));
        meters.publish(kOutput, decibels(output_));
    }

private:
    static constexpr Tag kInput = "InPk"_tag, kOutput = "OtPk"_tag;
    static constexpr float kLeast = -144, kMost = 20;

    static float decibels(T peak) noexcept
    {
        return std::clamp(static_cast<float>(gainToDb(double(peak))), kLeast, kMost);
    }

    T input_ = 0, output_ = 0;
};

}  // namespace quillworks
