// SPDX-License-Identifier: ISC
// The four filters of a head for several ears at once.
#pragma once

#include <array>

#include "dsp/control_grid.h"
#include "dsp/smoothed.h"
#include "mixing/head_model.h"

namespace quillworks {

/// What the loop of EarFilters works on: rows of kMost ears.
template <typename T> struct EarRun {
    static constexpr int kMost = 4;
    static constexpr int kCoefficients = 3 + 6 + 6 + 3;  // filter after filter
    static constexpr int kStates = 1 + 2 + 2 + 1;

    const T (*to)[kMost];    // at the end of the sub-block
    const T (*step)[kMost];  // their change per frame
    bool moves;              // whether there is any
    T (*z)[kMost];
    T* channel[kMost];  // in place; the same one for ears that there are not
    int ears;
    int frames, phase;

    /// For the instruction set at hand.
    static void (*const run)(const EarRun& run);
};

template <> void (*const EarRun<float>::run)(const EarRun<float>&);
template <> void (*const EarRun<double>::run)(const EarRun<double>&);

/// Each ear has gains of its own, which glide in decibels. Ears lie side by side in a vector: the
/// filters of one follow each other, and those of different frames overlap.
template <typename T> class EarFilters {
public:
    static constexpr int kMost = EarRun<T>::kMost;
    using Gains = std::array<double, head::kFilters>;  // dB

    void prepare(int ears, double sampleRate) noexcept;
    /// Silence, and the gains where they are to be.
    void reset() noexcept;
    void target(int ear, const Gains& gains) noexcept;
    /// All ears in place.
    void process(T* const* x, GridSlice slice) noexcept;

private:
    void lay(int ear) noexcept;
    bool isGliding(int ear) const noexcept;

    int ears_ = 0;
    double sampleRate_ = 44100;
    std::array<std::array<Smoothed<double>, head::kFilters>, kMost> gain_;
    alignas(64) T to_[EarRun<T>::kCoefficients][kMost]{};
    alignas(64) T step_[EarRun<T>::kCoefficients][kMost]{};
    alignas(64) T z_[EarRun<T>::kStates][kMost]{};
    bool moves_ = false;  // in this sub-block
};

}  // namespace quillworks
