// SPDX-License-Identifier: ISC
// One source around a head: its level, and how late each ear hears it.
#pragma once

#include <array>

#include "dsp/course.h"
#include "dsp/fractional_delay.h"

namespace quillworks {

template <typename T> class BinauralSource {
public:
    /// Allocates.
    void prepare(double sampleRate);
    /// Silence, and everything where it is to be.
    void reset() noexcept;
    /// How much later the left ear hears it than the right one in seconds, its level at any
    /// distance, and the gain of this one. Glides.
    void place(double lateness, double level, double nearness) noexcept;
    /// Levels the source in place, and writes what comes straight to each ear.
    void process(T* x, T* const* ears, GridSlice slice) noexcept;

private:
    void beginSubBlock() noexcept;

    double sampleRate_ = 44100;
    Smoothed<double> delay_;        // samples, of the left ear; below 0 of the right one
    Ramp<double> delayRamp_{0, 0};  // over the open sub-block
    Smoothed<T> level_, nearness_;  // linear
    Course<T> levelCourse_, nearnessCourse_;
    std::array<FractionalDelay<T>, 2> late_;
};

}  // namespace quillworks
