// SPDX-License-Identifier: ISC
// The loops of EarlyReflections, built per instruction set.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dsp/section.h"

namespace quillworks {

/// Reflections of order 1, 2, and 3 and above have passed so many wall filters.
inline constexpr int kReflectionOrders = 3;
inline constexpr int kReflectionSources = 2;
/// Room for a sub-block, and for what a vector reads and writes too far.
inline constexpr int kReflectionRow = kSubBlock + 16;

/// A wall's filter: y = through x + z, z' = keep z + feed x.
template <typename T> struct WallCoefficients {
    T keep = 0, feed = 0, through = 1;

    WallCoefficients() = default;
    /// The same filter as a one-pole in its own form; what it remembers is scaled.
    explicit WallCoefficients(const OnePoleCoefficients<double>& c) noexcept
        : keep(T(1 - c.b)), feed(T(c.l * c.b)), through(T(c.h))
    {}
};

/// The filter passed once, twice and three times, for two sources side by side.
template <typename T> struct WallRun {
    const T* in[kReflectionSources];  // kReflectionRow
    T* out[kReflectionSources][kReflectionOrders];
    T* states;                 // [order][source]
    WallCoefficients<T> to;    // at the end of the sub-block
    WallCoefficients<T> step;  // their change per frame, if anything `moves`
    int frames, phase;
    bool moves;
};
void runWalls(const WallRun<float>& run);
void runWalls(const WallRun<double>& run);

template <typename T> struct ReflectionTap {
    std::int32_t delay;   // samples
    std::int32_t offset;  // where its ring begins, less the delay
    T gain;
};
/// Rings side by side, read by many taps: out += sum of gain times ring. In each ring, behind its
/// end, its beginning once more.
template <typename T> struct ReflectionRun {
    const T* place;           // of the slice's first sample in the first ring
    std::ptrdiff_t capacity;  // of each ring: above every delay
    const ReflectionTap<T>* taps;
    int count;
    int wrapped;  // taps from here on lie before the rings' beginning, and so at their end
    T* out;       // kReflectionRow
    int frames;
};
void addReflections(const ReflectionRun<float>& run);
void addReflections(const ReflectionRun<double>& run);

}  // namespace quillworks
